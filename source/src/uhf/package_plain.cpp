// Plain-frame calls: fixed bodies sent in A5 02 frames on the link and, for
// two of them, bare on the auxiliary serial device uhf_finger_fd.
#include <poll.h>
#include <unistd.h>

#include "UHF.h"
#include "log.h"
#include "uhf/package.h"

using namespace uhf;

int uhf_finger_fd = -1;

namespace {

constexpr useconds_t kPlainPause = 10000;
constexpr useconds_t kAfterFrame = 50000;

// Send a body in a plain frame on slot tindex; true when the transport took it.
bool send_plain(const uint8_t* body, uint16_t n, int tindex) {
    RequestBuf<64> frame;
    build_plain(frame, body, n);
    return frame.ok() && send_bytes(frame.data(), static_cast<uint16_t>(frame.size()), tindex) >= 1;
}

// Collect a reply from the selected link, 10 ms between polls.
void collect_reply(Reply& out) {
    *out.raw_len() = static_cast<uint16_t>(collect([](uint8_t* p, uint16_t n) { return recv_bytes(p, n, cur_index); },
                                                   out.raw(), kCollectMax, kPlainPause));
}

// The reply to a body with command cmd: A5 02, body byte 0 = 01, the
// command + 1, then the two given bytes at frame offsets 8 and 9.
bool plain_reply_ok(const Reply& r, uint8_t reply_cmd, uint8_t b8, uint8_t b9) {
    return r.is(0, 0xA5) && r.is(1, 0x02) && r.is(4, 0x01) && r.is(5, reply_cmd) && r.is(8, b8) && r.is(9, b9);
}

// A read of the auxiliary device that never blocks, whatever its mode.
int read_finger(uint8_t* p, uint16_t n) {
    pollfd pf{uhf_finger_fd, POLLIN, 0};
    if (poll(&pf, 1, 0) <= 0) return 0;
    return receive_serial_bytes(p, n, uhf_finger_fd);
}

}  // namespace

int set_config(uint8_t* buf) {
    UHF_REFUSE_IF(buf == nullptr);
    const uint8_t body[11] = {0x01, 0x2A, 0x00, 0x0B, 0x00, 0x01, 0x00, 0x33, 0x00, buf[0], buf[1]};
    // Only a write of nothing stops here: an error result counts as written.
    if (send_serial_bytes(body, sizeof body, uhf_finger_fd) == 0) return -1;
    flush_selected_queues();
    if (!send_plain(body, sizeof body, cur_index)) return -1;
    Reply reply;
    collect_reply(reply);
    return plain_reply_ok(reply, 0x2B, 0x00, 0x01) ? 0 : -1;
}

int set_inventory_sper(uint8_t flag) {
    const uint8_t body[45] = {0x01, 0x14,
                              0x00, 0x2D,
                              0x00, 0x00,
                              0x02, 0x12,
                              0x00, 0x27,
                              0x01, 0x02,
                              0x13, 0x00,
                              0x22, 0x00,
                              0x01, 0x01,
                              0x02, 0x14,
                              0x00, 0x05,
                              0x01, 0x02,
                              0x16, 0x00,
                              0x09, 0x01,
                              0x00, 0x00,
                              0x00, 0xC8,
                              0x02, 0x8A,
                              0x00, 0x0D,
                              0x00, uint8_t(flag ? 0x01 : 0x00),
                              0x00, 0x00,
                              0x65, 0x00,
                              0x00, 0x00,
                              0x80};
    flush_selected_queues();
    // Written to the first link but answered on the selected one, as readers
    // wired for this call expect.
    if (!send_plain(body, sizeof body, 0)) return -1;
    Reply reply;
    collect_reply(reply);
    return plain_reply_ok(reply, 0x15, 0x00, 0x00) ? 0 : -1;
}

int set_inventory_fixed(uint16_t freq) {
    const uint8_t bodies[3][18] = {
        {0x01, 0xFE, 0x00, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x0A, 0x01, uint8_t(freq),
         uint8_t(freq >> 8), 0x00, 0x00},
        {0x01, 0xFE, 0x00, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x08, 0x01, 0x01, 0x01, 0x00, 0x00},
        {0x01, 0xFE, 0x00, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0xF0, 0x27, 0x00, 0x00, 0x00},
    };
    for (const auto& body : bodies) {
        flush_selected_queues();
        if (!send_plain(body, sizeof body, cur_index)) return -1;
        usleep(kAfterFrame);
    }
    return 0;
}

int event_report(void) {
    const uint8_t body[26] = {0x01, 0x4C, 0x00, 0x1A, 0x00, 0x00, 0x02, 0x5B, 0x00, 0x14, 0x00, 0x32, 0x00,
                              0x00, 0x00, 0x00, 0x02, 0x9A, 0xEE, 0x60, 0x00, 0x4E, 0x00, 0x00, 0x50, 0x00};
    if (send_serial_bytes(body, sizeof body, uhf_finger_fd) == 0) return -1;
    usleep(kAfterFrame);
    // Whatever the device answers is drained, not examined.
    uint8_t drained[kCollectMax];
    collect(read_finger, drained, sizeof drained, kPlainPause);
    return 0;
}
