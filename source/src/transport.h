// One backend per transport type; the link layer calls only through it.
#pragma once

#include <stdint.h>

#include "terminal.h"

namespace uhf {

struct Backend {
    int (*send)(ST_Terminal& t, const uint8_t* p, uint16_t n);
    int (*recv)(ST_Terminal& t, uint8_t* p, uint16_t n);
    // Wait at most ms for the link to become readable; never spins.
    void (*wait)(ST_Terminal& t, int ms);
};

// Backend of a slot's transport, or nullptr for a free slot / bad index.
const Backend* backend_of(int tindex);

// Wait up to ms for slot tindex to have input (sleeps for slots without a
// descriptor to wait on).
void wait_readable(int tindex, int ms);

// Valid slot index?
inline bool slot_ok(int i) { return i >= 0 && i < MAX_TERMINALS; }

}  // namespace uhf
