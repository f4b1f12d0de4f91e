// The data-cell builder: every cell it hands over is read to its claimed
// length, which must stay inside the receive buffer (frames there sit in the
// first 4096 bytes of 8192, as on USB).
#include <stdint.h>
#include <string.h>

#include "form_utils.h"

namespace {
uint8_t g_buf[8192];
volatile unsigned g_sum;

void on_cells(ST_UHF_DATA_CELL* c) {
    for (; c != nullptr; c = c->next)
        for (uint16_t i = 0; i < c->len; i++) g_sum += c->pdata[i];
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 4096) return 0;
    setOnDataReceived(on_cells);
    memcpy(g_buf, data + 1, size - 1);
    CallReceviedEvent(data[0], g_buf, static_cast<uint16_t>(size - 1));
    return 0;
}
