// Tag reads and presence events, and the hub that hands them to every output.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "config.h"

namespace uhfd {

struct Read {
    std::string reader;
    std::string epc, pc, data;  // hex
    int rssi_tenths = 0;
    int antenna = 0;
    double time = 0;  // Unix seconds
};

struct Event {
    enum Kind { Arrive, Depart } kind;
    std::string reader, epc;
    int antenna = 0;
    double time = 0;
    uint64_t reads = 0;
    double rssi_peak = 0, rssi_mean = 0;
};

std::string read_json(const Read& r);
std::string event_json(const Event& e);

struct PresentTag {
    std::string reader, epc;
    int antenna = 0;
    double first = 0, last = 0;
    uint64_t reads = 0;
    int rssi_peak = -32768;
    int64_t rssi_sum = 0;
};

// Who is in the field, per reader, antenna and EPC; bounded by max_tags.
class Presence {
public:
    explicit Presence(const PresenceConfig& c) : c_(c) {}
    // False when the filters drop the read; an arrival goes to arrived.
    bool add(const Read& r, std::vector<Event>& arrived);
    // Tags not seen for depart_after seconds leave.
    void expire(double now, std::vector<Event>& departed);
    std::vector<PresentTag> snapshot() const;
    size_t count(const std::string& reader) const;
    uint64_t evictions() const;

private:
    static Event event_of(Event::Kind k, const PresentTag& t, double time);
    PresenceConfig c_;
    mutable std::mutex mu_;
    std::map<std::string, PresentTag> tags_;
    uint64_t evictions_ = 0;
};

// A bounded queue of text lines for one stream subscriber; the oldest go
// first when a slow client falls behind.
class Subscriber {
public:
    void push(std::string line);
    // Waits up to ms for a line; false on time-out.
    bool pop(std::string& line, int ms);

private:
    std::mutex mu_;
    std::condition_variable cv_;
    std::deque<std::string> q_;
};

// Fans reads and events out to the outputs.
class Hub {
public:
    using ReadSink = std::function<void(const Read&)>;
    using EventSink = std::function<void(const Event&)>;
    void on_read(ReadSink s) { read_sinks_.push_back(std::move(s)); }
    void on_event(EventSink s) { event_sinks_.push_back(std::move(s)); }
    void publish(const Read& r);
    void publish(const Event& e);
    std::shared_ptr<Subscriber> subscribe();
    void unsubscribe(const std::shared_ptr<Subscriber>& s);

private:
    void to_streams(const std::string& line);
    std::vector<ReadSink> read_sinks_;
    std::vector<EventSink> event_sinks_;
    std::mutex mu_;
    std::vector<std::shared_ptr<Subscriber>> subs_;
};

}  // namespace uhfd
