// The detection thread's escaped-stream parser, fed in reads split at the
// first byte's value, then the frame stack drained.
#include <stdint.h>

#include "UHF.h"
#include "uhf/escaped_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    uhf::EscapedStream s;
    const bool crc = data[0] & 1;
    const size_t step = 1 + data[1] % 64;
    for (size_t at = 2; at < size; at += step) s.feed(data + at, size - at < step ? size - at : step, crc);
    uint8_t frame[256], len = 0;
    while (Fetch_UhfStack(frame, &len) == 0) {
    }
    return 0;
}
