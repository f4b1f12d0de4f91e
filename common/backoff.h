// The reconnect policy shared by uhfctl --reconnect and uhfd: the first retry
// after 1 s, doubling up to 30 s, each delay spread by random jitter so many
// clients that lost one reader do not retry in lock step.
#pragma once

#include <chrono>
#include <cstdint>

namespace uhftools {

class Backoff {
public:
    using ms = std::chrono::milliseconds;

    explicit Backoff(ms first = ms(1000), ms max = ms(30000), double jitter = 0.2, uint64_t seed = 0);

    // The delay before the next attempt; each call doubles the base up to max.
    ms next();
    // After a success the next failure starts from the first delay again.
    void reset();
    unsigned attempts() const { return attempts_; }

private:
    ms first_, max_, base_;
    double jitter_;
    uint64_t state_;
    unsigned attempts_ = 0;
};

}  // namespace uhftools
