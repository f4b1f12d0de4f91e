// How items leave the outbox: MQTT messages and webhook bodies. Each payload
// covers a run of the reader's seqs in order, so its acknowledgement
// delivers everything up to its last seq.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "outbox.h"

namespace uhfd {

struct Payload {
    bool event = false;
    uint64_t last_seq = 0;
    std::string body;
};

// Runs of reads become JSON arrays of at most batch_size; each event goes
// alone. Fed item by item as the outbox hands them over.
class MqttPayloads {
public:
    MqttPayloads(size_t batch_size, std::vector<Payload>& out) : batch_size_(batch_size), out_(out) {}
    void add(uint64_t seq, bool event, std::string_view json);
    void finish();  // closes the open array

private:
    size_t batch_size_;
    std::vector<Payload>& out_;
    size_t in_array_ = 0;  // reads in out_.back() while it is an open array
};
// One JSON array of every item, reads and events in seq order.
std::string json_array(const std::vector<OutboxItem>& items);

}  // namespace uhfd
