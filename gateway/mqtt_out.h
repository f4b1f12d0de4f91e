// One reader's MQTT client: it publishes the reader's reads and events from
// the outbox (PREFIX/READER/reads as JSON arrays, PREFIX/READER/events) and its
// link state (PREFIX/READER/status, retained, "offline" as the Last Will).
// One connection per reader, so each status topic has its own Last Will; one
// thread (MqttClients') drives every client: arm says what to wait for, step
// does what is due after the wait.
//
// At most kWindow publishes wait for their acknowledgement (PUBACK at QoS 1,
// the socket write at QoS 0), so nothing piles up inside libmosquitto; what is
// acknowledged is delivered in the outbox. A broker that acknowledges nothing
// for kAckWait, or answers no connect in that time, is given up: the
// connection is dropped and a new one tried with backoff, the status first and
// then the backlog from the outbox.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "backoff.h"
#include "config.h"
#include "outbox.h"
#include "payloads.h"

struct mosquitto;
struct pollfd;

namespace uhfd {

class MqttOut {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kWindow = 32;
    static constexpr std::chrono::seconds kAckWait{10};
    static constexpr int kKeepAliveSeconds = 10;

    // stop_fd: readable once the whole output stops; it cuts a connect short.
    MqttOut(const MqttConfig& c, const std::string& reader, uint16_t index, Outbox& outbox, int stop_fd);
    ~MqttOut();
    MqttOut(const MqttOut&) = delete;
    MqttOut& operator=(const MqttOut&) = delete;

    // Any thread. end: the latest status, then "offline", then the client
    // disconnects and is finished. status: state, not data: only the latest
    // is kept, and sent on every connect. Both want the loop woken after.
    void end() { ending_ = true; }
    void status(const std::string& state);
    bool connected() const { return connected_; }
    bool finished() const { return finished_; }
    const std::string& reader() const { return reader_; }

    // The loop's thread. arm fills the socket to wait on (fd -1: none) and
    // brings `next` forward to when step is due at the latest; step runs
    // after the wait with what the socket reported.
    void arm(Clock::time_point now, pollfd& p, Clock::time_point& next) const;
    void step(short revents);

private:
    struct Flight {
        int mid = 0;
        uint64_t last_seq = 0;  // 0 for a status
        Clock::time_point sent;
        bool acked = false;
    };
    Clock::time_point batch_due(Clock::time_point now) const;
    void open_client(Clock::time_point now);
    void lose(const std::string& why);
    bool serve(short revents);
    void finish();
    void on_connected();
    void on_acked(int mid);
    void publish_status(Clock::time_point now);
    void publish_pending(Clock::time_point now);
    bool publish(const std::string& topic, const std::string& body, bool retain, uint64_t last_seq,
                 Clock::time_point now);
    void say(const std::string& what);

    const MqttConfig c_;
    const std::string reader_, base_;
    const uint16_t index_;
    Outbox& outbox_;
    const int output_;
    const int stop_fd_;
    std::atomic<bool> ending_{false}, finished_{false}, connected_{false};
    std::mutex mu_;  // the two below
    std::string status_ = "connecting";
    bool status_due_ = false;

    // The loop's own.
    mosquitto* m_ = nullptr;
    bool connecting_ = false, failed_ = false;
    std::optional<Clock::time_point> goodbye_since_;  // "offline" published, waiting for its acknowledgement
    std::string why_;  // what failed the link
    Clock::time_point connect_started_, next_try_;
    uhftools::Backoff backoff_;
    std::deque<Flight> flights_;
    uint64_t sent_ = 0;  // the newest seq published on this connection
    std::optional<Clock::time_point> batch_due_;  // when what waits goes, at the latest
    std::vector<Payload> payloads_;
    std::string said_;
};

}  // namespace uhfd
