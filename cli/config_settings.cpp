// Power, antennas, region, hopping, RF link, Gen2 and inventory modes.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "UHF.h"
#include "session.h"
#include "settings.h"

namespace uhfctl {

namespace {

using Args = std::vector<std::string>;

int usage(std::string& err, const std::string& why) {
    err = why;
    return kUsage;
}

bool parse_switch(const Args& a, unsigned char& flag) {
    if (a.size() != 1) return false;
    if (a[0] == "on" || a[0] == "1")
        flag = 1;
    else if (a[0] == "off" || a[0] == "0")
        flag = 0;
    else
        return false;
    return true;
}

Value switch_value(unsigned char flag) { return Value{flag ? "on" : "off", Json(cJSON_CreateBool(flag != 0))}; }

Setting on_off(const char* name, const char* help, int (*get)(unsigned char*), int (*set)(unsigned char)) {
    Setting s = make_setting(name, help, "on|off");
    s.get = [get](Value& v) {
        unsigned char f = 0;
        if (get(&f) != 0) return false;
        v = switch_value(f);
        return true;
    };
    s.set = [set](const Args& a, bool, std::string& err) {
        unsigned char f = 0;
        if (!parse_switch(a, f)) return usage(err, "expected on or off");
        return set_status(set(f));
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

// "25" or "25.5" dBm into 0.01 dBm; modules take 0..33 dBm.
bool parse_dbm(const std::string& text, uint16_t& centi) {
    char* end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(v >= 0 && v <= 33)) return false;
    centi = static_cast<uint16_t>(std::lround(v * 100));
    return true;
}

Setting power() {
    Setting s = make_setting("power", "Read/write power per antenna, dBm",
                             "DBM (every antenna) | ANT=DBM[/WRITE_DBM] ... [--save]");
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
        std::vector<Change> changes;
        if (a.size() == 1 && a[0].find('=') == std::string::npos) {
            uint16_t p = 0;
            if (!parse_dbm(a[0], p)) return usage(err, a[0] + ": expected dBm 0..33");
            std::vector<AntennaPower> list;
            if (!antenna_powers(list)) return static_cast<int>(kReaderFailed);
            for (const auto& ap : list) changes.push_back({static_cast<unsigned>(ap.antenna), p, p});
        } else {
            for (const auto& item : a) {
                auto eq = item.find('='), slash = item.find('/');
                unsigned long ant = 0;
                Change c{};
                if (eq == std::string::npos || !parse_uint(item.substr(0, eq), 1, 255, ant) ||
                    !parse_dbm(item.substr(eq + 1, slash == std::string::npos ? std::string::npos : slash - eq - 1),
                               c.read) ||
                    (slash != std::string::npos && !parse_dbm(item.substr(slash + 1), c.write)))
                    return usage(err, item + ": expected ANT=DBM[/WRITE_DBM], dBm 0..33");
                if (slash == std::string::npos) c.write = c.read;
                c.antenna = static_cast<unsigned>(ant);
                changes.push_back(c);
            }
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
    Setting s = make_setting("antennas", "Antennas in use", "N[,N...] (1..16) [--save]");
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
            if (!parse_uint(item, 1, 16, n)) return usage(err, "expected antenna numbers 1..16, e.g. 1,2,4");
            bits |= 1u << (n - 1);
            if (comma == std::string::npos) break;
            start = comma + 1;
        }
        unsigned char mask[2] = {static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)};
        return set_status(UHFSetANT(save ? 1 : 0, mask));
    };
    return s;
}

// Region codes as modules commonly number them; any other code passes through.
const std::pair<const char*, int> kRegions[] = {{"fcc", 1}, {"etsi", 2}, {"china-920", 3}, {"china-840", 4}};

Setting region() {
    Setting s = make_setting("region", "Regulatory region code", "fcc|etsi|china-920|china-840|CODE [--save]");
    s.get = [](Value& v) {
        uint8_t r = 0;
        if (UHFGetRegion(&r) != 0) return false;
        v = number_value(r, std::to_string(r));
        for (const auto& [name, code] : kRegions)
            if (code == r) v.text += std::string(" (") + name + ")";
        return true;
    };
    s.set = [](const Args& a, bool save, std::string& err) {
        if (a.size() != 1) return usage(err, "expected one region");
        unsigned long code = 0;
        bool known = parse_uint(a[0], 0, 255, code);
        for (const auto& [name, c] : kRegions)
            if (a[0] == name) code = static_cast<unsigned long>(c), known = true;
        if (!known) return usage(err, a[0] + ": expected fcc, etsi, china-920, china-840 or a code 0..255");
        return set_status(UHFSetRegion(save, static_cast<uint8_t>(code)));
    };
    return s;
}

Setting frequencies() {
    Setting s = make_setting("frequencies", "Hopping table, kHz", "KHZ ... (at most 84)");
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
            if (!parse_uint(a[i], 1, 0xFFFFFF, k)) return usage(err, a[i] + ": expected a frequency in kHz");
            f[i] = static_cast<unsigned int>(k);
        }
        return set_status(UHFSetJumpFrequency(static_cast<unsigned char>(a.size()), f));
    };
    return s;
}

// The Gen2 block field by field.
struct Gen2 {
    unsigned char f[14] = {};
};
const char* const kGen2Names[14] = {"target", "action", "t", "q",   "startq",  "minq", "maxq",
                                    "d",      "coding", "p", "sel", "session", "g",    "lf"};
const unsigned kGen2Max[14] = {7, 7, 1, 1, 15, 15, 15, 1, 3, 1, 3, 3, 1, 7};

std::string gen2_field_list() {
    std::string s;
    for (const char* n : kGen2Names) s += (s.empty() ? "" : " ") + std::string(n);
    return s;
}

bool get_gen2(Gen2& g) {
    unsigned char* f = g.f;
    return UHFGetGen2(&f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10], &f[11], &f[12],
                      &f[13]) == 0;
}

Setting gen2() {
    Setting s =
        make_setting("gen2", "Gen2 air parameters",
                     "--FIELD N ... or FIELD=N ... (target action t q startq minq maxq d coding p sel session g lf)");
    s.get = [](Value& v) {
        Gen2 g;
        if (!get_gen2(g)) return false;
        v.json.reset(cJSON_CreateObject());
        for (int i = 0; i < 14; i++) {
            v.text += (i ? " " : "") + std::string(kGen2Names[i]) + "=" + std::to_string(g.f[i]);
            cJSON_AddNumberToObject(v.json.get(), kGen2Names[i], g.f[i]);
        }
        return true;
    };
    s.set = [](const Args& a, bool, std::string& err) {
        // Parse everything before asking the reader anything.
        std::vector<std::pair<int, unsigned char>> changes;
        for (const auto& item : a) {
            std::string key = item, val;
            auto eq = key.find('=');
            if (eq == std::string::npos) return usage(err, key + ": expected FIELD=N or --FIELD N");
            val = key.substr(eq + 1);
            key = key.substr(0, eq);
            int idx = -1;
            for (int k = 0; k < 14; k++)
                if (key == kGen2Names[k]) idx = k;
            unsigned long n = 0;
            if (idx < 0) return usage(err, key + ": not a Gen2 field (" + gen2_field_list() + ")");
            if (!parse_uint(val, 0, kGen2Max[idx], n))
                return usage(err, key + " takes 0.." + std::to_string(kGen2Max[idx]));
            changes.emplace_back(idx, static_cast<unsigned char>(n));
        }
        if (changes.empty()) return usage(err, "name at least one field, e.g. --session 1");
        Gen2 g;
        if (!get_gen2(g)) return static_cast<int>(kReaderFailed);
        for (auto [idx, n] : changes) g.f[idx] = n;
        const unsigned char* f = g.f;
        return set_status(
            UHFSetGen2(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12], f[13]));
    };
    return s;
}

const char* const kModes[3] = {"epc", "epc+tid", "epc+tid+user"};

Setting mode() {
    Setting s = make_setting("mode", "What inventory reports besides the EPC",
                             "epc|epc+tid|epc+tid+user [USER_WORD USER_WORDS] [--save]");
    s.get = [](Value& v) {
        uint8_t m[3] = {};
        if (UHFGetEPCTIDUSERMode(0, 0, m) < 0 || m[0] > 2) return false;
        v.text = kModes[m[0]];
        if (m[0] == 2) v.text += " (USER from word " + std::to_string(m[1]) + ", " + std::to_string(m[2]) + " words)";
        v.json.reset(cJSON_CreateObject());
        cJSON_AddStringToObject(v.json.get(), "mode", kModes[m[0]]);
        cJSON_AddNumberToObject(v.json.get(), "user_addr", m[1]);
        cJSON_AddNumberToObject(v.json.get(), "user_words", m[2]);
        return true;
    };
    s.set = [](const Args& a, bool save, std::string& err) {
        int m = -1;
        for (int i = 0; i < 3; i++)
            if (!a.empty() && a[0] == kModes[i]) m = i;
        unsigned long addr = 0, words = 0;
        bool ok = m >= 0 && (a.size() == 1 || (m == 2 && a.size() == 3 && parse_uint(a[1], 0, 255, addr) &&
                                               parse_uint(a[2], 0, 255, words)));
        if (!ok) return usage(err, "expected epc, epc+tid, or epc+tid+user [USER_WORD USER_WORDS]");
        return set_status(UHFSetEPCTIDUSERMode(save ? 1 : 0, static_cast<uint8_t>(m), static_cast<uint8_t>(addr),
                                               static_cast<uint8_t>(words)));
    };
    return s;
}

Setting filter() {
    Setting s = make_setting("filter", "Inventory filter: only tags whose memory matches answer",
                             "BANK BYTE_ADDR HEX | off (EPC bank addresses count from the EPC)");
    s.in_info = false;  // the reader has no query for it
    s.set = [](const Args& a, bool, std::string& err) {
        if (a.size() == 1 && a[0] == "off") return set_status(UHFSetFilter(0, 1, 0, 0, nullptr));
        int bank = -1;
        const char* banks[4] = {"reserved", "epc", "tid", "user"};
        for (int i = 0; i < 4; i++)
            if (a.size() == 3 && a[0] == banks[i]) bank = i;
        unsigned long addr = 0;
        std::vector<uint8_t> mask;
        if (bank < 0 || !parse_uint(a[1], 0, 0xFFFF, addr) || !parse_hex(a[2], mask) || mask.empty() ||
            mask.size() > 94)
            return usage(err, "expected reserved|epc|tid|user BYTE_ADDR HEX (1..94 bytes), or off");
        return set_status(UHFSetFilter(0, static_cast<uint8_t>(bank), static_cast<uint16_t>(addr),
                                       static_cast<uint16_t>(mask.size()), mask.data()));
    };
    return s;
}

}  // namespace

const std::vector<std::string>& gen2_fields() {
    static const std::vector<std::string> names(std::begin(kGen2Names), std::end(kGen2Names));
    return names;
}

void register_config_settings(std::vector<Setting>& out) {
    out.push_back(power());
    out.push_back(antennas());
    out.push_back(region());
    out.push_back(frequencies());
    out.push_back(byte_setting("rflink", "RF link mode", "MODE (0..255) [--save]", 255, UHFGetRFLink,
                               [](bool save, unsigned char m) { return UHFSetRFLink(save ? 1 : 0, m); }));
    out.push_back(gen2());
    out.push_back(on_off("fastid", "FastID (TID with the EPC)", UHFGetFastID, UHFSetFastID));
    out.push_back(on_off("tagfocus", "TagFocus", UHFGetTagfocus, UHFSetTagfocus));
    out.push_back(mode());
    out.push_back(filter());
    out.push_back(byte_setting("work-mode", "Work mode", "MODE (0..2)", 2, UHFGetWorkMode,
                               [](bool, unsigned char m) { return UHFSetWorkMode(m); }));
}

}  // namespace uhfctl
