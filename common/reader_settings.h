// Settings written the same way by uhfctl and uhfd, through the library.
#pragma once

#include <cstdint>

#include "settings_table.h"

namespace uhftools {

// The Gen2 fields in UHFSetGen2's parameter order, read and written whole
// so that a change of some keeps the others as the reader holds them.
struct Gen2Block {
    unsigned char f[kGen2Fields] = {};
};
bool read_gen2(Gen2Block& g);
bool write_gen2(const Gen2Block& g);

// Read and write power of every antenna the reader lists, in 0.01 dBm
// (UHFSetPower would set antenna 1 only).
bool set_power_everywhere(bool save, uint16_t centi_dbm);

}  // namespace uhftools
