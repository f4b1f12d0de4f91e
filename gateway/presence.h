// Who is in the field, per reader, antenna and EPC; bounded by max_tags.
// Every read, expiry and eviction costs O(log n) in the tags present: an
// index ordered by last-seen time sits beside the hash map.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "config.h"
#include "events.h"

namespace uhfd {

struct PresentTag {
    uint16_t reader = 0;
    uint8_t antenna = 0;
    uint8_t epc_len = 0;
    std::array<uint8_t, 62> epc{};
    int64_t first_ms = 0, last_ms = 0;
    uint64_t reads = 0;
    int16_t rssi_peak = -32768;  // 0.1 dBm
    int64_t rssi_sum = 0;        // 0.1 dBm
};

class Presence {
public:
    explicit Presence(const PresenceConfig& c);
    ~Presence();
    // False when the filters (rssi_floor, epc_prefix) drop the read; a first
    // read of a tag appends its arrival to arrived.
    bool add(const Read& r, std::vector<Event>& arrived);
    // Tags unseen for depart_after seconds by now_ms leave, in order of last seen.
    void expire(int64_t now_ms, std::vector<Event>& departed);
    std::vector<PresentTag> snapshot() const;
    size_t count(uint16_t reader) const;
    size_t size() const;
    uint64_t evictions() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
    mutable std::mutex mu_;  // add/expire on the supervisor's thread; the rest from HTTP
};

}  // namespace uhfd
