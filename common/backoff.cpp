#include "backoff.h"

#include <algorithm>

namespace uhftools {

Backoff::Backoff(ms first, ms max, double jitter, uint64_t seed)
    : first_(first),
      max_(std::max(first, max)),
      base_(first),
      jitter_(jitter),
      state_(seed ? seed : uint64_t(std::chrono::steady_clock::now().time_since_epoch().count()) | 1) {}

Backoff::ms Backoff::next() {
    // xorshift64: jitter needs spread, not quality.
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    double unit = double(state_ >> 11) / double(1ull << 53);  // [0, 1)
    double factor = 1.0 + jitter_ * (2.0 * unit - 1.0);
    ms delay(int64_t(double(base_.count()) * factor));
    base_ = std::min(max_, base_ * 2);
    ++attempts_;
    return delay;
}

void Backoff::reset() {
    base_ = first_;
    attempts_ = 0;
}

}  // namespace uhftools
