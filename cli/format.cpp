#include "format.h"

#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace uhfctl {

std::string hex(const uint8_t* p, size_t n) {
    static const char digits[] = "0123456789ABCDEF";
    std::string s;
    s.reserve(n * 2);
    for (size_t i = 0; i < n; i++) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 0x0F];
    }
    return s;
}

static int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool parse_hex(const std::string& text, std::vector<uint8_t>& out) {
    out.clear();
    size_t i = 0;
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) i = 2;
    int high = -1;
    for (; i < text.size(); i++) {
        char c = text[i];
        if (c == ' ' || c == ':' || c == '-' || c == '\t') {
            if (high >= 0) return false;  // a separator splits a byte
            continue;
        }
        int d = hex_digit(c);
        if (d < 0) return false;
        if (high < 0) {
            high = d;
        } else {
            out.push_back(static_cast<uint8_t>(high << 4 | d));
            high = -1;
        }
    }
    return high < 0;
}

bool parse_uint(const std::string& text, unsigned long lo, unsigned long hi, unsigned long& out) {
    if (text.empty() || text[0] == '-' || text[0] == '+' || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    errno = 0;
    unsigned long v = std::strtoul(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    out = v;
    return true;
}

std::string dbm(int tenths) {
    char b[16];
    std::snprintf(b, sizeof b, "%s%d.%d", tenths < 0 ? "-" : "", std::abs(tenths) / 10, std::abs(tenths) % 10);
    return b;
}

std::string json_line(const cJSON* j) {
    char* text = cJSON_PrintUnformatted(j);
    std::string s = text ? text : "null";
    cJSON_free(text);
    return s;
}

std::string clock_text(double seconds) {
    long s = seconds < 0 ? 0 : static_cast<long>(seconds + 0.5);
    char b[32];
    if (s >= 3600)
        std::snprintf(b, sizeof b, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(b, sizeof b, "%ld:%02ld", s / 60, s % 60);
    return b;
}

static FILE* g_out = nullptr;

FILE* out() { return g_out ? g_out : stdout; }

int print(const char* format, ...) {
    va_list args;
    va_start(args, format);
    int n = std::vfprintf(out(), format, args);
    va_end(args);
    return n;
}

bool stdout_is_terminal() { return isatty(fileno(out())) == 1; }

bool library_log_to_stderr() {
    std::fflush(stdout);
    int kept = dup(STDOUT_FILENO);
    FILE* f = kept < 0 ? nullptr : fdopen(kept, "w");
    if (f == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        if (f)
            std::fclose(f);
        else if (kept >= 0)
            close(kept);
        return false;
    }
    g_out = f;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // log lines interleave with uhfctl's messages
    return true;
}

}  // namespace uhfctl
