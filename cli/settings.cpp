#include "settings.h"

#include <arpa/inet.h>

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

Setting read_only(std::string name, std::string help, std::function<bool(Value&)> get) {
    Setting s = make_setting(std::move(name), std::move(help), "");
    s.get = std::move(get);
    return s;
}

Setting byte_setting(std::string name, std::string help, std::string syntax, unsigned long max,
                     int (*get)(unsigned char*), std::function<int(bool, unsigned char)> set) {
    Setting s = make_setting(std::move(name), std::move(help), std::move(syntax));
    s.get = [get](Value& v) {
        unsigned char b = 0;
        if (get(&b) != 0) return false;
        v = number_value(b, std::to_string(b));
        return true;
    };
    s.set = [set, max](const std::vector<std::string>& a, bool save, std::string& err) {
        unsigned long n = 0;
        if (a.size() != 1 || !parse_uint(a[0], 0, max, n)) {
            err = "expected one value 0.." + std::to_string(max);
            return static_cast<int>(kUsage);
        }
        return set_status(set(save, static_cast<unsigned char>(n)));
    };
    return s;
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
