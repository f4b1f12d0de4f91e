#include "engine/frame_codec.h"

namespace uhfsim {

uint8_t command_check(std::span<const uint8_t> bytes) {
    uint8_t x = 0;
    for (uint8_t b : bytes) x ^= b;
    return x;
}

std::vector<uint8_t> encode_command(uint8_t code, std::span<const uint8_t> data) {
    const size_t total = data.size() + kCommandOverhead;
    std::vector<uint8_t> f;
    f.reserve(total);
    f.push_back(kHead0);
    f.push_back(kHead1);
    f.push_back(static_cast<uint8_t>(total >> 8));
    f.push_back(static_cast<uint8_t>(total & 0xFF));
    f.push_back(code);
    f.insert(f.end(), data.begin(), data.end());
    f.push_back(command_check(std::span(f).subspan(2)));
    f.push_back(0x0D);
    f.push_back(0x0A);
    return f;
}

std::vector<uint8_t> encode_escaped(std::span<const uint8_t> body) {
    std::vector<uint8_t> f{0xAA};
    for (uint8_t b : body) {
        if (b == 0xAA || b == 0x55 || b == 0xFF) f.push_back(0xFF);
        f.push_back(b);
    }
    f.push_back(0x55);
    return f;
}

FrameParser::Scan FrameParser::scan_command(size_t pos, Frame& out, size_t& used) const {
    const size_t avail = buf_.size() - pos;
    if (avail < 4) return Scan::NeedMore;
    const size_t len = (size_t{buf_[pos + 2]} << 8) | buf_[pos + 3];
    if (len < kCommandOverhead || len > kMaxCommandFrame) return Scan::Skip;
    if (avail < len) return Scan::NeedMore;
    const uint8_t* f = buf_.data() + pos;
    const size_t n = len - kCommandOverhead;
    if (command_check(std::span(f + 2, n + 3)) != f[5 + n]) return Scan::Skip;
    if (f[6 + n] != 0x0D || f[7 + n] != 0x0A) return Scan::Skip;
    out.kind = FrameKind::Command;
    out.code = f[4];
    out.data.assign(f + 5, f + 5 + n);
    used = len;
    return Scan::Frame;
}

FrameParser::Scan FrameParser::scan_packaged(size_t pos, Frame& out, size_t& used) const {
    const size_t avail = buf_.size() - pos;
    if (avail < 4) return Scan::NeedMore;
    const size_t body = (size_t{buf_[pos + 2]} << 8) | buf_[pos + 3];
    if (body > kMaxPackagedBody) return Scan::Skip;
    if (avail < body + 5) return Scan::NeedMore;
    const uint8_t* f = buf_.data() + pos;
    if (f[4 + body] != 0x03) return Scan::Skip;
    out.kind = f[1] == 0x03 ? FrameKind::Packaged : FrameKind::Plain;
    out.code = 0;
    out.data.assign(f + 4, f + 4 + body);
    used = body + 5;
    return Scan::Frame;
}

// The first unescaped byte is a length counting itself, which bounds the frame
// and lets a stray 0xAA be rejected instead of swallowing the stream.
FrameParser::Scan FrameParser::scan_escaped(size_t pos, Frame& out, size_t& used) const {
    std::vector<uint8_t> body;
    size_t i = pos + 1;
    size_t want = 0;
    while (i < buf_.size()) {
        uint8_t b = buf_[i];
        if (b == 0xFF) {
            if (i + 1 >= buf_.size()) return Scan::NeedMore;
            b = buf_[i + 1];
            if (b != 0xAA && b != 0x55 && b != 0xFF) return Scan::Skip;
            i += 2;
        } else if (b == 0xAA || b == 0x55) {
            if (b == 0x55 && want != 0 && body.size() == want) {
                out.kind = FrameKind::Escaped;
                out.code = body.size() > 1 ? body[1] : 0;
                out.data = std::move(body);
                used = i + 1 - pos;
                return Scan::Frame;
            }
            return Scan::Skip;
        } else {
            i += 1;
        }
        if (body.size() == want && want != 0) return Scan::Skip;  // overlong, no 0x55
        body.push_back(b);
        if (body.size() == 1) {
            want = b;
            if (want < 2) return Scan::Skip;  // must hold at least itself and a code
        }
    }
    return Scan::NeedMore;
}

FrameParser::Scan FrameParser::scan_at(size_t pos, Frame& out, size_t& used) const {
    const uint8_t b = buf_[pos];
    if (b == 0xAA) return scan_escaped(pos, out, used);
    if (b != kHead0) return Scan::Skip;
    if (pos + 1 >= buf_.size()) return Scan::NeedMore;
    switch (buf_[pos + 1]) {
        case kHead1: return scan_command(pos, out, used);
        case 0x03:
        case 0x02: return scan_packaged(pos, out, used);
        default: return Scan::Skip;
    }
}

void FrameParser::drain(const Sink& sink) {
    size_t pos = 0;
    Frame frame;
    while (pos < buf_.size()) {
        size_t used = 0;
        const Scan s = scan_at(pos, frame, used);
        if (s == Scan::NeedMore) break;
        if (s == Scan::Skip) {
            ++skipped_;
            ++pos;
            continue;
        }
        pos += used;
        sink(frame);
    }
    buf_.erase(buf_.begin(), buf_.begin() + static_cast<std::ptrdiff_t>(pos));
}

void FrameParser::feed(const uint8_t* bytes, size_t len, const Sink& sink) {
    if (bytes == nullptr || len == 0) return;
    buf_.insert(buf_.end(), bytes, bytes + len);
    drain(sink);
}

void FrameParser::expire(const Sink& sink) {
    // Every byte held arrived before the quiet spell, so anything still
    // incomplete after dropping its head byte is stale too.
    while (!buf_.empty()) {
        buf_.erase(buf_.begin());
        ++skipped_;
        drain(sink);
    }
}

}  // namespace uhfsim
