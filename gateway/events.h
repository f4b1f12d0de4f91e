// Tag reads and presence events as they travel through the supervisor, their
// JSON, and the hub that hands them to every output. A read is encoded once
// per format in use, and not at all when nobody listens.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace uhfd {

// One tag report, binary as the worker sent it. reader is the reader's index
// in the configuration; the hub knows the names.
struct Read {
    uint16_t reader = 0;
    uint8_t antenna = 0;
    uint8_t epc_len = 0;   // bytes of epc in use
    uint8_t data_len = 0;  // bytes of TID/USER data in use
    uint16_t pc = 0;
    int16_t rssi = 0;     // 0.1 dBm
    int64_t time_ms = 0;  // Unix milliseconds
    uint64_t seq = 0;     // per reader, given by the hub as it publishes
    std::array<uint8_t, 62> epc{};
    std::array<uint8_t, 255> data{};
};

struct Event {
    enum Kind : uint8_t { Arrive, Depart } kind = Arrive;
    uint16_t reader = 0;
    uint8_t antenna = 0;
    uint8_t epc_len = 0;
    std::array<uint8_t, 62> epc{};
    int64_t time_ms = 0;
    uint64_t seq = 0;  // shares the reader's counter with its reads
    uint64_t reads = 0;
    int16_t rssi_peak = 0;  // 0.1 dBm
    double rssi_mean = 0;   // dBm
};

// Appends the JSON object of a read or event to out (uhfctl's tag-read JSON:
// {"time":…,"reader":…,"epc":…,"pc":…,"data"?:…,"rssi":…,"antenna":…}),
// with the gateway's "seq" and "boot" last so consumers can drop duplicates
// and see gaps.
void append_read_json(const Read& r, std::string_view reader, std::string_view boot, std::string& out);
void append_event_json(const Event& e, std::string_view reader, std::string_view boot, std::string& out);
// Upper-case hex of bytes, appended.
void append_hex(const uint8_t* p, size_t n, std::string& out);
// A new random boot id: 16 lower-case hex digits, one per start of uhfd.
std::string make_boot_id();

// Fans reads and events out to the outputs, from the supervisor's thread.
// Sinks get the object and its JSON, encoded once for all of them, so every
// output sees the same seq for the same read.
class Hub {
public:
    Hub(std::vector<std::string> reader_names, std::string boot);
    using ReadSink = std::function<void(const Read&, std::string_view json)>;
    using EventSink = std::function<void(const Event&, std::string_view json)>;
    // After each pass of the supervisor's loop; true while the sink holds
    // something it wants to be called again for soon.
    using BatchEndSink = std::function<bool()>;
    void on_read(ReadSink s) { read_sinks_.push_back(std::move(s)); }
    // For outputs with their own encoding (LLRP): no JSON is made for them.
    using BinaryReadSink = std::function<void(const Read&)>;
    void on_binary_read(BinaryReadSink s) { binary_sinks_.push_back(std::move(s)); }
    void on_event(EventSink s) { event_sinks_.push_back(std::move(s)); }
    void on_batch_end(BatchEndSink s) { batch_end_sinks_.push_back(std::move(s)); }
    // Gives r (e) the next seq of its reader, then hands it to every sink.
    void publish(Read& r);
    void publish(Event& e);
    bool end_batch();
    // Seqs go on from last (what the outbox kept from the previous start).
    void continue_seq(uint16_t reader, uint64_t last);
    // For threads other than the supervisor's (HTTP): copies, under the lock.
    std::string name(uint16_t reader) const;
    size_t readers() const;
    // A reader added by a reload, its seq from last; supervisor's thread.
    void add_reader(const std::string& name, uint64_t last_seq = 0);
    const std::string& boot() const { return boot_; }

private:
    uint64_t next_seq(uint16_t reader);
    // The supervisor's thread reads names_ and last_seq_ without the lock: it
    // is the only writer.
    std::deque<std::string> names_;
    mutable std::mutex names_mu_;
    std::string boot_;
    std::deque<uint64_t> last_seq_;  // by reader index
    std::vector<ReadSink> read_sinks_;
    std::vector<BinaryReadSink> binary_sinks_;
    std::vector<EventSink> event_sinks_;
    std::vector<BatchEndSink> batch_end_sinks_;
    std::string buf_;  // reused: no allocation per read once warm
};

}  // namespace uhfd
