#include "http_listen.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace uhfd {

namespace {

std::string without_brackets(const std::string& host) {
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') return host.substr(1, host.size() - 2);
    return host;
}

const uint8_t* v4_of_v6(const in6_addr& a) { return IN6_IS_ADDR_V4MAPPED(&a) ? a.s6_addr + 12 : nullptr; }

std::string failure(const ListenAddress& a, int err) {
    return "cannot listen on " + a.text + ": " + (err == EADDRINUSE ? "address in use" : std::strerror(err));
}

}  // namespace

bool ListenAddress::loopback() const {
    if (addr.ss_family == AF_INET)
        return (reinterpret_cast<const uint8_t*>(&reinterpret_cast<const sockaddr_in&>(addr).sin_addr))[0] == 127;
    const in6_addr& a6 = reinterpret_cast<const sockaddr_in6&>(addr).sin6_addr;
    const uint8_t* v4 = v4_of_v6(a6);
    return IN6_IS_ADDR_LOOPBACK(&a6) || (v4 && v4[0] == 127);
}

bool ListenAddress::wildcard() const {
    if (addr.ss_family == AF_INET) return reinterpret_cast<const sockaddr_in&>(addr).sin_addr.s_addr == INADDR_ANY;
    return IN6_IS_ADDR_UNSPECIFIED(&reinterpret_cast<const sockaddr_in6&>(addr).sin6_addr);
}

bool resolve_listen(const std::string& host, int port, ListenAddress& out, std::string& err) {
    out.text = host + ":" + std::to_string(port);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const std::string name = without_brackets(host);
    int rc = getaddrinfo(name.empty() ? nullptr : name.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (rc != 0) {
        err = "cannot listen on " + out.text + ": " + gai_strerror(rc);
        return false;
    }
    std::memcpy(&out.addr, found->ai_addr, found->ai_addrlen);
    out.len = found->ai_addrlen;
    freeaddrinfo(found);
    return true;
}

int listen_on(const ListenAddress& a, std::string& err) {
    int fd = socket(a.addr.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        err = failure(a, errno);
        return -1;
    }
    int on = 1, off = 0;
    // SO_REUSEADDR only lets a restart bind past TIME_WAIT; it never shares a live port.
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (a.addr.ss_family == AF_INET6 && a.wildcard()) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&a.addr), a.len) != 0 || listen(fd, 256) != 0) {
        err = failure(a, errno);
        close(fd);
        return -1;
    }
    return fd;
}

void raise_descriptor_limit() {
    rlimit lim{};
    if (getrlimit(RLIMIT_NOFILE, &lim) != 0 || lim.rlim_cur >= lim.rlim_max) return;
    lim.rlim_cur = lim.rlim_max;
    setrlimit(RLIMIT_NOFILE, &lim);
}

}  // namespace uhfd
