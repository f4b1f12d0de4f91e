// The HTTP listening socket, made here rather than by libmicrohttpd: without
// SO_REUSEPORT a second uhfd on the same port fails instead of sharing it,
// and the message says which address and why.
#pragma once

#include <sys/socket.h>

#include <string>

namespace uhfd {

struct ListenAddress {
    sockaddr_storage addr{};
    socklen_t len = 0;
    std::string text;  // ADDR:PORT as given, for messages
    bool loopback() const;
    bool wildcard() const;  // 0.0.0.0 or ::
};

// Resolves a numeric address or a host name (brackets around IPv6 allowed).
bool resolve_listen(const std::string& host, int port, ListenAddress& out, std::string& err);
// A bound, listening, non-blocking socket, or -1 with err
// "cannot listen on ADDR:PORT: address in use" (or the system's reason).
int listen_on(const ListenAddress& a, std::string& err);
// A thousand stream clients need a thousand descriptors: the soft limit
// goes up to the hard one.
void raise_descriptor_limit();

}  // namespace uhfd
