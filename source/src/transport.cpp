// Byte transport dispatch: send_bytes / recv_bytes and the wait used by every
// loop that expects a reply.
#include "transport.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "SerialPort.h"
#include "log.h"


namespace uhf {
namespace {

void sleep_ms(int ms) {
    if (ms > 0) usleep(static_cast<useconds_t>(ms) * 1000);
}

// Wait on fd. A hung-up peer stays "readable" forever, so after a hang-up
// sleep a little instead of returning at once: callers loop until their own
// time limit and must not spin meanwhile.
void wait_fd(int fd, int ms, bool is_socket) {
    if (ms <= 0) return;
    if (fd < 0) return sleep_ms(std::min(ms, 10));
    pollfd p{fd, POLLIN, 0};
    int r = poll(&p, 1, ms);
    if (r <= 0) return;
    bool gone = (p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    if (!gone && is_socket && (p.revents & POLLIN)) {
        char c;
        gone = recv(fd, &c, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    }
    if (gone) sleep_ms(std::min(ms, 10));
}

int tcp_send(ST_Terminal& t, const uint8_t* p, uint16_t n) {
    return static_cast<int>(send(t.my_socket, p, n, MSG_DONTWAIT | MSG_NOSIGNAL));
}
int tcp_recv(ST_Terminal& t, uint8_t* p, uint16_t n) {
    return static_cast<int>(recv(t.my_socket, p, n, MSG_DONTWAIT));
}
void tcp_wait(ST_Terminal& t, int ms) { wait_fd(t.my_socket, ms, true); }

int serial_send(ST_Terminal& t, const uint8_t* p, uint16_t n) {
    // Every command starts from a clean input queue: stale reports or late
    // replies must not be taken for this command's answer.
    clearRxFifo(t.com_handle);
    return send_serial_bytes(p, n, t.com_handle);
}
int serial_recv(ST_Terminal& t, uint8_t* p, uint16_t n) { return receive_serial_bytes(p, n, t.com_handle); }
void serial_wait(ST_Terminal& t, int ms) { wait_fd(t.com_handle, ms, false); }

int usb_send(ST_Terminal&, const uint8_t* p, uint16_t n) { return usbSend(p, n); }
int usb_recv(ST_Terminal&, uint8_t* p, uint16_t n) { return usbRecv(p, n); }
// usbRecv already waits up to 50 ms for a frame.
void usb_wait(ST_Terminal&, int) {}

const Backend kBackends[] = {
    {nullptr, nullptr, nullptr},                // TYPE_INVALID
    {serial_send, serial_recv, serial_wait},    // TYPE_SERIAL_PORT
    {tcp_send, tcp_recv, tcp_wait},             // TYPE_NETWORK
    {usb_send, usb_recv, usb_wait},             // TYPE_USB
};

}  // namespace

const Backend* backend_of(int tindex) {
    if (!slot_ok(tindex)) return nullptr;
    int type = my_terminals[tindex].device_info.trans_type;
    if (type <= TYPE_INVALID || type > TYPE_USB) return nullptr;
    return &kBackends[type];
}

void wait_readable(int tindex, int ms) {
    const Backend* b = backend_of(tindex);
    if (b == nullptr) return sleep_ms(std::min(ms, 10));
    b->wait(my_terminals[tindex], ms);
}

}  // namespace uhf

int send_bytes(const uint8_t* sendBytes, uint16_t sendLen, int tindex) {
    using namespace uhf;
    if (log_on(kLogTransfer)) {
        int type = slot_ok(tindex) ? my_terminals[tindex].device_info.trans_type : 0;
        UHF_LOG(kLogBase, "link id:%d,type:%d,send len:%d,%d,%d", tindex, type, sendLen, 0, 0);
        display_buffer_hex(sendBytes, sendBytes ? sendLen : 0);
    }
    const Backend* b = backend_of(tindex);
    if (b == nullptr || (sendBytes == nullptr && sendLen > 0)) return -1;
    return b->send(my_terminals[tindex], sendBytes, sendLen);
}

int recv_bytes(uint8_t* recvBytes, uint16_t recvLen, int tindex) {
    using namespace uhf;
    const Backend* b = backend_of(tindex);
    if (b == nullptr || (recvBytes == nullptr && recvLen > 0)) return -1;
    int n = b->recv(my_terminals[tindex], recvBytes, recvLen);
    if (n >= 1 && log_on(kLogTransfer)) {
        UHF_LOG(kLogBase, "receive len:%d", n);
        display_buffer_hex(recvBytes, static_cast<unsigned>(n));
    }
    return n;
}
