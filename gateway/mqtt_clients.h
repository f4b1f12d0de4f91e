// The readers' MQTT clients, one each by name, and the one thread that drives
// them all: one wait on every client's socket, a wake-up (new rows in the
// outbox, a status, a client added or ended) and the earliest time one of
// them is due. Clients are made at start-up and for each reader a reload
// adds, and ended when a reload removes one. The supervisor's thread adds,
// removes and passes link states; the HTTP thread reads them. An ended client
// says goodbye on the loop, so a removal never waits for it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mqtt_out.h"

namespace uhfd {

class MqttClients {
public:
    MqttClients(const MqttConfig& c, Outbox& outbox);
    ~MqttClients();
    MqttClients(const MqttClients&) = delete;
    MqttClients& operator=(const MqttClients&) = delete;
    // Starts the client of the reader at index; its status goes first. It
    // connects once an earlier client of the name has said its goodbye.
    bool add(const std::string& reader, uint16_t index, std::string& err);
    // Its latest status and "offline", then the client ends.
    void remove(const std::string& reader);
    void status(const std::string& reader, const std::string& state);
    // Whether each reader's client is connected, by name.
    std::vector<std::pair<std::string, bool>> connected() const;
    // Every client says offline; waits for all.
    void stop();

private:
    void run();
    void wake();
    void end_locked(const std::string& reader);

    const MqttConfig c_;
    Outbox& outbox_;
    int wake_fd_ = -1, stop_fd_ = -1;  // eventfds
    mutable std::mutex mu_;            // the three below
    std::map<std::string, std::unique_ptr<MqttOut>> live_;
    std::vector<std::unique_ptr<MqttOut>> ended_;  // destroyed by the loop once finished
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace uhfd
