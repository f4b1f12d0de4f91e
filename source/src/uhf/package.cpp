// The package frame: Common_Package_Send and Common_Package_Rev, and the
// pieces they share with the configuration and plain-frame calls.
#include "uhf/package.h"
#include "log.h"

#include <string.h>

#include "UHF.h"
#include "transport.h"

namespace uhf {

namespace {

constexpr size_t kSendBuf = 1024;
constexpr useconds_t kPackagePause = 2000;
constexpr uint8_t kStart = 0xA5, kClassPackage = 0x03, kClassPlain = 0x02, kEnd = 0x03;
constexpr uint8_t kReplyHead = 0xAB;

uint8_t xor_from(const Request& r, size_t from) {
    uint8_t x = 0;
    for (size_t i = from; i < r.size(); i++) x ^= r.data()[i];
    return x;
}

// Collect one reply from the selected link, 2 ms between polls.
size_t collect_selected(uint8_t* out, size_t cap) {
    return collect([](uint8_t* p, uint16_t n) { return recv_bytes(p, n, cur_index); }, out, cap, kPackagePause);
}

}  // namespace

void build_package(Request& out, uint8_t head, uint8_t type, uint8_t version, uint16_t dlen, const uint8_t* dbuf) {
    out.u8(kStart).u8(kClassPackage).u16(dlen + 5u);
    // The inner length is little-endian, unlike the outer one.
    out.u8(head).u8(static_cast<unsigned>(type) * 16u | version).u8(dlen).u8(dlen >> 8);
    if (dbuf != nullptr && dlen != 0) out.bytes(dbuf, dlen);
    // The check starts at the type byte: head and outer header are not in it.
    out.u8(xor_from(out, 5)).u8(kEnd);
}

void build_plain(Request& out, const uint8_t* body, uint16_t n) {
    out.u8(kStart).u8(kClassPlain).u16(n).bytes(body, n).u8(kEnd);
}

int parse_frame(const uint8_t* f, size_t total, Package* p) {
    if (f == nullptr || total < 5 || f[0] != kStart) return -1;
    const uint8_t cls = f[1];
    if (cls != kClassPackage && cls != kClassPlain) return -1;
    const size_t L = static_cast<size_t>(f[2]) << 8 | f[3];
    if (total < L + 5) return -1;
    if (f[L + 4] != kEnd) return -2;
    if (cls == kClassPlain) {
        // Body bytes 0 and 1, where the body has them.
        bool ack = (L >= 1 && f[4] == 0x01) || (L >= 2 && f[5] == 0x4C);
        return ack ? 1 : -3;
    }
    if (f[4] != kReplyHead) return -3;
    if (L < 4) return -1;
    const uint16_t dlen = static_cast<uint16_t>(f[6] | f[7] << 8);
    // The data must lie inside the body; the check byte is never verified.
    if (dlen > L - 4) return -1;
    if (p != nullptr) *p = Package{static_cast<uint8_t>(f[5] >> 4), dlen, f + 8};
    return 0;
}

int recv_package(uint8_t* type, Reply& out, size_t cap) {
    uint8_t frame[kCollectMax];
    size_t total = collect_selected(frame, sizeof frame);
    Package pkg;
    int r = parse_frame(frame, total, &pkg);
    if (r != 0) return r;
    if (pkg.len > cap || pkg.len > Reply::kCapacity) return -1;
    *type = pkg.type;
    memcpy(out.raw(), pkg.data, pkg.len);
    *out.raw_len() = pkg.len;
    return 0;
}

void flush_selected_queues() { discard_input(cur_index, true); }

}  // namespace uhf

using namespace uhf;

int Common_Package_Send(uint8_t head, uint8_t type, uint8_t version, uint16_t dlen, uint8_t* dbuf) {
    RequestBuf<kSendBuf> frame;
    build_package(frame, head, type, version, dlen, dbuf);
    UHF_REFUSE_IF(!frame.ok());
    // Any non-zero transport result, an error included, counts as sent.
    return send_bytes(frame.data(), static_cast<uint16_t>(frame.size()), cur_index) != 0 ? 0 : -1;
}

int Common_Package_Rev(uint8_t* type, uint16_t* datalen, uint8_t* databuf) {
    UHF_REFUSE_IF(type == nullptr || datalen == nullptr || databuf == nullptr);
    Reply reply;
    int r = recv_package(type, reply, kCollectMax);
    if (r != 0) return r;
    *datalen = reply.size();
    reply.copy(databuf, 0, reply.size());
    return 0;
}
