// The reader behind every link to one module: its state, its tag field and its
// clock. Each host connection is a VirtualReader (a link: frame parser, reply
// output, its own inventory stream) onto one shared Radio.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

#include "engine/reader_state.h"
#include "engine/rng.h"
#include "engine/tag_field.h"

namespace uhfsim {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

struct Radio {
    Radio(TagField f, ReaderState s, uint64_t seed) : field(std::move(f)), state(std::move(s)), rng(seed) {}

    TagField field;
    ReaderState state;
    Rng rng;  // RSSI jitter
    // The reader's clock: the latest time any link passed, plus what advance() added.
    TimePoint now{};
    std::chrono::nanoseconds ahead{0};
    uint64_t restarts = 0;  // a restart ends the inventory of every link
    // Moves whenever the tags or the settings may have changed; each link
    // plans its reads again only then, not for every read.
    uint64_t revision = 0;

    // Lets simulated time pass at once: the clock runs d ahead of the time
    // links pass from now on (sensor logs, the packaged clock).
    void advance(std::chrono::nanoseconds d) {
        if (d.count() <= 0) return;
        ahead += d;
        now += d;
    }
    // The engine never locks: transports serving links of one radio from
    // several threads hold this around every call into those links.
    std::mutex mu;
};

}  // namespace uhfsim
