// TCP links: a non-blocking stream socket per link.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "transport.h"

namespace uhf {
namespace {

ERROR_STATE tcp_open(ST_Terminal& t) {
    t.my_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = inet_addr(t.device_info.telnet_addr);
    addr.sin_port = htons(static_cast<uint16_t>(t.device_info.telnet_port));
    if (connect(t.my_socket, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == -1) {
        // The slot is wiped by the caller's release; close here so the
        // descriptor is not leaked.
        if (t.my_socket >= 0) close(t.my_socket);
        return static_cast<ERROR_STATE>(-1);
    }
    int flags = fcntl(t.my_socket, F_GETFL);
    fcntl(t.my_socket, F_SETFL, flags | O_NONBLOCK);
    return ERR_SUCCESS;
}

void tcp_close(ST_Terminal& t) { close(t.my_socket); }

int tcp_send(ST_Terminal& t, const uint8_t* p, uint16_t n) {
    // MSG_NOSIGNAL: a closed peer must not kill the application with SIGPIPE.
    return static_cast<int>(send(t.my_socket, p, n, MSG_DONTWAIT | MSG_NOSIGNAL));
}

int tcp_recv(ST_Terminal& t, uint8_t* p, uint16_t n) { return static_cast<int>(recv(t.my_socket, p, n, MSG_DONTWAIT)); }

int tcp_wait(ST_Terminal& t, int ms) { return wait_fd(t.my_socket, ms); }

int tcp_discard(ST_Terminal& t, bool) {
    uint8_t sink[512];
    int dropped = 0;
    for (;;) {
        ssize_t n = recv(t.my_socket, sink, sizeof sink, MSG_DONTWAIT);
        if (n <= 0) break;
        dropped += static_cast<int>(n);
    }
    return dropped;
}

int tcp_descriptor(const ST_Terminal& t) { return t.my_socket; }

int tcp_peek(ST_Terminal& t, uint8_t* p, uint16_t n) {
    return static_cast<int>(recv(t.my_socket, p, n, MSG_DONTWAIT | MSG_PEEK));
}

}  // namespace

const Backend kTcpBackend = {tcp_open,    tcp_close,      tcp_send, tcp_recv, tcp_wait,
                             tcp_discard, tcp_descriptor, tcp_peek, false};

}  // namespace uhf
