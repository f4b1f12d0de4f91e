// The frame search over any bytes: a frame it reports lies inside the input.
#include <stdint.h>
#include <stdlib.h>

#include "form_utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int at = searchPack(data, static_cast<int>(size));
    if (at >= 0 &&
        (static_cast<size_t>(at) + 8 > size || static_cast<size_t>(at) + (data[at + 2] << 8 | data[at + 3]) > size))
        abort();
    return 0;
}
