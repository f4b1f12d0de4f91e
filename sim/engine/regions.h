// Regulatory regions as the virtual reader knows them: the band a hopping
// table must stay inside and the channels a region starts with.
#pragma once

#include <cstdint>
#include <vector>

namespace uhfsim {

struct Band {
    uint32_t lo_khz, hi_khz;       // inclusive
    uint32_t first_khz, step_khz;  // default channels: first + k * step
    uint8_t channels;
};

// 1 FCC, 2 ETSI, 3 China 920, 4 China 840; any other non-zero code is a
// custom region that may use the whole UHF RFID band.
inline Band region_band(uint8_t region) {
    switch (region) {
        case 1: return {902000, 928000, 902750, 500, 50};
        case 2: return {865000, 868000, 865700, 600, 4};
        case 3: return {920000, 925000, 920125, 250, 20};
        case 4: return {840000, 845000, 840125, 250, 20};
        default: return {840000, 960000, 915000, 0, 1};
    }
}

inline bool in_region(uint8_t region, uint32_t khz) {
    const Band b = region_band(region);
    return khz >= b.lo_khz && khz <= b.hi_khz;
}

inline std::vector<uint32_t> default_channels(uint8_t region) {
    const Band b = region_band(region);
    std::vector<uint32_t> out;
    for (uint32_t k = 0; k < b.channels; ++k) out.push_back(b.first_khz + k * b.step_khz);
    return out;
}

// The hopping table after a change of region: the entries the new region
// allows, or its default channels when none is left.
inline std::vector<uint32_t> fit_to_region(const std::vector<uint32_t>& table, uint8_t region) {
    std::vector<uint32_t> kept;
    for (uint32_t f : table)
        if (in_region(region, f)) kept.push_back(f);
    return kept.empty() ? default_channels(region) : kept;
}

}  // namespace uhfsim
