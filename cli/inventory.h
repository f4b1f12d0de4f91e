// Continuous inventory: live table on a terminal, a summary table otherwise,
// JSON lines or CSV for scripts.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "session.h"

namespace uhfctl {

struct InventoryOptions {
    double duration = 0;      // seconds; 0: until Ctrl-C (or count)
    unsigned long count = 0;  // stop after this many reads; 0: no limit
    bool unique = false;      // json/csv: one record per tag at the end
    bool once = false;        // one single-shot inventory instead of a continuous one
    bool live = false;        // redraw a table while reading (terminal only)
    bool reconnect = false;   // a lost reader is opened again (with backoff) instead of ending the run
    std::string title = "inventory";
};

// One tag as the run saw it.
struct TagSeen {
    std::string reader;
    std::string epc, pc, data;
    uint64_t reads = 0;
    int rssi_last = 0, rssi_max = -32768;  // 0.1 dBm
    int64_t rssi_sum = 0;
    int antenna = 0;
    double first = 0, last = 0;  // seconds from the start
};

struct InventoryResult {
    uint64_t reads = 0;
    double seconds = 0;
    double started = 0;         // Unix seconds; JSON and CSV times are this plus a TagSeen's
    std::vector<TagSeen> tags;  // in order of first sight
    std::vector<std::pair<std::string, std::string>> down;  // readers not reading: label, what is wrong
    bool stop_confirmed = true;
    uint64_t overflowed = 0;  // reads the library dropped when its queue filled up
};

// Runs one inventory over every reader of the session and writes what the
// session's format asks for. Exit code: kReaderFailed when a reader did not
// start, or did not confirm the stop.
int run_inventory(const Session& s, const InventoryOptions& o, InventoryResult& result);

// Text table of the tags seen (also the summary printed when stdout is no terminal).
void print_tag_table(const Session& s, const InventoryResult& r, size_t max_rows);
std::string summary_line(const InventoryResult& r);

}  // namespace uhfctl
