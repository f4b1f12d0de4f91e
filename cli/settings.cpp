#include "settings.h"

#include <arpa/inet.h>

#include <cstdio>

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

Setting read_only(std::string name, std::string help, std::function<bool(Value&)> get) {
    Setting s;
    s.name = std::move(name);
    s.help = std::move(help);
    s.get = std::move(get);
    return s;
}

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
