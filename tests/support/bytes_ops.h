// Concatenation for byte vectors in test tables.
#pragma once

#include <cstdint>
#include <vector>

inline std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
