#include "events.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tag_json.h"

namespace uhfd {

using uhftools::json_number;
using uhftools::json_string;

std::string read_json(const Read& r) {
    return uhftools::tag_json({r.time, r.reader, r.epc, r.pc, r.data, r.rssi_tenths, r.antenna});
}

std::string event_json(const Event& e) {
    return std::string("{\"event\":") + (e.kind == Event::Arrive ? "\"arrive\"" : "\"depart\"") +
           ",\"time\":" + json_number(uhftools::to_ms(e.time)) + ",\"reader\":" + json_string(e.reader) +
           ",\"epc\":" + json_string(e.epc) + ",\"antenna\":" + std::to_string(e.antenna) +
           ",\"reads\":" + std::to_string(e.reads) + ",\"rssi_peak\":" + json_number(e.rssi_peak) +
           ",\"rssi_mean\":" + json_number(std::round(e.rssi_mean * 10) / 10) + "}";
}

Event Presence::event_of(Event::Kind k, const PresentTag& t, double time) {
    Event e{k, t.reader, t.epc, t.antenna, time, t.reads, t.rssi_peak / 10.0, 0};
    e.rssi_mean = t.reads ? static_cast<double>(t.rssi_sum) / static_cast<double>(t.reads) / 10.0 : 0;
    return e;
}

bool Presence::add(const Read& r, std::vector<Event>& arrived) {
    if (c_.rssi_floor && r.rssi_tenths < *c_.rssi_floor * 10) return false;
    if (r.epc.compare(0, c_.epc_prefix.size(), c_.epc_prefix) != 0) return false;
    std::lock_guard<std::mutex> lock(mu_);
    std::string key = r.reader + '\n' + std::to_string(r.antenna) + '\n' + r.epc;
    auto it = tags_.find(key);
    const bool fresh = it == tags_.end();
    if (fresh) {
        if (tags_.size() >= c_.max_tags) {
            // Room for the newcomer: the tag seen longest ago goes, without a depart event.
            auto oldest = std::min_element(tags_.begin(), tags_.end(),
                                           [](const auto& a, const auto& b) { return a.second.last < b.second.last; });
            tags_.erase(oldest);
            evictions_++;
        }
        it = tags_.emplace(key, PresentTag{r.reader, r.epc, r.antenna, r.time, r.time, 0, -32768, 0}).first;
    }
    PresentTag& t = it->second;
    t.last = r.time;
    t.reads++;
    t.rssi_peak = std::max(t.rssi_peak, r.rssi_tenths);
    t.rssi_sum += r.rssi_tenths;
    if (fresh) arrived.push_back(event_of(Event::Arrive, t, r.time));
    return true;
}

void Presence::expire(double now, std::vector<Event>& departed) {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto it = tags_.begin(); it != tags_.end();) {
        if (now - it->second.last >= c_.depart_after) {
            departed.push_back(event_of(Event::Depart, it->second, now));
            it = tags_.erase(it);
        } else {
            ++it;
        }
    }
}

std::vector<PresentTag> Presence::snapshot() const {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<PresentTag> out;
    for (const auto& [k, t] : tags_) out.push_back(t);
    return out;
}

size_t Presence::count(const std::string& reader) const {
    std::lock_guard<std::mutex> lock(mu_);
    return static_cast<size_t>(
        std::count_if(tags_.begin(), tags_.end(), [&](const auto& kv) { return kv.second.reader == reader; }));
}

uint64_t Presence::evictions() const {
    std::lock_guard<std::mutex> lock(mu_);
    return evictions_;
}

void Subscriber::push(std::string line) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (q_.size() >= 4096) q_.pop_front();
        q_.push_back(std::move(line));
    }
    cv_.notify_one();
}

bool Subscriber::pop(std::string& line, int ms) {
    std::unique_lock<std::mutex> lock(mu_);
    if (!cv_.wait_for(lock, std::chrono::milliseconds(ms), [&] { return !q_.empty(); })) return false;
    line = std::move(q_.front());
    q_.pop_front();
    return true;
}

void Hub::publish(const Read& r) {
    for (auto& s : read_sinks_) s(r);
    to_streams("event: read\ndata: " + read_json(r) + "\n\n");
}

void Hub::publish(const Event& e) {
    for (auto& s : event_sinks_) s(e);
    to_streams(std::string("event: ") + (e.kind == Event::Arrive ? "arrive" : "depart") + "\ndata: " + event_json(e) +
               "\n\n");
}

void Hub::to_streams(const std::string& line) {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& s : subs_) s->push(line);
}

std::shared_ptr<Subscriber> Hub::subscribe() {
    auto s = std::make_shared<Subscriber>();
    std::lock_guard<std::mutex> lock(mu_);
    subs_.push_back(s);
    return s;
}

void Hub::unsubscribe(const std::shared_ptr<Subscriber>& s) {
    std::lock_guard<std::mutex> lock(mu_);
    subs_.erase(std::remove(subs_.begin(), subs_.end(), s), subs_.end());
}

}  // namespace uhfd
