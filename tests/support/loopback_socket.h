// A loopback socket on a free port. Bound only, a connect to it is refused;
// listening, the kernel completes connections into its backlog (enough for
// a full link table) while nobody accepts or answers.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

struct LoopbackSocket {
    int fd = -1;
    int port = 0;
    explicit LoopbackSocket(bool listening) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
        socklen_t len = sizeof a;
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
        if (listening) listen(fd, 64);
    }
    ~LoopbackSocket() { close(fd); }
};
