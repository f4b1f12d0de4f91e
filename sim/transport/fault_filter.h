// Misbehaviour on purpose, between the engine and the wire: the reader's whole
// reply frames go in, the writes a transport should make come out (possibly
// late, missing, corrupted, in single bytes, with junk between, or not at all).
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "engine/rng.h"
#include "engine/virtual_reader.h"

namespace uhfsim {

struct FaultOptions {
    uint32_t delay_ms = 0;           // every reply leaves this much later
    double drop_ratio = 0.0;         // fraction of replies never sent
    double corrupt_ratio = 0.0;      // fraction of replies with a wrong check byte
    bool split_bytes = false;        // one write per byte
    size_t garbage_bytes = 0;        // junk written before each reply (never 0xA5 or 0xAA)
    uint64_t close_after = 0;        // hang up after this many replies; 0 = never
    std::set<uint8_t> ignore_codes;  // requests the reader takes in and never answers
    uint64_t seed = 1;

    bool any_wire_fault() const {
        return delay_ms || drop_ratio > 0 || corrupt_ratio > 0 || split_bytes || garbage_bytes || close_after;
    }
};

struct FaultStats {
    uint64_t frames_in = 0;
    uint64_t dropped = 0;
    uint64_t corrupted = 0;
    uint64_t frames_out = 0;
};

class FaultFilter {
public:
    using Write = std::function<void(const uint8_t*, size_t)>;

    explicit FaultFilter(FaultOptions opts = {});

    void set_options(const FaultOptions& opts);
    const FaultOptions& options() const { return opts_; }

    // One whole reply frame from the engine.
    void push(const uint8_t* frame, size_t len, TimePoint now);
    // Hands every write due by `now` to `write`, in order.
    void drain(TimePoint now, const Write& write);
    std::optional<TimePoint> next_deadline() const;

    // True once close_after replies went out: the transport should hang up.
    bool closed() const { return closed_; }
    const FaultStats& stats() const { return stats_; }
    size_t pending_bytes() const { return pending_bytes_; }

private:
    struct Chunk {
        TimePoint due;
        std::vector<uint8_t> bytes;
        bool ends_frame;
    };

    FaultOptions opts_;
    Rng rng_;
    std::deque<Chunk> queue_;
    FaultStats stats_;
    size_t pending_bytes_ = 0;
    bool closed_ = false;
};

}  // namespace uhfsim
