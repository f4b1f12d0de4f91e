#include "http_guard.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace uhfd {

namespace {

// Bytes after a lead byte, and the range its first continuation byte must be
// in (which rules out overlong forms, surrogates and code points past U+10FFFF).
struct Lead {
    int more;
    uint8_t lo, hi;
};

std::optional<Lead> lead_of(uint8_t b) {
    if (b < 0x80) return Lead{0, 0, 0};
    if (b >= 0xC2 && b <= 0xDF) return Lead{1, 0x80, 0xBF};
    if (b == 0xE0) return Lead{2, 0xA0, 0xBF};
    if (b == 0xED) return Lead{2, 0x80, 0x9F};
    if (b >= 0xE1 && b <= 0xEF) return Lead{2, 0x80, 0xBF};
    if (b == 0xF0) return Lead{3, 0x90, 0xBF};
    if (b >= 0xF1 && b <= 0xF3) return Lead{3, 0x80, 0xBF};
    if (b == 0xF4) return Lead{3, 0x80, 0x8F};
    return std::nullopt;
}

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

// The canonical text of an IP literal, so ::1 and 0:0::1 compare equal.
std::optional<std::string> canonical_ip(const std::string& s) {
    unsigned char bin[sizeof(in6_addr)];
    char text[INET6_ADDRSTRLEN];
    for (int family : {AF_INET, AF_INET6})
        if (inet_pton(family, s.c_str(), bin) == 1) return std::string(inet_ntop(family, bin, text, sizeof text));
    return std::nullopt;
}

bool loopback_ip(const std::string& canonical) {
    return canonical.rfind("127.", 0) == 0 || canonical == "::1" || canonical.rfind("::ffff:127.", 0) == 0;
}

bool valid_port(std::string_view p) {
    return !p.empty() && p.size() <= 5 &&
           std::all_of(p.begin(), p.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
           std::stoi(std::string(p)) <= 65535;
}

// "name", "name:port", "[v6]" or "[v6]:port"; false when it is none of these.
bool split_host(std::string_view h, std::string& name, bool& bracketed) {
    bracketed = !h.empty() && h.front() == '[';
    std::string_view rest;
    if (bracketed) {
        size_t close = h.find(']');
        if (close == std::string_view::npos) return false;
        name = lower(h.substr(1, close - 1));
        rest = h.substr(close + 1);
    } else {
        size_t colon = h.find(':');
        name = lower(h.substr(0, colon));
        rest = colon == std::string_view::npos ? std::string_view() : h.substr(colon);
    }
    return !name.empty() && (rest.empty() || (rest.front() == ':' && valid_port(rest.substr(1))));
}

}  // namespace

bool valid_utf8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        std::optional<Lead> l = lead_of(static_cast<uint8_t>(s[i++]));
        if (!l || i + l->more > s.size()) return false;
        for (int k = 0; k < l->more; k++, i++) {
            auto c = static_cast<uint8_t>(s[i]);
            if (k == 0 ? (c < l->lo || c > l->hi) : (c < 0x80 || c > 0xBF)) return false;
        }
    }
    return true;
}

bool same_secret(std::string_view a, std::string_view b) {
    // Every byte of the longer one is visited whatever the content.
    size_t n = std::max(a.size(), b.size());
    unsigned diff = a.size() != b.size();
    for (size_t i = 0; i < n; i++)
        diff |= static_cast<uint8_t>(i < a.size() ? a[i] : 0) ^ static_cast<uint8_t>(i < b.size() ? b[i] : 0);
    return diff == 0;
}

bool bearer_matches(std::string_view authorization, std::string_view token) {
    constexpr std::string_view scheme = "Bearer ";
    if (authorization.size() < scheme.size() || lower(authorization.substr(0, scheme.size())) != "bearer ")
        return false;
    return same_secret(authorization.substr(scheme.size()), token);
}

HostRule::HostRule(std::string bind, bool any_ip, std::vector<std::string> names) : any_ip_(any_ip) {
    if (bind.size() >= 2 && bind.front() == '[' && bind.back() == ']') bind = bind.substr(1, bind.size() - 2);
    bind_ = canonical_ip(bind).value_or(lower(bind));
    for (const std::string& n : names) names_.push_back(lower(n));
}

bool HostRule::allows_name(const std::string& name, bool bracketed) const {
    std::optional<std::string> ip = canonical_ip(name);
    if (bracketed != (ip && name.find(':') != std::string::npos)) return false;  // IPv6 literals only in brackets
    if (ip) return loopback_ip(*ip) || any_ip_ || *ip == bind_;
    return name == "localhost" || name == bind_ || std::find(names_.begin(), names_.end(), name) != names_.end();
}

bool HostRule::allows_host(std::string_view host) const {
    std::string name;
    bool bracketed = false;
    return split_host(host, name, bracketed) && allows_name(name, bracketed);
}

bool HostRule::allows_origin(std::string_view origin) const {
    for (std::string_view scheme : {"http://", "https://"})
        if (origin.substr(0, scheme.size()) == scheme) return allows_host(origin.substr(scheme.size()));
    return false;
}

}  // namespace uhfd
