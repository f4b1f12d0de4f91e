// Packaged and plain frames, and the 0x7E-delimited transfer packages.
#include <stdint.h>
#include <string.h>

#include "form_utils.h"
#include "uhf/package.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uhf::Package pkg{};
    uhf::parse_frame(data, size, &pkg);
    if (size > 1500) return 0;
    uint8_t buf[1500];
    memcpy(buf, data, size);
    unsigned short n = dropPack(buf, static_cast<unsigned short>(size));
    ST_TransPackage out;
    if (n <= size) parsePackage(buf, n, &out);
    return 0;
}
