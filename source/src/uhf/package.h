// The package frame (A5 03) and plain frame (A5 02): building, collecting a
// reply by polling, and classifying what was collected.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include "transport.h"
#include "uhf/reply.h"
#include "uhf/request.h"

namespace uhf {

// Largest reply collected by one poll loop.
constexpr size_t kCollectMax = 1500;

// The package frame of Common_Package_Send into out (poisoned if it does
// not fit). Data is copied only when dbuf is set and dlen non-zero.
void build_package(Request& out, uint8_t head, uint8_t type, uint8_t version, uint16_t dlen, const uint8_t* dbuf);

// The plain frame A5 02 len body 03 into out.
void build_plain(Request& out, const uint8_t* body, uint16_t n);

struct Package {
    uint8_t type;
    uint16_t len;
    const uint8_t* data;  // inside the collected bytes
};

// What the collected bytes f[0, total) hold: 0 a package with head 0xAB
// (p filled); 1 a plain acknowledgement; -1 nothing usable or incomplete
// (also inner data running past the body); -2 bad end byte; -3 wrong head or
// a plain frame that is no acknowledgement.
int parse_frame(const uint8_t* f, size_t total, Package* p);

// Poll read(buf, n) up to 500 times, pausing pause_us after every poll that
// does not end the loop; the first empty poll after data ends it, and so
// does a reply that would pass cap (kept up to cap). Returns the bytes kept.
template <class Read>
size_t collect(Read read, uint8_t* out, size_t cap, useconds_t pause_us) {
    size_t total = 0;
    poll_collect(
        read,
        [&](const uint8_t* p, size_t got) {
            size_t take = got < cap - total ? got : cap - total;
            for (size_t i = 0; i < take; i++) out[total + i] = p[i];
            total += take;
            return take == got;
        },
        pause_us);
    return total;
}

// Common_Package_Rev into out, refusing (-1) data longer than cap.
int recv_package(uint8_t* type, Reply& out, size_t cap);

// Empty the selected link's serial queues (other links have none).
void flush_selected_queues();

}  // namespace uhf
