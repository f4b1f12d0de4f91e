// The test double of the USB transport: the hidapi functions it calls and
// libusb's event pump, with the reader living in this process. A test shapes
// the device list, chooses what answers the output reports (a queue of
// scripted input reports, or the virtual reader engine), and can unplug the
// device or make writes fail.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "transport/session.h"

namespace fakehid {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

// One interface as hid_enumerate lists it.
struct Entry {
    std::string path;
    unsigned short usage;
};

// One hid_write as the transport made it (report id included).
struct Written {
    Bytes report;
    Clock::time_point at;
};

struct Counters {
    int exit = 0;          // hid_exit calls
    int lists_live = 0;    // enumerations not yet freed
    int devices_live = 0;  // opened and not yet closed
};

// Back to a machine with nothing plugged in: empty list, no reader, no faults,
// nothing recorded.
void reset();

void set_devices(std::vector<Entry> list);
void fail_open(bool on);      // hid_open_path returns null
void fail_writes(int error);  // hid_write returns error (0: works)
void unplug(int error = -1);  // every read from now on fails

// Input reports come from this queue, each returned as given, unless a
// virtual reader answers (use_reader).
void push_report(Bytes report);
size_t reports_queued();

// Output reports feed a virtual reader; its replies come back in 64-byte
// input reports, every frame starting in a new report as a module's firmware
// sends them.
void use_reader(const uhfsim::SimOptions& opts);
void with_reader(const std::function<void(uhfsim::VirtualReader&)>& fn);

std::vector<Written> written();
Counters counters();

}  // namespace fakehid
