// Singling out one tag for an access command: --epc or --filter, and the
// access password. Shared by the tag-access and sensor commands.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace uhfctl {

extern const char* const kBanks[4];  // reserved, epc, tid, user
extern const char* const kSelectHelp;

// A bank by name or number 0..3.
bool parse_bank(const std::string& text, uint8_t& bank);

struct TagSelect {
    std::string epc, filter, password = "00000000";  // option text

    uint8_t pwd[4] = {};
    uint8_t bank = 1;
    unsigned bit_addr = 0, bit_len = 0;
    std::vector<uint8_t> mask;

    bool any() const { return bit_len == 0; }
    // Fills the binary fields from the option text; false with err set.
    bool resolve(std::string& err);
    // Never null; not read when the filter length is 0.
    uint8_t* mask_data() { return mask.empty() ? pwd : mask.data(); }

private:
    bool parse_filter(std::string& err);
};

// --epc, --filter and (unless without_password) --password on cmd.
void add_select_options(CLI::App* cmd, TagSelect& t, bool with_password = true);

}  // namespace uhfctl
