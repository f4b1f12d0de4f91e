#include "mqtt_clients.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

namespace uhfd {

namespace {

void signal_fd(int fd) {
    const uint64_t one = 1;
    (void)!write(fd, &one, sizeof one);
}

}  // namespace

MqttClients::MqttClients(const MqttConfig& c, Outbox& outbox)
    : c_(c),
      outbox_(outbox),
      wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      stop_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

MqttClients::~MqttClients() {
    stop();
    for (int fd : {wake_fd_, stop_fd_})
        if (fd >= 0) close(fd);
}

bool MqttClients::add(const std::string& reader, uint16_t index, std::string& err) {
    if (wake_fd_ < 0 || stop_fd_ < 0 || outbox_.output("mqtt") < 0)
        return (err = "mqtt: cannot start the client", false);
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (stopping_) return (err = "mqtt: stopping", false);
        end_locked(reader);
        live_[reader] = std::make_unique<MqttOut>(c_, reader, index, outbox_, stop_fd_);
        if (!thread_.joinable()) {
            outbox_.watch([this] { wake(); });  // new rows end the wait
            thread_ = std::thread(&MqttClients::run, this);
        }
    }
    wake();
    return true;
}

void MqttClients::end_locked(const std::string& reader) {
    auto it = live_.find(reader);
    if (it == live_.end()) return;
    it->second->end();
    ended_.push_back(std::move(it->second));
    live_.erase(it);
}

void MqttClients::remove(const std::string& reader) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        end_locked(reader);
    }
    wake();
}

void MqttClients::status(const std::string& reader, const std::string& state) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        auto it = live_.find(reader);
        if (it == live_.end()) return;
        it->second->status(state);
    }
    wake();
}

std::vector<std::pair<std::string, bool>> MqttClients::connected() const {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<std::pair<std::string, bool>> out;
    for (const auto& [name, m] : live_) out.emplace_back(name, m->connected());
    return out;
}

void MqttClients::stop() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        stopping_ = true;
        for (auto& [name, m] : live_) m->end();  // all say goodbye at once
    }
    signal_fd(stop_fd_);  // a connect under way gives up
    wake();
    if (thread_.joinable()) thread_.join();
}

void MqttClients::wake() { signal_fd(wake_fd_); }

void MqttClients::run() {
    using Clock = MqttOut::Clock;
    std::vector<MqttOut*> clients;
    std::vector<pollfd> fds;
    for (;;) {
        clients.clear();
        {
            std::lock_guard<std::mutex> lock(mu_);
            std::erase_if(ended_, [](const auto& m) { return m->finished(); });
            bool all_done = ended_.empty();
            for (auto& m : ended_) clients.push_back(m.get());
            for (auto& entry : live_) {
                MqttOut* m = entry.second.get();
                all_done = all_done && m->finished();
                // A new client waits until the ended one of its name said "offline".
                const bool after_goodbye = std::none_of(ended_.begin(), ended_.end(),
                                                        [m](const auto& e) { return e->reader() == m->reader(); });
                if (after_goodbye) clients.push_back(m);
            }
            if (stopping_ && all_done) return;
        }
        const auto now = Clock::now();
        auto next = now + std::chrono::seconds(1);  // keep-alive work, at the least
        fds.resize(clients.size() + 1);
        for (size_t i = 0; i < clients.size(); i++) clients[i]->arm(now, fds[i], next);
        fds.back() = {wake_fd_, POLLIN, 0};
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
        // Rounded up: a batch due in 0.4 ms waits for it, not spins.
        const int timeout = next <= now ? 0 : static_cast<int>(std::min<int64_t>(wait + 1, 1000));
        if (poll(fds.data(), fds.size(), timeout) > 0 && fds.back().revents) {
            uint64_t n;
            (void)!read(wake_fd_, &n, sizeof n);
        }
        for (size_t i = 0; i < clients.size(); i++) clients[i]->step(fds[i].revents);
    }
}

}  // namespace uhfd
