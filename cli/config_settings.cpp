// Power, antennas, region, hopping, RF link, Gen2 and inventory modes.
#include <cmath>
#include <cstdio>

#include "UHF.h"
#include "reader_settings.h"
#include "session.h"
#include "settings.h"

namespace uhfctl {

namespace {

using Args = std::vector<std::string>;
using uhftools::range_error;
using uhftools::setting_row;
using uhftools::SettingRow;

Setting on_off(const char* name, int (*get)(unsigned char*), int (*set)(unsigned char)) {
    Setting s = table_setting(name, "on|off");
    s.get = [get](Value& v) {
        unsigned char f = 0;
        if (get(&f) != 0) return false;
        v = Value{f ? "on" : "off", Json(cJSON_CreateBool(f != 0))};
        return true;
    };
    const SettingRow& row = setting_row(name);
    s.set = [set, &row](const Args& a, bool, std::string& err) {
        int f = 0;
        if (a.size() != 1 || !uhftools::choice_code(row, a[0], f)) return usage(err, range_error(row));
        return set_status(set(static_cast<unsigned char>(f)));
    };
    return s;
}

// Antennas with their read and write power in whole dBm, as the reader lists them.
struct AntennaPower {
    int antenna, read, write;
};

bool antenna_powers(std::vector<AntennaPower>& out) {
    static uint8_t buf[3 * 410];
    uint16_t n = 0;
    if (UHFGetAntennaPower(buf, &n) != 0 || n > sizeof buf) return false;
    out.clear();
    for (size_t i = 0; i + 3 <= n; i += 3) out.push_back({buf[i], buf[i + 1], buf[i + 2]});
    return true;
}

// "25" or "25.5" dBm into 0.01 dBm, within the power range.
bool parse_dbm(const std::string& text, uint16_t& centi) {
    const SettingRow& row = setting_row("power");
    char* end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(v >= row.min && v <= row.max)) return false;
    centi = static_cast<uint16_t>(std::lround(v * 100));
    return true;
}

Setting power() {
    Setting s = table_setting("power", "DBM (every antenna) | ANT=DBM[/WRITE_DBM] ... [--save]");
    s.get = [](Value& v) {
        std::vector<AntennaPower> list;
        if (!antenna_powers(list)) return false;
        v.json.reset(cJSON_CreateArray());
        for (const auto& p : list) {
            char b[48];
            std::snprintf(b, sizeof b, "%s%d: %d/%d", v.text.empty() ? "" : ", ", p.antenna, p.read, p.write);
            v.text += b;
            cJSON* o = cJSON_CreateObject();
            cJSON_AddNumberToObject(o, "antenna", p.antenna);
            cJSON_AddNumberToObject(o, "read", p.read);
            cJSON_AddNumberToObject(o, "write", p.write);
            cJSON_AddItemToArray(v.json.get(), o);
        }
        v.text += " dBm (antenna: read/write)";
        return true;
    };
    s.set = [](const Args& a, bool save, std::string& err) {
        struct Change {
            unsigned antenna;
            uint16_t read, write;
        };
        if (a.size() == 1 && a[0].find('=') == std::string::npos) {
            uint16_t p = 0;
            if (!parse_dbm(a[0], p)) return usage(err, a[0] + ": " + range_error(setting_row("power")));
            return set_status(uhftools::set_power_everywhere(save, p) ? 0 : -1);
        }
        std::vector<Change> changes;
        for (const auto& item : a) {
            auto eq = item.find('='), slash = item.find('/');
            unsigned long ant = 0;
            Change c{};
            if (eq == std::string::npos || !parse_in_range(setting_row("antennas"), item.substr(0, eq), ant) ||
                !parse_dbm(item.substr(eq + 1, slash == std::string::npos ? std::string::npos : slash - eq - 1),
                           c.read) ||
                (slash != std::string::npos && !parse_dbm(item.substr(slash + 1), c.write)))
                return usage(err, item + ": expected ANT=DBM[/WRITE_DBM]; " + range_error(setting_row("power")));
            if (slash == std::string::npos) c.write = c.read;
            c.antenna = static_cast<unsigned>(ant);
            changes.push_back(c);
        }
        if (changes.empty()) return usage(err, "expected DBM or ANT=DBM");
        for (const auto& c : changes)
            if (UHFSetAntennaPower(save, static_cast<uint8_t>(c.antenna), c.read, c.write) != 0)
                return static_cast<int>(kReaderFailed);
        return static_cast<int>(kOk);
    };
    return s;
}

Setting antennas() {
    Setting s = table_setting("antennas", "N[,N...] [--save]");
    s.get = [](Value& v) {
        unsigned char mask[2] = {};
        if (UHFGetANT(mask) != 0) return false;
        unsigned bits = mask[0] << 8 | mask[1];
        v.json.reset(cJSON_CreateArray());
        for (int i = 0; i < 16; i++) {
            if (!(bits >> i & 1)) continue;
            v.text += (v.text.empty() ? "" : ",") + std::to_string(i + 1);
            cJSON_AddItemToArray(v.json.get(), cJSON_CreateNumber(i + 1));
        }
        if (v.text.empty()) v.text = "none";
        return true;
    };
    s.set = [](const Args& a, bool save, std::string& err) {
        std::string joined;
        for (const auto& x : a) joined += (joined.empty() ? "" : ",") + x;
        unsigned bits = 0;
        size_t start = 0;
        while (start <= joined.size()) {
            size_t comma = joined.find(',', start);
            std::string item = joined.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
            unsigned long n = 0;
            if (!parse_in_range(setting_row("antennas"), item, n))
                return usage(err, range_error(setting_row("antennas")) + ", e.g. 1,2,4");
            bits |= 1u << (n - 1);
            if (comma == std::string::npos) break;
            start = comma + 1;
        }
        unsigned char mask[2] = {static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)};
        return set_status(UHFSetANT(save ? 1 : 0, mask));
    };
    return s;
}

Setting region() {
    Setting s = table_setting("region", "REGION [--save]");
    const SettingRow& row = setting_row("region");
    s.get = [&row](Value& v) {
        uint8_t r = 0;
        if (UHFGetRegion(&r) != 0) return false;
        v = number_value(r, std::to_string(r));
        if (uhftools::choice_word(row, r) != v.text) v.text += " (" + uhftools::choice_word(row, r) + ")";
        return true;
    };
    s.set = [&row](const Args& a, bool save, std::string& err) {
        int code = 0;
        if (a.size() != 1 || !uhftools::choice_code(row, a[0], code)) return usage(err, range_error(row));
        return set_status(UHFSetRegion(save, static_cast<uint8_t>(code)));
    };
    return s;
}

Setting frequencies() {
    Setting s = table_setting("frequencies", "KHZ ...");
    s.get = [](Value& v) {
        static unsigned int f[257];
        if (UHFGetJumpFrequency(f) != 0 || f[0] > 256) return false;
        v.json.reset(cJSON_CreateArray());
        for (unsigned i = 1; i <= f[0]; i++) {
            v.text += (i > 1 ? " " : "") + std::to_string(f[i]);
            cJSON_AddItemToArray(v.json.get(), cJSON_CreateNumber(f[i]));
        }
        // A long table would not leave `info` on one screen.
        if (f[0] > 6)
            v.text = std::to_string(f[0]) + " channels, " + std::to_string(f[1]) + " .. " + std::to_string(f[f[0]]);
        v.text += " kHz";
        return true;
    };
    s.set = [](const Args& a, bool, std::string& err) {
        unsigned int f[84];
        if (a.empty() || a.size() > 84) return usage(err, "expected 1 to 84 frequencies in kHz");
        for (size_t i = 0; i < a.size(); i++) {
            unsigned long k = 0;
            if (!parse_in_range(setting_row("frequencies"), a[i], k))
                return usage(err, a[i] + ": " + range_error(setting_row("frequencies")));
            f[i] = static_cast<unsigned int>(k);
        }
        return set_status(UHFSetJumpFrequency(static_cast<unsigned char>(a.size()), f));
    };
    return s;
}

std::string gen2_field_list() {
    std::string s;
    for (const SettingRow* r : uhftools::gen2_rows()) s += (s.empty() ? "" : " ") + std::string(r->name);
    return s;
}

Setting gen2() {
    Setting s = make_setting("gen2", "Gen2 air parameters, field by field (uhfctl settings lists them)",
                             "--FIELD N ... or FIELD=N ... (" + gen2_field_list() + ")");
    s.get = [](Value& v) {
        uhftools::Gen2Block g;
        if (!uhftools::read_gen2(g)) return false;
        v.json.reset(cJSON_CreateObject());
        for (const SettingRow* r : uhftools::gen2_rows()) {
            const unsigned char n = g.f[r->gen2];
            v.text += (v.text.empty() ? "" : " ") + std::string(r->name) + "=" + std::to_string(n);
            cJSON_AddNumberToObject(v.json.get(), r->name, n);
        }
        return true;
    };
    s.set = [](const Args& a, bool, std::string& err) {
        // Parse everything before asking the reader anything.
        std::vector<std::pair<int, unsigned char>> changes;
        for (const auto& item : a) {
            auto eq = item.find('=');
            if (eq == std::string::npos) return usage(err, item + ": expected FIELD=N or --FIELD N");
            const SettingRow* row = uhftools::find_setting_row(item.substr(0, eq));
            if (!row || row->gen2 < 0)
                return usage(err, item.substr(0, eq) + ": not a Gen2 field (" + gen2_field_list() + ")");
            unsigned long n = 0;
            if (!parse_in_range(*row, item.substr(eq + 1), n)) return usage(err, range_error(*row));
            changes.emplace_back(row->gen2, static_cast<unsigned char>(n));
        }
        if (changes.empty()) return usage(err, "name at least one field, e.g. --session 1");
        uhftools::Gen2Block g;
        if (!uhftools::read_gen2(g)) return static_cast<int>(kReaderFailed);
        for (auto [idx, n] : changes) g.f[idx] = n;
        return uhftools::write_gen2(g) ? static_cast<int>(kOk) : static_cast<int>(kReaderFailed);
    };
    return s;
}

Setting mode() {
    Setting s = table_setting("mode", "MODE [USER_WORD USER_WORDS] [--save]");
    const SettingRow& row = setting_row("mode");
    s.get = [&row](Value& v) {
        uint8_t m[3] = {};
        if (UHFGetEPCTIDUSERMode(0, 0, m) < 0 || m[0] > 2) return false;
        v.text = uhftools::choice_word(row, m[0]);
        if (m[0] == 2) v.text += " (USER from word " + std::to_string(m[1]) + ", " + std::to_string(m[2]) + " words)";
        v.json.reset(cJSON_CreateObject());
        cJSON_AddStringToObject(v.json.get(), "mode", uhftools::choice_word(row, m[0]).c_str());
        cJSON_AddNumberToObject(v.json.get(), "user_addr", m[1]);
        cJSON_AddNumberToObject(v.json.get(), "user_words", m[2]);
        return true;
    };
    s.set = [&row](const Args& a, bool save, std::string& err) {
        int m = -1;
        unsigned long addr = 0, words = 0;
        bool ok = !a.empty() && uhftools::choice_code(row, a[0], m) &&
                  (a.size() == 1 ||
                   (m == 2 && a.size() == 3 && parse_uint(a[1], 0, 255, addr) && parse_uint(a[2], 0, 255, words)));
        if (!ok) return usage(err, range_error(row) + " [USER_WORD USER_WORDS]");
        return set_status(UHFSetEPCTIDUSERMode(save ? 1 : 0, static_cast<uint8_t>(m), static_cast<uint8_t>(addr),
                                               static_cast<uint8_t>(words)));
    };
    return s;
}

Setting filter() {
    Setting s = table_setting("filter", "BANK BYTE_ADDR HEX | off (EPC bank addresses count from the EPC)");
    s.in_info = false;  // the reader has no query for it: `get` refuses it
    const SettingRow& row = setting_row("filter");
    s.set = [&row](const Args& a, bool, std::string& err) {
        if (a.size() == 1 && a[0] == "off") return set_status(UHFSetFilter(0, 1, 0, 0, nullptr));
        int bank = -1;
        unsigned long addr = 0;
        std::vector<uint8_t> mask;
        if (a.size() != 3 || !uhftools::choice_code(row, a[0], bank) || !parse_uint(a[1], 0, 0xFFFF, addr) ||
            !parse_hex(a[2], mask) || mask.empty() || mask.size() > 94)
            return usage(err, "expected BANK BYTE_ADDR HEX (1..94 bytes) or off; " + range_error(row));
        return set_status(UHFSetFilter(0, static_cast<uint8_t>(bank), static_cast<uint16_t>(addr),
                                       static_cast<uint16_t>(mask.size()), mask.data()));
    };
    return s;
}

}  // namespace

void register_config_settings(std::vector<Setting>& out) {
    out.push_back(power());
    out.push_back(antennas());
    out.push_back(region());
    out.push_back(frequencies());
    out.push_back(byte_setting("rflink", "MODE [--save]", UHFGetRFLink,
                               [](bool save, unsigned char m) { return UHFSetRFLink(save ? 1 : 0, m); }));
    out.push_back(gen2());
    out.push_back(on_off("fastid", UHFGetFastID, UHFSetFastID));
    out.push_back(on_off("tagfocus", UHFGetTagfocus, UHFSetTagfocus));
    out.push_back(mode());
    out.push_back(filter());
    out.push_back(
        byte_setting("work-mode", "MODE", UHFGetWorkMode, [](bool, unsigned char m) { return UHFSetWorkMode(m); }));
}

}  // namespace uhfctl
