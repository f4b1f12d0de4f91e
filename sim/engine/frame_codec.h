// The reader's side of the wire: encodes command frames and cuts a byte stream
// into the three frame forms a module understands. Written apart from the host
// library on purpose, so the two ends cannot share a mistake.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace uhfsim {

constexpr uint8_t kHead0 = 0xA5;
constexpr uint8_t kHead1 = 0x5A;
constexpr size_t kCommandOverhead = 8;  // A5 5A len16 code ... check 0D 0A
constexpr size_t kMaxCommandFrame = 4096;
constexpr size_t kMaxPackagedBody = 4096;
constexpr size_t kMaxEscapedBody = 255;  // its length byte counts itself

enum class FrameKind : uint8_t {
    Command,   // A5 5A len16 code data check 0D 0A
    Packaged,  // A5 03 len16 body 03
    Plain,     // A5 02 len16 body 03
    Escaped,   // AA body 55, 0xFF escaping AA/55/FF inside
};

struct Frame {
    FrameKind kind = FrameKind::Command;
    uint8_t code = 0;           // command frames only
    std::vector<uint8_t> data;  // command data, packaged/plain body, or unescaped escaped body
};

// Builds one command frame around `data`.
std::vector<uint8_t> encode_command(uint8_t code, std::span<const uint8_t> data);

// Builds one escaped frame: AA, `body` with AA/55/FF preceded by FF, 55. The
// body starts with its length byte.
std::vector<uint8_t> encode_escaped(std::span<const uint8_t> body);

// XOR of the length bytes, the code and the data: the check byte of a command frame.
uint8_t command_check(std::span<const uint8_t> from_length_to_data_end);

// Incremental frame splitter. Junk, bad check bytes and malformed trailers are
// skipped one byte at a time, so a good frame right after a broken one is found.
class FrameParser {
public:
    using Sink = std::function<void(const Frame&)>;

    void feed(const uint8_t* bytes, size_t len, const Sink& sink);

    // A module gives up on a half-received frame after a quiet spell; the caller
    // decides when that is. Drops the stuck bytes and delivers whatever complete
    // frames they were hiding.
    void expire(const Sink& sink);

    bool has_pending() const { return !buf_.empty(); }
    uint64_t skipped_bytes() const { return skipped_; }

private:
    enum class Scan { Frame, Skip, NeedMore };
    Scan scan_at(size_t pos, Frame& out, size_t& used) const;
    Scan scan_command(size_t pos, Frame& out, size_t& used) const;
    Scan scan_packaged(size_t pos, Frame& out, size_t& used) const;
    Scan scan_escaped(size_t pos, Frame& out, size_t& used) const;
    void drain(const Sink& sink);

    std::vector<uint8_t> buf_;
    uint64_t skipped_ = 0;
};

}  // namespace uhfsim
