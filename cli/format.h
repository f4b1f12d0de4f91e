// Text and JSON helpers shared by the subcommands.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace uhfctl {

struct JsonFree {
    void operator()(cJSON* j) const { cJSON_Delete(j); }
};
using Json = std::unique_ptr<cJSON, JsonFree>;

// Upper-case hex, no separators.
std::string hex(const uint8_t* p, size_t n);
inline std::string hex(const std::vector<uint8_t>& v) { return hex(v.data(), v.size()); }

// Hex digits with optional blanks, ':' or '-' between bytes and an optional
// 0x prefix. False for an odd digit count or a non-hex character.
bool parse_hex(const std::string& text, std::vector<uint8_t>& out);

// Whole number in decimal or 0x hex within [lo, hi].
bool parse_uint(const std::string& text, unsigned long lo, unsigned long hi, unsigned long& out);

// "-52.3" from tenths of a dBm.
std::string dbm(int tenths);

// One compact line of JSON.
std::string json_line(const cJSON* j);

// Seconds as "m:ss" (or "h:mm:ss").
std::string clock_text(double seconds);

// uhfctl's own output: standard output, also after
// library_log_to_stderr(). printf-like; negative when the write failed.
FILE* out();
int print(const char* format, ...) __attribute__((format(printf, 1, 2)));
bool stdout_is_terminal();
// The library logs to standard output; this sends whatever writes to file
// descriptor 1 (the library's log) to stderr and keeps out() on the real
// standard output, so a pipe of JSON stays whole. False when it could not.
bool library_log_to_stderr();

}  // namespace uhfctl
