#include "tag_json.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

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
    std::string j = "{\"time\":" + json_number(to_ms(t.time)) + ",\"reader\":" + json_string(t.reader) +
                    ",\"epc\":" + json_string(t.epc) + ",\"pc\":" + json_string(t.pc);
    if (!t.data.empty()) j += ",\"data\":" + json_string(t.data);
    return j + ",\"rssi\":" + json_number(t.rssi_tenths / 10.0) + ",\"antenna\":" + std::to_string(t.antenna) + "}";
}

double unix_now() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

double to_ms(double seconds) { return std::round(seconds * 1000) / 1000; }

std::string iso8601(double unix_seconds) {
    const auto ms = static_cast<long long>(std::llround(unix_seconds * 1000));
    const std::time_t secs = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    gmtime_r(&secs, &tm);
    char b[32], frac[8];
    std::strftime(b, sizeof b, "%Y-%m-%dT%H:%M:%S", &tm);
    std::snprintf(frac, sizeof frac, ".%03dZ", static_cast<int>(ms % 1000));
    return std::string(b) + frac;
}

}  // namespace uhftools
