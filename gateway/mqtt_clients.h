// The readers' MQTT clients, one each by name: made at start-up and for each
// reader a reload adds, ended when a reload removes one. The supervisor's
// thread adds, removes and passes link states; the HTTP thread reads them. An
// ended client is kept until stop, so a removal never waits on its goodbye.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "mqtt_out.h"

namespace uhfd {

class MqttClients {
public:
    MqttClients(const MqttConfig& c, Outbox& outbox) : c_(c), outbox_(outbox) {}
    // Starts the client of the reader at index; its status goes first. An
    // earlier client of the name finishes its goodbye before.
    bool add(const std::string& reader, uint16_t index, std::string& err);
    // Its latest status and "offline", then the client ends.
    void remove(const std::string& reader);
    void status(const std::string& reader, const std::string& state);
    // Whether each reader's client is connected, by name.
    std::vector<std::pair<std::string, bool>> connected() const;
    // Every client says offline; waits for all.
    void stop();

private:
    const MqttConfig c_;
    Outbox& outbox_;
    mutable std::mutex mu_;
    std::map<std::string, std::unique_ptr<MqttOut>> live_;
    std::vector<std::pair<std::string, std::unique_ptr<MqttOut>>> ended_;
};

}  // namespace uhfd
