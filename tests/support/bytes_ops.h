// Byte vectors in test tables: concatenation, and the A5 5A command frame
// built the test's own way, apart from either codec under test.
#pragma once

#include <cstdint>
#include <vector>

inline std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

namespace uhftest {

using Bytes = std::vector<uint8_t>;

// Two-byte length (8 with no data), XOR check from the length on, CR LF.
inline Bytes frame(uint8_t cmd, const Bytes& data = {}) {
    Bytes f = Bytes{0xA5, 0x5A, uint8_t((data.size() + 8) >> 8), uint8_t(data.size() + 8), cmd} + data;
    uint8_t x = 0;
    for (size_t i = 2; i < f.size(); i++) x ^= f[i];
    return f + Bytes{x, 0x0D, 0x0A};
}

}  // namespace uhftest
