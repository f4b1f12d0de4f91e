// Building transfer packages in tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "form_utils.h"

namespace uhftest {

inline ST_TransPackage package(uint8_t type, uint16_t cmd, uint16_t prop, const std::vector<uint8_t>& content) {
    ST_TransPackage p{};
    p.type = type;
    p.cmd = cmd;
    p.prop = prop;
    p.len = static_cast<uint16_t>(content.size());
    std::copy(content.begin(), content.end(), p.content);
    return p;
}

}  // namespace uhftest
