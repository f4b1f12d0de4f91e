// One backend per transport type; the link layer and the commands call only
// through it and never ask which transport a link is on.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include "terminal.h"

namespace uhf {

struct Backend {
    // Open the transport named by t.device_info; ERR_SUCCESS or the error.
    ERROR_STATE (*open)(ST_Terminal& t);
    void (*close)(ST_Terminal& t);
    int (*send)(ST_Terminal& t, const uint8_t* p, uint16_t n);
    int (*recv)(ST_Terminal& t, uint8_t* p, uint16_t n);
    // Wait at most ms for input; never spins. 1 when a read will not block
    // (data, or a hung-up peer whose read returns 0), 0 otherwise. Links
    // without a descriptor to wait on return 0 at once: their recv waits.
    int (*wait)(ST_Terminal& t, int ms);
    // Drop input that is already waiting, and with output also what was
    // written but not yet transmitted; returns the input bytes dropped.
    int (*discard)(ST_Terminal& t, bool output);
    // The descriptor to poll for input, -1 when there is none to wait on.
    int (*descriptor)(const ST_Terminal& t);
    // Read, waiting at most ms for input: the count read, or 0 / -1 when
    // nothing came. *hung_up says the peer is gone and nothing more can
    // come. nullptr where wait followed by recv is as good.
    int (*recv_within)(ST_Terminal& t, uint8_t* p, uint16_t n, int ms, bool* hung_up);
    // Reports have to be asked for (0xEB) rather than streamed.
    bool polled;
};

extern const Backend kTcpBackend;
extern const Backend kSerialBackend;
extern const Backend kUsbBackend;

// Backend of a slot's transport, or nullptr for a free slot / bad index.
const Backend* backend_of(int tindex);

// recv_bytes that waits up to ms for input (a free slot sleeps briefly and
// reads nothing). *hung_up as for Backend::recv_within.
int recv_bytes_within(uint8_t* p, uint16_t n, int tindex, int ms, bool* hung_up);

// Drop the slot's waiting input (and output when asked); logs what went.
void discard_input(int tindex, bool output = false);

// Poll fd for input: 1 readable or hung up, 0 not within ms.
int wait_fd(int fd, int ms);

// A link whose last exchange ended on its reply's last byte has nothing stale
// waiting, and the next exchange spares the discard's system call. Any send
// leaves it unclean until an exchange ends that way again.
bool link_clean(int tindex);
void set_link_clean(int tindex);

// A released slot owes no late replies to its next occupant.
void forget_late_replies(int tindex);

// The poll loop of replies that come without a frame the link layer can
// wait for: read(buf, n) up to 500 times, pausing pause_us after every read
// that does not end the loop. Each chunk read goes to take(p, n), which
// returns false to stop; the first empty read after data also stops.
// Returns whether anything was read.
// Most one read of the poll loop asks for.
constexpr size_t kPollChunk = 1500;

template <class Read, class Take>
bool poll_collect(Read read, Take take, useconds_t pause_us) {
    uint8_t chunk[kPollChunk];
    bool any = false;
    for (int poll = 0; poll < 500; poll++) {
        int n = read(chunk, static_cast<uint16_t>(sizeof chunk));
        if (n > 0) {
            any = true;
            size_t got = static_cast<size_t>(n) < sizeof chunk ? static_cast<size_t>(n) : sizeof chunk;
            if (!take(chunk, got)) break;
        } else if (any) {
            break;
        }
        usleep(pause_us);
    }
    return any;
}

// Valid slot index?
inline bool slot_ok(int i) { return i >= 0 && i < MAX_TERMINALS; }

// The slot index of a record of the table.
inline int slot_of(const ST_Terminal& t) { return static_cast<int>(&t - my_terminals); }

}  // namespace uhf
