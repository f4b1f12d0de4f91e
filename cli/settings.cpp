#include "settings.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>

#include "session.h"

namespace uhfctl {

const std::vector<Setting>& all_settings() {
    static const std::vector<Setting> list = [] {
        std::vector<Setting> v;
        register_identity_settings(v);
        register_config_settings(v);
        register_device_settings(v);
        return v;
    }();
    return list;
}

const Setting* find_setting(const std::string& name) {
    for (const Setting& s : all_settings())
        if (s.name == name) return &s;
    return nullptr;
}

Setting make_setting(std::string name, std::string help, std::string syntax) {
    Setting s;
    s.name = std::move(name);
    s.help = std::move(help);
    s.syntax = std::move(syntax);
    return s;
}

Setting table_setting(const std::string& name, std::string syntax) {
    const uhftools::SettingRow& row = uhftools::setting_row(name);
    std::string help = std::string(row.meaning) + " (" + uhftools::range_text(row) + ")";
    help[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(help[0])));  // like the other help lines
    return make_setting(name, std::move(help), std::move(syntax));
}

Setting read_only(std::string name, std::string help, std::function<bool(Value&)> get) {
    Setting s = make_setting(std::move(name), std::move(help), "");
    s.get = std::move(get);
    return s;
}

Setting byte_setting(const std::string& name, std::string syntax, int (*get)(unsigned char*),
                     std::function<int(bool, unsigned char)> set) {
    Setting s = table_setting(name, std::move(syntax));
    s.get = [get](Value& v) {
        unsigned char b = 0;
        if (get(&b) != 0) return false;
        v = number_value(b, std::to_string(b));
        return true;
    };
    const uhftools::SettingRow& row = uhftools::setting_row(name);
    s.set = [set, &row](const std::vector<std::string>& a, bool save, std::string& err) {
        unsigned long n = 0;
        if (a.size() != 1 || !parse_in_range(row, a[0], n)) return usage(err, uhftools::range_error(row));
        return set_status(set(save, static_cast<unsigned char>(n)));
    };
    return s;
}

bool parse_in_range(const uhftools::SettingRow& row, const std::string& text, unsigned long& out) {
    return parse_uint(text, static_cast<unsigned long>(row.min), static_cast<unsigned long>(row.max), out);
}

int usage(std::string& err, const std::string& why) {
    err = why;
    return kUsage;
}

int set_status(int rc) { return rc == 0 ? kOk : kReaderFailed; }

Value text_value(const std::string& text) { return Value{text, Json(cJSON_CreateString(text.c_str()))}; }

Value number_value(double n, const std::string& text) { return Value{text, Json(cJSON_CreateNumber(n))}; }

bool parse_ipv4(const std::string& text, uint8_t out[4]) {
    in_addr a{};
    if (inet_pton(AF_INET, text.c_str(), &a) != 1) return false;
    const auto* b = reinterpret_cast<const uint8_t*>(&a.s_addr);  // network order: first octet first
    for (int i = 0; i < 4; i++) out[i] = b[i];
    return true;
}

std::string ipv4_text(const uint8_t ip[4]) {
    char b[20];
    std::snprintf(b, sizeof b, "%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]);
    return b;
}

}  // namespace uhfctl
