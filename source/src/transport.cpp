// Byte transport dispatch: send_bytes / recv_bytes, the waiting read of the
// exchange, and the discard of stale input.
#include "transport.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "log.h"

namespace uhf {
namespace {

const Backend* const kBackends[] = {
    nullptr,          // TYPE_INVALID
    &kSerialBackend,  // TYPE_SERIAL_PORT
    &kTcpBackend,     // TYPE_NETWORK
    &kUsbBackend,     // TYPE_USB
};

// Written by the application's thread and by a USB receive thread's polls.
bool g_clean[MAX_TERMINALS];

void nap(int ms) {
    if (ms > 0) usleep(static_cast<useconds_t>(std::min(ms, 10)) * 1000);
}

}  // namespace

bool link_clean(int tindex) { return slot_ok(tindex) && __atomic_load_n(&g_clean[tindex], __ATOMIC_RELAXED); }
void set_link_clean(int tindex) {
    if (slot_ok(tindex)) __atomic_store_n(&g_clean[tindex], true, __ATOMIC_RELAXED);
}

int wait_fd(int fd, int ms) {
    if (ms <= 0) return 0;
    if (fd < 0) {
        nap(ms);
        return 0;
    }
    // A hung-up peer reports readable: the caller's read returns 0 (or an
    // error) and the caller fails at once instead of waiting out its limit.
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, ms) > 0 ? 1 : 0;
}

const Backend* backend_of(int tindex) {
    if (!slot_ok(tindex)) return nullptr;
    int type = my_terminals[tindex].device_info.trans_type;
    if (type <= TYPE_INVALID || type > TYPE_USB) return nullptr;
    return kBackends[type];
}

namespace {

int wait_then_recv(const Backend& b, ST_Terminal& t, uint8_t* p, uint16_t n, int ms, bool* hung_up) {
    int ready = ms > 0 ? b.wait(t, ms) : 0;
    int got = b.recv(t, p, n);
    // Readable yet nothing to read: the peer hung up.
    *hung_up = ready && got <= 0 && (got == 0 || (errno != EAGAIN && errno != EINTR));
    return got;
}

void log_received(const uint8_t* p, int n) {
    if (n >= 1 && log_on(kLogTransfer)) {
        UHF_LOG(kLogBase, "receive len:%d", n);
        display_buffer_hex(p, static_cast<unsigned>(n));
    }
}

}  // namespace

int recv_bytes_within(uint8_t* p, uint16_t n, int tindex, int ms, bool* hung_up) {
    *hung_up = false;
    const Backend* b = backend_of(tindex);
    if (b == nullptr) {
        nap(ms);
        return -1;
    }
    ST_Terminal& t = my_terminals[tindex];
    int got =
        b->recv_within != nullptr ? b->recv_within(t, p, n, ms, hung_up) : wait_then_recv(*b, t, p, n, ms, hung_up);
    log_received(p, got);
    return got;
}

void discard_input(int tindex, bool output) {
    const Backend* b = backend_of(tindex);
    if (b == nullptr) return;
    int n = b->discard(my_terminals[tindex], output);
    if (n > 0) UHF_LOG(kLogTransfer, "link id:%d,discarded %d stale bytes", tindex, n);
}

}  // namespace uhf

using namespace uhf;

int send_bytes(const uint8_t* sendBytes, uint16_t sendLen, int tindex) {
    if (log_on(kLogTransfer)) {
        int type = slot_ok(tindex) ? my_terminals[tindex].device_info.trans_type : 0;
        UHF_LOG(kLogBase, "link id:%d,type:%d,send len:%d,%d,%d", tindex, type, sendLen, 0, 0);
        display_buffer_hex(sendBytes, sendBytes ? sendLen : 0);
    }
    const Backend* b = backend_of(tindex);
    if (b == nullptr || (sendBytes == nullptr && sendLen > 0)) return -1;
    __atomic_store_n(&g_clean[tindex], false, __ATOMIC_RELAXED);
    return b->send(my_terminals[tindex], sendBytes, sendLen);
}

int recv_bytes(uint8_t* recvBytes, uint16_t recvLen, int tindex) {
    const Backend* b = backend_of(tindex);
    if (b == nullptr || (recvBytes == nullptr && recvLen > 0)) return -1;
    int n = b->recv(my_terminals[tindex], recvBytes, recvLen);
    log_received(recvBytes, n);
    return n;
}
