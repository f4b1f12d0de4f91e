#include "payloads.h"

namespace uhfd {

void mqtt_payloads(const std::vector<OutboxItem>& items, size_t batch_size, std::vector<Payload>& out) {
    size_t in_array = 0;  // reads in out.back() while it is an open array
    for (const OutboxItem& item : items) {
        if (item.event) {
            if (in_array) out.back().body += ']';
            in_array = 0;
            out.push_back({true, item.seq, item.json});
            continue;
        }
        if (in_array == batch_size) {
            out.back().body += ']';
            in_array = 0;
        }
        if (!in_array) out.push_back({false, 0, "["});
        Payload& p = out.back();
        if (in_array++) p.body += ',';
        p.body += item.json;
        p.last_seq = item.seq;
    }
    if (in_array) out.back().body += ']';
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
