// The exchange's reply state machine: the bytes are what the reader sends
// back on a real loopback link; ExternalSend reads and parses them once.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

#include "UHF.h"
#include "transport.h"

namespace {
int g_peer = -1;

void connect_once() {
    int ls = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t al = sizeof a;
    bind(ls, reinterpret_cast<sockaddr*>(&a), sizeof a);
    listen(ls, 1);
    getsockname(ls, reinterpret_cast<sockaddr*>(&a), &al);
    TCPConnect("127.0.0.1", ntohs(a.sin_port));
    g_peer = accept(ls, nullptr, nullptr);
    close(ls);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (g_peer < 0) connect_once();
    if (size == 0 || size > 4000) return 0;
    if (send(g_peer, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    usleep(50);                      // loopback delivery
    uhf::set_link_clean(cur_index);  // keep the bytes: they are the reply
    uint8_t out[2048];
    uint16_t len = 0;
    ExternalSend(0x10, nullptr, 0, out, &len, 0);
    uint8_t sink[4096];
    while (recv(g_peer, sink, sizeof sink, MSG_DONTWAIT) > 0) {
    }
    uhf::discard_input(cur_index);
    return 0;
}
