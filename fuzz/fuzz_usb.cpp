// USB report reassembly: input reports (sizes from the first byte, at most
// a report's 64 bytes) appended as the receive thread does, each followed by
// the frame search, the hand-over and the data callback reading every cell.
#include <stdint.h>
#include <string.h>

#include "UHF.h"
#include "form_utils.h"
#include "usb_transport.h"

namespace {

volatile uint8_t g_sink;

void touch(ST_UHF_DATA_CELL* cells) {
    for (ST_UHF_DATA_CELL* c = cells; c != nullptr; c = c->next)
        for (uint16_t i = 0; i < c->len; i++) g_sink = static_cast<uint8_t>(g_sink + c->pdata[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    setOnDataReceived(touch);
    usb_event_buf_len = 0;
    const size_t step = 1 + data[0] % 64;
    for (size_t at = 1; at < size; at += step) {
        if (usb_event_buf_len > uhf::kUsbAccumulated) usb_event_buf_len = 0;
        size_t n = size - at < step ? size - at : step;
        if (sizeof usb_event_buf - usb_event_buf_len < 64) __builtin_trap();  // the thread could not read on
        memcpy(usb_event_buf + usb_event_buf_len, data + at, n);
        uhf::usb_reassemble(static_cast<int>(n));
        uhf::usb_discard_frame();
    }
    setOnDataReceived(nullptr);
    return 0;
}
