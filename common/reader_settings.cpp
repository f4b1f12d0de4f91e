#include "reader_settings.h"

#include "UHF.h"

namespace uhftools {

bool read_gen2(Gen2Block& g) {
    unsigned char* f = g.f;
    return UHFGetGen2(&f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10], &f[11], &f[12],
                      &f[13]) == 0;
}

bool write_gen2(const Gen2Block& g) {
    const unsigned char* f = g.f;
    return UHFSetGen2(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12], f[13]) == 0;
}

bool set_power_everywhere(bool save, uint16_t centi_dbm) {
    uint8_t list[3 * 410];  // antenna, read, write per antenna
    uint16_t n = 0;
    if (UHFGetAntennaPower(list, &n) != 0 || n > sizeof list || n < 3) return false;
    for (size_t i = 0; i + 3 <= n; i += 3)
        if (UHFSetAntennaPower(save ? 1 : 0, list[i], centi_dbm, centi_dbm) != 0) return false;
    return true;
}

}  // namespace uhftools
