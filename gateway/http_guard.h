// Checks a request passes before any route sees it: text is UTF-8, the Host
// and Origin name this gateway (a page on another name reaching 127.0.0.1
// through DNS rebinding is refused), and a write carries the token.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace uhfd {

bool valid_utf8(std::string_view s);

// Equal or not, in a time that depends on the lengths only.
bool same_secret(std::string_view a, std::string_view b);
// An Authorization header value against the configured token.
bool bearer_matches(std::string_view authorization, std::string_view token);

// Which names a Host or Origin header may give: localhost, loopback IP
// literals, the bind address, any IP literal when bound to a wildcard, and
// the configured names; each with or without a port.
class HostRule {
public:
    HostRule(std::string bind, bool any_ip, std::vector<std::string> names);
    bool allows_host(std::string_view host) const;
    bool allows_origin(std::string_view origin) const;

private:
    bool allows_name(const std::string& name, bool bracketed) const;
    std::string bind_;
    bool any_ip_;
    std::vector<std::string> names_;
};

}  // namespace uhfd
