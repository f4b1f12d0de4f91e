// An inventory byte stream as the receive thread cuts it into the tag queue,
// then every fetch call drains it.
#include <stdint.h>

#include "UHF.h"
#include "form_utils.h"
#include "globe_var.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    initTagQueue();
    size_t at = 0;
    while (at < size) {
        int off = searchPack(data + at, static_cast<int>(size - at));
        if (off < 0) break;
        const uint8_t* f = data + at + off;
        uint16_t flen = static_cast<uint16_t>(f[2] << 8 | f[3]);
        const uint8_t cmd = f[4];
        if (cmd == 0xEC) spliteTagData(f + 5, flen - 8u, 1);
        if ((cmd == 0x83 || cmd == 0x7F) && flen - 8 > 3)
            addTagData(cmd == 0x83 ? NORMAL_INVENTORY : SENSOR_INVENTORY, f + 5, static_cast<uint16_t>(flen - 8), 1);
        at += static_cast<size_t>(off) + flen;
    }
    uint8_t out[512];
    int len = 0;
    for (int round = 0; round < 64; round++) {
        int got = UHFGetTagData(&len, out) == 0;
        got += UHF_GetReceived_EX(&len, out) == 0;
        got += UHF_GetTempTagReceived(&len, out) == 0;
        if (got == 0 && getTagData(out, sizeof out) == 0) break;
    }
    return 0;
}
