// The virtual reader engine on a test bench: frames in, replies cut apart,
// a clock the test owns.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "bytes_ops.h"
#include "engine/virtual_reader.h"

namespace simtest {

using Bytes = std::vector<uint8_t>;

using uhftest::frame;

struct Reply {
    uint8_t code;
    Bytes data;
    bool operator==(const Reply&) const = default;
};

// Cuts a stream of well-formed command frames apart; returns nullopt if any
// frame is malformed or bytes are left over.
inline std::optional<std::vector<Reply>> unframe(const Bytes& s) {
    std::vector<Reply> out;
    size_t i = 0;
    while (i < s.size()) {
        if (s.size() - i < 8 || s[i] != 0xA5 || s[i + 1] != 0x5A) return std::nullopt;
        const size_t n = size_t{s[i + 2]} << 8 | s[i + 3];
        if (n < 8 || s.size() - i < n) return std::nullopt;
        uint8_t x = 0;
        for (size_t k = i + 2; k < i + n - 3; ++k) x ^= s[k];
        if (x != s[i + n - 3] || s[i + n - 2] != 0x0D || s[i + n - 1] != 0x0A) return std::nullopt;
        out.push_back(
            Reply{s[i + 4], Bytes(s.begin() + static_cast<long>(i) + 5, s.begin() + static_cast<long>(i + n) - 3)});
        i += n;
    }
    return out;
}

// An engine whose output lands in a byte vector, with a test-owned clock.
struct Bench {
    explicit Bench(uhfsim::TagField field = {}, uhfsim::EngineOptions opts = {})
        : Bench(std::make_shared<uhfsim::Radio>(std::move(field), opts.state, opts.seed), opts) {}
    // Another link to the same reader.
    Bench(std::shared_ptr<uhfsim::Radio> radio, uhfsim::EngineOptions opts)
        : reader(std::move(radio), std::move(opts)) {
        reader.set_output([this](const uint8_t* p, size_t n) { out.insert(out.end(), p, p + n); });
    }
    void send(const Bytes& b) { reader.feed(b.data(), b.size(), now); }
    void advance(std::chrono::nanoseconds d) {
        now += d;
        reader.pump(now);
    }
    std::vector<Reply> take() {
        auto r = unframe(out);
        out.clear();
        return r ? *r : std::vector<Reply>{Reply{0xFF, {0xDE, 0xAD}}};  // malformed output shows up as a mismatch
    }

    uhfsim::VirtualReader reader;
    uhfsim::TimePoint now{std::chrono::seconds(1000)};
    Bytes out;
};

// Reads without RSSI jitter, so report bytes can be written down.
inline uhfsim::EngineOptions quiet(uint32_t rate = 300) {
    uhfsim::EngineOptions o;
    o.rssi_jitter = 0;
    o.read_rate = rate;
    return o;
}

// Sends every request, and returns the replies to the last one only.
inline std::vector<Reply> last_replies(Bench& b, const std::vector<Bytes>& requests) {
    for (const auto& q : requests) {
        b.out.clear();
        b.send(q);
    }
    return b.take();
}

}  // namespace simtest
