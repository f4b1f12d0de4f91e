// TCP links: a stream socket per link.
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "transport.h"

namespace uhf {
namespace {

// The SO_RCVTIMEO in force on each slot's socket, in ms; 0 for none.
int g_read_limit_ms[MAX_TERMINALS];

ERROR_STATE tcp_open(ST_Terminal& t) {
    g_read_limit_ms[slot_of(t)] = 0;
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
    // The socket stays blocking: every read and write that must not wait
    // says MSG_DONTWAIT, and the exchange's waiting read blocks in recv
    // itself, bounded by SO_RCVTIMEO, instead of polling first.
    return ERR_SUCCESS;
}

void tcp_close(ST_Terminal& t) { close(t.my_socket); }

int tcp_send(ST_Terminal& t, const uint8_t* p, uint16_t n) {
    // MSG_NOSIGNAL: a closed peer must not kill the application with SIGPIPE.
    return static_cast<int>(send(t.my_socket, p, n, MSG_DONTWAIT | MSG_NOSIGNAL));
}

int tcp_recv(ST_Terminal& t, uint8_t* p, uint16_t n) { return static_cast<int>(recv(t.my_socket, p, n, MSG_DONTWAIT)); }

int tcp_wait(ST_Terminal& t, int ms) { return wait_fd(t.my_socket, ms); }

// The kernel rounds SO_RCVTIMEO up to its timer wheel: up to an eighth late
// on long waits, plus a tick or two. A blocking read therefore covers only
// the share of a wait that the rounding cannot push past its end; poll,
// which is exact, waits out the rest.
int blocking_share(int ms) { return ms - ms / 4 - 20; }

// Whether a blocking read may wait now: the limit in force fits the share
// (and is not so short that it would wake for nothing), or could be set.
// A run of exchanges with one time limit sets it once.
bool read_limit_fits(ST_Terminal& t, int ms) {
    int share = blocking_share(ms);
    if (share <= 0) return false;
    int& limit = g_read_limit_ms[slot_of(t)];
    if (limit <= share && limit > share / 2) return true;
    timeval tv{share / 1000, (share % 1000) * 1000};
    if (setsockopt(t.my_socket, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) return false;
    limit = share;
    return true;
}

// One system call on a healthy link: recv blocks until the reply is in.
int tcp_recv_within(ST_Terminal& t, uint8_t* p, uint16_t n, int ms, bool* hung_up) {
    ssize_t got;
    if (read_limit_fits(t, ms)) {
        got = recv(t.my_socket, p, n, 0);
    } else {
        wait_fd(t.my_socket, ms);
        got = recv(t.my_socket, p, n, MSG_DONTWAIT);
    }
    // EAGAIN is silence (a read limit or poll ran out); end of stream or any
    // other error means no reply can come.
    *hung_up = n > 0 && (got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR));
    return static_cast<int>(got);
}

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

}  // namespace

const Backend kTcpBackend = {tcp_open,    tcp_close,      tcp_send,        tcp_recv, tcp_wait,
                             tcp_discard, tcp_descriptor, tcp_recv_within, false};

}  // namespace uhf
