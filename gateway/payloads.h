// How items leave the outbox: MQTT messages and webhook bodies. Each payload
// covers a run of the reader's seqs in order, so its acknowledgement
// delivers everything up to its last seq.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "outbox.h"

namespace uhfd {

struct Payload {
    bool event = false;
    uint64_t last_seq = 0;
    std::string body;
};

// Runs of reads become JSON arrays of at most batch_size; each event goes alone.
void mqtt_payloads(const std::vector<OutboxItem>& items, size_t batch_size, std::vector<Payload>& out);
// One JSON array of every item, reads and events in seq order.
std::string json_array(const std::vector<OutboxItem>& items);

}  // namespace uhfd
