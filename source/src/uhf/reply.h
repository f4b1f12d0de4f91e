// Bounds-checked view of a reply's data. Reads past the end yield 0 and
// copies that would run past it are refused, so no reply length can make a
// command read beyond what arrived.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "frame_size.h"

namespace uhf {

class Reply {
public:
    // Space for the largest data ExternalSend can deliver.
    static constexpr size_t kCapacity = kMaxFrame;

    uint16_t size() const { return len_; }
    bool has(size_t n) const { return len_ >= n; }
    uint8_t operator[](size_t i) const { return i < len_ ? data_[i] : 0; }
    uint16_t be16(size_t i) const { return static_cast<uint16_t>((*this)[i] << 8 | (*this)[i + 1]); }
    uint32_t be32(size_t i) const { return static_cast<uint32_t>(be16(i)) << 16 | be16(i + 2); }
    // Byte i exists and equals v.
    bool is(size_t i, uint8_t v) const { return i < len_ && data_[i] == v; }
    // Copy n bytes from offset off; false (and nothing copied) when they are
    // not all there or dst is null.
    bool copy(uint8_t* dst, size_t off, size_t n) const {
        if (n == 0) return true;
        if (dst == nullptr || off > len_ || n > len_ - off) return false;
        memcpy(dst, data_ + off, n);
        return true;
    }
    const uint8_t* data() const { return data_; }

    uint8_t* raw() { return data_; }
    uint16_t* raw_len() { return &len_; }

private:
    uint8_t data_[kCapacity] = {};
    uint16_t len_ = 0;
};

}  // namespace uhf
