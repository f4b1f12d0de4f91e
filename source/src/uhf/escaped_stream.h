// The detection thread's parser for the escaped AA..55 stream: unescapes
// each read, stores the complete tag frames in the frame stack and keeps a
// short carry-over for a frame cut by the end of a read (non-CRC mode only).
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace uhf {

class EscapedStream {
public:
    static constexpr size_t kReadMax = 500;  // bytes taken per read
    static constexpr size_t kCarryMax = 50;  // carry-over kept between reads

    // One read's bytes (only the first kReadMax count). crc_mode accepts
    // commands 0x91/0xA6, otherwise 0x11/0x26.
    void feed(const uint8_t* in, size_t n, bool crc_mode);
    void reset() {
        carry_len_ = 0;
        escape_ = false;
    }

private:
    void scan(const uint8_t* buf, size_t total, bool crc_mode);

    uint8_t carry_[kCarryMax] = {};
    size_t carry_len_ = 0;
    bool escape_ = false;  // a read ended on an escape byte
};

}  // namespace uhf
