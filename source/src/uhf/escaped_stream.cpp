#include "uhf/escaped_stream.h"

#include <string.h>

#include "UHF.h"

namespace uhf {

void EscapedStream::feed(const uint8_t* in, size_t n, bool crc_mode) {
    if (in == nullptr || n == 0) return;
    if (n > kReadMax) n = kReadMax;
    uint8_t buf[kCarryMax + kReadMax];
    size_t total = carry_len_;
    memcpy(buf, carry_, carry_len_);
    for (size_t i = 0; i < n; i++) {
        // 0xFF escapes the next byte, whatever it is; the escape may be the
        // last byte of one read and its byte the first of the next.
        if (!escape_ && in[i] == 0xFF) {
            escape_ = true;
            continue;
        }
        escape_ = false;
        buf[total++] = in[i];
    }
    carry_len_ = 0;
    scan(buf, total, crc_mode);
}

void EscapedStream::scan(const uint8_t* buf, size_t total, bool crc_mode) {
    auto at = [&](size_t k) -> uint8_t { return k < total ? buf[k] : 0; };
    for (size_t i = 0; i < total; i++) {
        if (buf[i] != 0xAA) continue;
        const size_t flen = at(i + 1);
        const uint8_t cmd = at(i + 2);
        const uint8_t status = at(i + 3);
        const bool tag_kind = crc_mode ? (cmd == 0x91 || cmd == 0xA6) : (cmd == 0x11 || cmd == 0x26);
        // The closing byte must lie inside what arrived: a frame cut short
        // is never stored.
        const bool whole = tag_kind && status == 0 && i + flen + 1 < total && buf[i + flen + 1] == 0x55;
        // A frame longer than a stack slot is refused (its length would also
        // wrap the slot's 8-bit length).
        if (whole && flen + 2 <= sizeof UhfStackBuf[0].buf)
            Insert_UhfStack(const_cast<uint8_t*>(buf + i), static_cast<uint8_t>(flen + 2));
        if (crc_mode || whole) {
            i += flen + 1;
            continue;
        }
        // Keep the rest for the next read; a later 0xAA replaces it. What
        // does not fit the carry-over cannot be completed and is dropped.
        const size_t rest = total - i;
        carry_len_ = rest <= kCarryMax ? rest : 0;
        memcpy(carry_, buf + i, carry_len_);
    }
}

}  // namespace uhf
