#include "mqtt_clients.h"

namespace uhfd {

// Its "offline" must not come after the new client's status.
bool MqttClients::add(const std::string& reader, uint16_t index, std::string& err) {
    remove(reader);
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& [name, m] : ended_)
        if (name == reader) m->stop();
    auto m = std::make_unique<MqttOut>(c_, reader, index, outbox_);
    if (!m->start(err)) return false;
    live_[reader] = std::move(m);
    return true;
}

void MqttClients::remove(const std::string& reader) {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = live_.find(reader);
    if (it == live_.end()) return;
    it->second->end();
    ended_.emplace_back(reader, std::move(it->second));
    live_.erase(it);
}

void MqttClients::status(const std::string& reader, const std::string& state) {
    std::lock_guard<std::mutex> lock(mu_);
    if (auto it = live_.find(reader); it != live_.end()) it->second->status(state);
}

std::vector<std::pair<std::string, bool>> MqttClients::connected() const {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<std::pair<std::string, bool>> out;
    for (const auto& [name, m] : live_) out.emplace_back(name, m->connected());
    return out;
}

void MqttClients::stop() {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& [name, m] : live_) m->end();  // all say goodbye at once
    for (auto& [name, m] : live_) m->stop();
    for (auto& [name, m] : ended_) m->stop();
}

}  // namespace uhfd
