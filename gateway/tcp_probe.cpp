#include "tcp_probe.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace uhfd {

namespace {

// 0 when connected, else the errno of the attempt (ETIMEDOUT past the limit, EINTR when woken).
int try_address(const addrinfo& a, int timeout_ms, int wake_fd) {
    const int fd = socket(a.ai_family, a.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a.ai_protocol);
    if (fd < 0) return errno;
    int err = connect(fd, a.ai_addr, a.ai_addrlen) == 0 ? 0 : errno;
    if (err == EINPROGRESS) {
        pollfd p[2] = {{fd, POLLOUT, 0}, {wake_fd, POLLIN, 0}};
        const int n = poll(p, 2, timeout_ms);
        socklen_t len = sizeof err;
        if (n == 0) err = ETIMEDOUT;
        else if (p[1].revents) err = EINTR;
        else if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
    }
    close(fd);
    return err;
}

}  // namespace

bool tcp_answers(const std::string& host, int port, int timeout_ms, int wake_fd, std::string& why) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int rc = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (rc != 0) return (why = host + ": " + gai_strerror(rc), false);
    int err = ENOENT;
    for (addrinfo* a = found; a && err && err != EINTR; a = a->ai_next) err = try_address(*a, timeout_ms, wake_fd);
    freeaddrinfo(found);
    if (err) why = std::strerror(err);
    return err == 0;
}

}  // namespace uhfd
