// One reader's MQTT client: it publishes the reader's reads and events from
// the outbox (PREFIX/READER/reads as JSON arrays, PREFIX/READER/events) and its
// link state (PREFIX/READER/status, retained, "offline" as the Last Will).
// One client per reader, so each status topic has its own Last Will.
//
// Its own thread drives libmosquitto's loop. At most kWindow publishes wait
// for their acknowledgement (PUBACK at QoS 1, the socket write at QoS 0), so
// nothing piles up inside the library; what is acknowledged is delivered in
// the outbox. A broker that acknowledges nothing for kAckWait, or answers no
// connect in that time, is given up: the connection is dropped and a new one
// tried with backoff, the status first and then the backlog from the outbox.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "backoff.h"
#include "config.h"
#include "outbox.h"
#include "payloads.h"

struct mosquitto;

namespace uhfd {

class MqttOut {
public:
    static constexpr size_t kWindow = 32;
    static constexpr std::chrono::seconds kAckWait{10};
    static constexpr int kKeepAliveSeconds = 10;

    MqttOut(const MqttConfig& c, const std::string& reader, uint16_t index, Outbox& outbox);
    ~MqttOut();
    bool start(std::string& err);
    // Publishes the latest status, then "offline", and disconnects: end asks
    // for it without waiting, stop waits until it is done.
    void end();
    void stop();
    // State, not data: only the latest is kept, and sent on every connect.
    void status(const std::string& state);
    bool connected() const { return connected_; }

private:
    using Clock = std::chrono::steady_clock;
    struct Flight {
        int mid = 0;
        uint64_t last_seq = 0;  // 0 for a status
        Clock::time_point sent;
        bool acked = false;
    };
    void run();
    void open_client(Clock::time_point now);
    void lose(const std::string& why);
    bool serve(int timeout_ms);
    int timeout_ms(Clock::time_point now) const;
    void on_connected();
    void on_acked(int mid);
    void publish_status(Clock::time_point now);
    void publish_pending(Clock::time_point now);
    bool publish(const std::string& topic, const std::string& body, bool retain, uint64_t last_seq,
                 Clock::time_point now);
    void say_goodbye();
    void wake();
    void sleep_until(Clock::time_point when);
    void say(const std::string& what);

    const MqttConfig c_;
    const std::string base_;
    const uint16_t index_;
    Outbox& outbox_;
    const int output_;
    int wake_fd_ = -1;  // an eventfd: new rows, a status or stop end the wait at once
    std::atomic<bool> stop_{false}, connected_{false};
    std::mutex mu_;  // the two below
    std::string status_ = "connecting";
    bool status_due_ = false;

    // The thread's own.
    mosquitto* m_ = nullptr;
    bool connecting_ = false, failed_ = false;
    std::string why_;  // what failed the link
    Clock::time_point connect_started_, next_try_;
    uhftools::Backoff backoff_;
    std::deque<Flight> flights_;
    uint64_t sent_ = 0;  // the newest seq published on this connection
    std::optional<Clock::time_point> pending_since_;
    std::vector<OutboxItem> items_;
    std::vector<Payload> payloads_;
    std::string said_;
    std::thread thread_;
};

}  // namespace uhfd
