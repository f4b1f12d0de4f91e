#include "payloads.h"

namespace uhfd {

void MqttPayloads::add(uint64_t seq, bool event, std::string_view json) {
    if (event) {
        finish();
        out_.push_back({true, seq, std::string(json)});
        return;
    }
    if (in_array_ == batch_size_) finish();
    if (!in_array_) out_.push_back({false, 0, "["});
    Payload& p = out_.back();
    if (in_array_++) p.body += ',';
    p.body += json;
    p.last_seq = seq;
}

void MqttPayloads::finish() {
    if (in_array_) out_.back().body += ']';
    in_array_ = 0;
}

std::string json_array(const std::vector<OutboxItem>& items) {
    std::string body = "[";
    for (const OutboxItem& item : items) {
        if (body.size() > 1) body += ',';
        body += item.json;
    }
    return body + ']';
}

}  // namespace uhfd
