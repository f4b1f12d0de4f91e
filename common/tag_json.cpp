#include "tag_json.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace uhftools {

void append_json_string(std::string_view s, std::string& out) {
    static constexpr char kHex[] = "0123456789abcdef";
    out += '"';
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            out.append("\\u00");
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
}

void append_json_number(double v, std::string& out) {
    if (!std::isfinite(v)) {
        out.append("null");
        return;
    }
    // Plain decimals for everything a read carries (Unix times, dBm), so that
    // 1800000000.0 prints as such and not as 1.8e+09; the exponent form only
    // where plain digits would run long.
    char b[64];
    const double a = std::fabs(v);
    const bool plain = a == 0 || (a >= 1e-6 && a < 1e15);
    out.append(b, (plain ? std::to_chars(b, b + sizeof b, v, std::chars_format::fixed) : std::to_chars(b, b + sizeof b, v)).ptr);
}

std::string json_string(const std::string& s) {
    std::string out;
    append_json_string(s, out);
    return out;
}

std::string json_number(double v) {
    std::string out;
    append_json_number(v, out);
    return out;
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
