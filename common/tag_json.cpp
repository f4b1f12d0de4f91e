#include "tag_json.h"

#include <cmath>
#include <cstdio>

namespace uhftools {

std::string json_string(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string json_number(double v) {
    if (!std::isfinite(v)) return "null";
    char b[32];
    std::snprintf(b, sizeof b, "%.15g", v);
    return b;
}

std::string tag_json(const TagJson& t) {
    std::string j = "{\"time\":" + json_number(std::round(t.time * 1000) / 1000) +
                    ",\"reader\":" + json_string(t.reader) + ",\"epc\":" + json_string(t.epc) +
                    ",\"pc\":" + json_string(t.pc);
    if (!t.data.empty()) j += ",\"data\":" + json_string(t.data);
    return j + ",\"rssi\":" + json_number(t.rssi_tenths / 10.0) + ",\"antenna\":" + std::to_string(t.antenna) + "}";
}

}  // namespace uhftools
