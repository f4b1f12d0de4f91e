#include "tag_select.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "format.h"

namespace uhfctl {

const char* const kBanks[4] = {"reserved", "epc", "tid", "user"};

bool parse_bank(const std::string& text, uint8_t& bank) {
    for (uint8_t i = 0; i < 4; i++)
        if (text == kBanks[i] || text == std::to_string(i)) {
            bank = i;
            return true;
        }
    return false;
}

bool TagSelect::resolve(std::string& err) {
    std::vector<uint8_t> p;
    if (!parse_hex(password, p) || p.size() != 4) {
        err = "--password takes 8 hex digits";
        return false;
    }
    std::copy(p.begin(), p.end(), pwd);
    if (!epc.empty() && !filter.empty()) {
        err = "give --epc or --filter, not both";
        return false;
    }
    if (!epc.empty()) {
        // The EPC starts after the stored CRC and the PC: bit 32 of the EPC bank.
        if (!parse_hex(epc, mask) || mask.empty() || mask.size() > 62) {
            err = "--epc takes 1..62 bytes of hex";
            return false;
        }
        bank = 1;
        bit_addr = 32;
        bit_len = static_cast<unsigned>(mask.size() * 8);
    }
    if (!filter.empty() && !parse_filter(err)) return false;
    return true;
}

// BANK:BITADDR:BITLEN:HEX, the mask holding exactly ceil(BITLEN/8) bytes.
bool TagSelect::parse_filter(std::string& err) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t c; (c = filter.find(':', start)) != std::string::npos; start = c + 1)
        parts.push_back(filter.substr(start, c - start));
    parts.push_back(filter.substr(start));
    unsigned long addr = 0, len = 0;
    bool ok = parts.size() == 4 && parse_bank(parts[0], bank) && parse_uint(parts[1], 0, 0xFFFF, addr) &&
              parse_uint(parts[2], 1, 496, len) && parse_hex(parts[3], mask) && mask.size() * 8 >= len &&
              mask.size() * 8 < len + 8;
    if (!ok) {
        err = "--filter takes BANK:BITADDR:BITLEN:HEX, e.g. epc:32:16:E200 (BITLEN 1..496, ceil(BITLEN/8) bytes)";
        return false;
    }
    bit_addr = static_cast<unsigned>(addr);
    bit_len = static_cast<unsigned>(len);
    return true;
}

void add_select_options(CLI::App* cmd, TagSelect& t, bool with_password) {
    cmd->add_option("--epc", t.epc, "The tag with this EPC (hex)")->group("Tag");
    cmd->add_option("--filter", t.filter, "The tag whose memory matches BANK:BITADDR:BITLEN:HEX")->group("Tag");
    if (with_password)
        cmd->add_option("-p,--password", t.password, "Access password, 8 hex digits")
            ->capture_default_str()
            ->group("Tag");
}

const char* const kSelectHelp =
    "The tag: --epc HEX, or --filter BANK:BITADDR:BITLEN:HEX (banks reserved, epc, tid, user; the\n"
    "EPC starts at bit 32 of the epc bank); without either, the first tag that answers.\n";

}  // namespace uhfctl
