// Tag reads, presence events and link state of one reader to an MQTT broker:
// PREFIX/READER/reads (JSON arrays, batched), PREFIX/READER/events and
// PREFIX/READER/status (retained, with "offline" as the Last Will). One
// client per reader, so each status topic has its own Last Will.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config.h"

struct mosquitto;

namespace uhfd {

class MqttOut {
public:
    MqttOut(const MqttConfig& c, const std::string& reader);
    ~MqttOut();
    bool start(std::string& err);
    // Publishes "offline" and disconnects.
    void stop();

    void read(std::string_view json);
    void event(std::string_view json);
    void status(const std::string& state);

    size_t queued() const;
    uint64_t dropped() const;
    bool connected() const;

private:
    struct Message {
        std::string topic, payload;
        bool retain;
    };
    void flusher();
    void enqueue(Message m);
    void drain();
    void flush_batch();

    MqttConfig c_;
    std::string base_;
    mosquitto* m_ = nullptr;
    mutable std::mutex mu_;
    std::condition_variable cv_;
    std::deque<Message> queue_;
    // Whole JSON arrays of batch_size reads, and the one being filled: a read
    // is appended to text once, never held as a string of its own.
    std::vector<std::string> full_;
    std::string batch_;
    size_t batch_n_ = 0;
    std::string last_status_ = "connecting";
    uint64_t dropped_ = 0;
    bool connected_ = false, stop_ = false;
    std::thread thread_;
};

}  // namespace uhfd
