// Pieces shared by the tag-access families (single-shot inventory, memory,
// lock/kill/security, QT views): argument checks, the password-and-filter
// head of every request, reply status tests and the single-tag step.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "frame_size.h"
#include "uhf/command.h"

namespace uhf {

// Most data a command frame can carry; the buffer of commands that name no
// smaller one.
constexpr size_t kFrameData = kMaxFrame - kFrameOverhead;

// A wider integer argument that the wire carries in 16 bits. Anything else
// would be cut silently, so it is refused as bad input.
constexpr bool fits16(long long v) { return v >= 0 && v <= 0xFFFF; }

// Starts a tag-access request with its head: the 4-byte access password,
// then the tag filter block. False when the filter's address or length does
// not fit its 16-bit field; a null password (or mask with a non-zero
// length) poisons the request instead.
inline bool start_access(Request& r, const uint8_t* pwd, unsigned bank, long long bit_addr, long long bit_len,
                         const uint8_t* mask) {
    if (!fits16(bit_addr) || !fits16(bit_len)) return false;
    r.bytes(pwd, 4).filter(bank, static_cast<unsigned>(bit_addr), static_cast<unsigned>(bit_len), mask);
    return true;
}

// Status byte 0x01 (the reader accepted the command).
inline bool accepted(const Reply& r) { return r.is(0, 0x01); }
// Status 0x01 and tag error 0x00 (the tag did what was asked).
inline bool tag_done(const Reply& r) { return r.is(0, 0x01) && r.is(1, 0x00); }

// One exchange that must arrive and pass check; any failure is -1.
template <typename Check>
int exchange_checked(uint8_t cmd, const Request& req, Reply& reply, Check check,
                     uint16_t timeout_ms = kDefaultTimeoutMs) {
    if (transact(cmd, req, reply, timeout_ms) != 0) return -1;
    if (check(reply)) return 0;
    UHF_LOG(kLogFunction, "cmd 0x%02X: refused (status 0x%02X, tag error 0x%02X)", cmd, reply[0], reply[1]);
    return -1;
}

// Copies `words` 16-bit words from reply byte 4 on (after status, tag error
// and a count); false when the reply does not hold them all.
inline bool copy_words(const Reply& r, size_t words, uint8_t* dst) { return r.has(4) && r.copy(dst, 4, words * 2); }

// Bytes in a UII (PC word and EPC) by its PC's length field.
inline size_t uii_length(uint8_t pc_high) { return ((pc_high >> 3) + 1u) * 2u; }

// Filter that singles a tag out by its UII: EPC bank from bit 16 (past the
// stored CRC), the UII's length in bits, the UII as mask.
inline Request& uii_filter(Request& r, const uint8_t* uii, size_t n) {
    return r.filter(1, 0x10, static_cast<unsigned>(n * 8), uii);
}

// The single-tag inventory (0x80 00 64) into reply; 0 when a reply came.
int inventory_once(Reply& reply);

}  // namespace uhf
