// SplitMix64: tiny, and its output is the same on every platform and standard
// library, so a seed reproduces a tag field or an RSSI sequence anywhere.
#pragma once

#include <cstdint>

namespace uhfsim {

class Rng {
public:
    explicit Rng(uint64_t seed = 1) : state_(seed) {}

    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // Uniform in [lo, hi]; the modulo bias is irrelevant at these ranges.
    int64_t range(int64_t lo, int64_t hi) {
        const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
        return lo + static_cast<int64_t>(next() % span);
    }

    // True with probability `p` (0..1).
    bool chance(double p) {
        if (p <= 0.0) return false;
        if (p >= 1.0) return true;
        return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0) < p;
    }

private:
    uint64_t state_;
};

}  // namespace uhfsim
