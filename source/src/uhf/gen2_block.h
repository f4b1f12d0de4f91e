// The 4-byte Gen2 air-protocol block of commands 0x20/0x22.
#pragma once

#include <stdint.h>

namespace uhf {

struct Gen2Params {
    uint8_t target, action, t, q;
    uint8_t start_q, min_q;
    uint8_t max_q, d, coding, p;
    uint8_t sel, session, g, lf;
};

// Lower fields are masked to their width; the top field of each byte is
// shifted in unmasked so its excess bits fall off, as readers expect.
inline void gen2_pack(const Gen2Params& g, uint8_t out[4]) {
    out[0] = static_cast<uint8_t>(g.target << 5 | (g.action & 7) << 2 | (g.t & 1) << 1 | (g.q & 1));
    out[1] = static_cast<uint8_t>(g.start_q << 4 | (g.min_q & 15));
    out[2] = static_cast<uint8_t>(g.max_q << 4 | (g.d & 1) << 3 | (g.coding & 3) << 1 | (g.p & 1));
    out[3] = static_cast<uint8_t>(g.sel << 6 | (g.session & 3) << 4 | (g.g & 1) << 3 | (g.lf & 7));
}

inline Gen2Params gen2_unpack(const uint8_t in[4]) {
    return Gen2Params{
        static_cast<uint8_t>(in[0] >> 5),     static_cast<uint8_t>(in[0] >> 2 & 7),
        static_cast<uint8_t>(in[0] >> 1 & 1), static_cast<uint8_t>(in[0] & 1),
        static_cast<uint8_t>(in[1] >> 4),     static_cast<uint8_t>(in[1] & 15),
        static_cast<uint8_t>(in[2] >> 4),     static_cast<uint8_t>(in[2] >> 3 & 1),
        static_cast<uint8_t>(in[2] >> 1 & 3), static_cast<uint8_t>(in[2] & 1),
        static_cast<uint8_t>(in[3] >> 6),     static_cast<uint8_t>(in[3] >> 4 & 3),
        static_cast<uint8_t>(in[3] >> 3 & 1), static_cast<uint8_t>(in[3] & 7),
    };
}

}  // namespace uhf
