// The command frame (A5 5A len16 code data xor 0D 0A) and the request/reply
// exchange; also the escaped AA..55 frame of the amplifier status query.
#include <string.h>
#include <unistd.h>

#include "frame_size.h"
#include "globe_var.h"
#include "log.h"
#include "terminal.h"
#include "transport.h"

using namespace uhf;

namespace {

constexpr size_t kExchangeBuf = kMaxFrame;

// Frame into out (capacity cap); returns its length, 0 when it does not fit.
// The length field always counts n, even when a null data pointer leaves the
// data out of the frame.
size_t build_frame(uint8_t* out, size_t cap, uint8_t cmd, const uint8_t* data, uint16_t n, bool wide_len) {
    unsigned len_field = n + 8u;
    if (data == nullptr) n = 0;
    size_t total = static_cast<size_t>(n) + 8;
    if (total > cap) return 0;
    out[0] = 0xA5;
    out[1] = 0x5A;
    // The one-byte form writes a zero high byte and wraps the low one.
    out[2] = wide_len ? static_cast<uint8_t>(len_field >> 8) : 0;
    out[3] = static_cast<uint8_t>(len_field);
    out[4] = cmd;
    if (n > 0) memcpy(out + 5, data, n);
    uint8_t x = 0;
    for (size_t i = 2; i < 5u + n; i++) x ^= out[i];
    out[5 + n] = x;
    out[6 + n] = 0x0D;
    out[7 + n] = 0x0A;
    return total;
}

// Receive state of the exchange. One per process, like the exchange itself.
uint8_t rxsta = 0;

struct FrameParser {
    uint8_t rxor = 0, rcmd = 0;
    uint16_t rlen = 0, ridx = 0;
    uint8_t* rbuf;
    size_t rcap;

    // Feed one byte; true when it completed a frame.
    bool feed(uint8_t b) {
        switch (rxsta) {
            case 0:
                rxor = 0;
                rlen = 0;
                ridx = 0;
                rxsta = b == 0xA5 ? 1 : 0;
                return false;
            case 1: rxsta = b == 0x5A ? 2 : 0; return false;
            case 2:
                rxor ^= b;
                rlen = static_cast<uint16_t>(b << 8);
                rxsta = 3;
                return false;
            case 3:
                rxor ^= b;
                rlen = static_cast<uint16_t>(rlen + b);
                if (rlen >= 8 && rlen <= 4096) {
                    rlen -= 8;
                    rxsta = 4;
                } else {
                    rxsta = 0;
                }
                return false;
            case 4:
                rxor ^= b;
                rcmd = b;
                rxsta = rlen > 0 ? 5 : 6;
                return false;
            case 5:
                if (ridx < rlen) {
                    rxor ^= b;
                    if (ridx < rcap) rbuf[ridx] = b;
                    ridx++;
                    if (ridx == rlen) rxsta = 6;
                }
                return false;
            case 6: rxsta = b == rxor ? 7 : 0; return false;
            case 7: rxsta = b == 0x0D ? 8 : 0; return false;
            case 8: rxsta = 0; return b == 0x0A;
            default:
                rxor = 0;
                rlen = 0;
                ridx = 0;
                return false;
        }
    }
};

// Replies that a reader may still owe for exchanges that timed out on a slot.
// Frames carry no sequence number, so the next exchange with the same reply
// code takes the first matching frame for the late one and drops it. Bounds
// keep a reader that lost the request (rather than answering late) from
// costing more than two calls: at most two owed, forgotten after twice the
// time limit, and after two calls in a row that only met late replies the
// next one trusts what it gets.
struct LateReplies {
    uint8_t code = 0;
    uint8_t owed = 0;
    uint8_t streak = 0;
    long long until = 0;
};
LateReplies g_late[MAX_TERMINALS];

void note_timeout(LateReplies& l, uint8_t code, bool met_late, uint16_t timeout) {
    if (met_late && ++l.streak >= 2) {
        l = LateReplies{};
        return;
    }
    if (!met_late) l.streak = 0;
    if (l.code != code) l.owed = 0;
    l.code = code;
    if (l.owed < 2) l.owed++;
    l.until = getTimestamp() + 2LL * timeout;
}

// Whatever waits on the link before a request (a reply that came after an
// earlier command gave up) must not be taken for its answer. While a receive
// thread owns the link, the input is its reports.
void drop_stale(int tindex) {
    if (slot_ok(tindex) && !link_clean(tindex) &&
        __atomic_load_n(&my_terminals[tindex].recv_task_running, __ATOMIC_ACQUIRE) == 0)
        discard_input(tindex);
}

}  // namespace

void uhf::forget_late_replies(int tindex) {
    if (!slot_ok(tindex)) return;
    g_late[tindex] = LateReplies{};
}

int Vexa_Send(uint8_t cmd, uint8_t* sendbuf, uint8_t sendlen, int tindex) {
    uint8_t frame[255 + 8];  // the largest one-byte-length frame fits whole
    size_t n = build_frame(frame, sizeof frame, cmd, sendbuf, sendlen, false);
    int r = send_bytes(frame, static_cast<uint16_t>(n), tindex);
    // Only the low byte counts: a transport error (-1) reads as sent.
    return (r & 0xFF) != 0 ? 0 : -1;
}

int ExternalSend(uint8_t cmd, const uint8_t* sendbuf, uint16_t sendlen, uint8_t* recvbuf, uint16_t* recvlen,
                 uint16_t timeout) {
    if (recvbuf == nullptr || recvlen == nullptr) return -1;
    uint8_t frame[kExchangeBuf];
    size_t n = build_frame(frame, sizeof frame, cmd, sendbuf, sendlen, true);
    if (n == 0) return -1;  // would not fit the request buffer: nothing sent
    int tindex = cur_index;
    drop_stale(tindex);
    if (send_bytes(frame, static_cast<uint16_t>(n), tindex) < 1) return -1;

    static_assert(kExchangeBuf <= 0xFFFF);
    uint8_t buf[kExchangeBuf];
    uint8_t rbuf[kExchangeBuf];
    int ret = -1;
    size_t iLocation = 0, parseIndex = 0;
    long long start = getTimestamp();
    LateReplies* late = slot_ok(tindex) ? &g_late[tindex] : nullptr;
    if (late != nullptr && late->owed > 0 && start > late->until) *late = LateReplies{};
    bool met_late = false;
    do {
        if (iLocation > 1024) {
            // Too much without an answer: start over, even mid-frame.
            iLocation = 0;
            parseIndex = 0;
        }
        // One read that waits for the reply: on a healthy TCP link the
        // exchange is a send and a recv.
        long long left = timeout - (getTimestamp() - start);
        bool hung_up = false;
        int got = recv_bytes_within(buf + iLocation, static_cast<uint16_t>(kExchangeBuf - iLocation), tindex,
                                    left > 0 ? static_cast<int>(left) : 0, &hung_up);
        if (got > 0) {
            rxsta = 0;
            iLocation += static_cast<size_t>(got);
            FrameParser p{0, 0, 0, 0, rbuf, sizeof rbuf};
            // Re-parse the whole unconsumed part: a frame split across reads
            // is found once its last byte is in.
            for (size_t i = parseIndex; i < iLocation; i++) {
                if (!p.feed(buf[i])) continue;
                parseIndex = i + 1;
                if (static_cast<int>(p.rcmd) == cmd + 1) {
                    if (late != nullptr && late->owed > 0 && late->code == p.rcmd) {
                        late->owed--;
                        met_late = true;
                        UHF_LOG(kLogTransfer, "link id:%d,late reply 0x%02X dropped", tindex, p.rcmd);
                        continue;
                    }
                    if (late != nullptr) *late = LateReplies{};
                    if (i + 1 == iLocation) set_link_clean(tindex);
                    *recvlen = p.rlen;
                    memcpy(recvbuf, rbuf, p.rlen);
                    return 0;
                }
                ret = -4;
            }
        } else if (hung_up) {
            // No reply can come, so fail now rather than at the time limit.
            UHF_LOG(kLogTransfer, "link id:%d,peer hung up", tindex);
            return ret;
        }
    } while (getTimestamp() - start < static_cast<long long>(timeout));
    // Only silence suggests a reply still on its way: a reader that answered
    // with another code has dealt with the request.
    if (late != nullptr && ret == -1) note_timeout(*late, static_cast<uint8_t>(cmd + 1), met_late, timeout);
    return ret;
}

int Vexa_SendAndRecv(uint8_t cmd, const uint8_t* sendbuf, uint16_t sendlen, uint8_t* recvbuf, uint16_t* recvlen) {
    return ExternalSend(cmd, sendbuf, sendlen, recvbuf, recvlen, 1500);
}

uint8_t SendCommand(uint8_t* SendCommand, uint16_t SendNum) {
    if (SendCommand == nullptr || SendNum < 2) return 0;
    uint8_t out[500];
    size_t n = 0;
    out[n++] = SendCommand[0];
    for (uint16_t i = 1; i + 1 < SendNum; i++) {
        uint8_t b = SendCommand[i];
        bool esc = b == 0xAA || b == 0x55 || b == 0xFF;
        if (n + (esc ? 2 : 1) + 1 > sizeof out) return 0;  // would not fit: send nothing
        if (esc) out[n++] = 0xFF;
        out[n++] = b;
    }
    out[n++] = SendCommand[SendNum - 1];
    drop_stale(cur_index);
    return send_bytes(out, static_cast<uint16_t>(n), cur_index) != 0 ? 1 : 0;
}

uint8_t ReceiveCommand(uint8_t* ReceiveCommand, uint16_t* ReceiveNum, uint16_t waittime) {
    (void)waittime;  // the collection has its own fixed bound of about 5 s
    if (ReceiveCommand == nullptr || ReceiveNum == nullptr) return 0;
    // No open link, no reply: do not wait out the bound for one.
    if (backend_of(cur_index) == nullptr) return 0;
    uint8_t collected[512];
    size_t total = 0;
    poll_collect([](uint8_t* p, uint16_t n) { return recv_bytes(p, n, cur_index); },
                 [&](const uint8_t* p, size_t n) {
                     for (size_t i = 0; i < n; i++) {
                         // A reply longer than the buffer keeps overwriting its last byte.
                         if (total < sizeof collected)
                             collected[total++] = p[i];
                         else
                             collected[sizeof collected - 1] = p[i];
                     }
                     return true;
                 },
                 10000);
    if (total == 0) return 0;
    size_t out = 0;
    for (size_t i = 0; i < total; i++) {
        uint8_t b = collected[i];
        if (b == 0xFF && i + 1 < total &&
            (collected[i + 1] == 0xAA || collected[i + 1] == 0x55 || collected[i + 1] == 0xFF))
            b = collected[++i];
        ReceiveCommand[out++] = b;
    }
    *ReceiveNum = static_cast<uint16_t>(out);
    return 1;
}
