#include "mqtt_out.h"

#include <mosquitto.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace uhfd {

namespace {

struct LibInit {
    LibInit() { mosquitto_lib_init(); }
    ~LibInit() { mosquitto_lib_cleanup(); }
};

}  // namespace

MqttOut::MqttOut(const MqttConfig& c, const std::string& reader) : c_(c), base_(c.prefix + "/" + reader + "/") {}

MqttOut::~MqttOut() { stop(); }

bool MqttOut::start(std::string& err) {
    static LibInit init;
    std::string id = "uhfd-" + std::to_string(getpid()) + "-" + base_;
    m_ = mosquitto_new(id.c_str(), true, this);
    if (!m_) {
        err = "cannot create an MQTT client";
        return false;
    }
    std::string will = base_ + "status";
    mosquitto_will_set(m_, will.c_str(), 7, "offline", c_.qos, true);
    if (!c_.user.empty()) mosquitto_username_pw_set(m_, c_.user.c_str(), c_.password.c_str());
    if (!c_.cafile.empty() &&
        mosquitto_tls_set(m_, c_.cafile.c_str(), nullptr, nullptr, nullptr, nullptr) != MOSQ_ERR_SUCCESS) {
        err = "mqtt: cannot use " + c_.cafile + " for TLS";
        return false;
    }
    // The client library reconnects by itself: 1 s doubling to 30 s.
    mosquitto_reconnect_delay_set(m_, 1, 30, true);
    mosquitto_connect_callback_set(m_, [](mosquitto*, void* self, int rc) {
        auto* me = static_cast<MqttOut*>(self);
        {
            std::lock_guard<std::mutex> lock(me->mu_);
            me->connected_ = rc == 0;
        }
        me->cv_.notify_all();
    });
    mosquitto_disconnect_callback_set(m_, [](mosquitto*, void* self, int) {
        auto* me = static_cast<MqttOut*>(self);
        std::lock_guard<std::mutex> lock(me->mu_);
        me->connected_ = false;
    });
    mosquitto_connect_async(m_, c_.host.c_str(), c_.port, 30);  // a broker that is down now is retried
    if (mosquitto_loop_start(m_) != MOSQ_ERR_SUCCESS) {
        err = "mqtt: cannot start the client thread";
        return false;
    }
    thread_ = std::thread(&MqttOut::flusher, this);
    return true;
}

void MqttOut::stop() {
    if (!m_) return;
    {
        std::lock_guard<std::mutex> lock(mu_);
        stop_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
    flush_batch();
    drain();
    bool up = connected();
    if (up) {
        int mid = 0;
        mosquitto_publish(m_, &mid, (base_ + "status").c_str(), 7, "offline", c_.qos, true);
        // Give the loop thread time to send what is queued before the disconnect.
        for (int i = 0; i < 50 && mosquitto_want_write(m_); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        mosquitto_disconnect(m_);
    }
    mosquitto_loop_stop(m_, !up);
    mosquitto_destroy(m_);
    m_ = nullptr;
}

void MqttOut::read(std::string_view json) {
    std::lock_guard<std::mutex> lock(mu_);
    batch_ += batch_n_ ? ',' : '[';
    batch_ += json;
    if (++batch_n_ < c_.batch_size) return;
    batch_ += ']';
    full_.push_back(std::move(batch_));
    batch_.clear();
    batch_n_ = 0;
    cv_.notify_all();
}

void MqttOut::event(std::string_view json) { enqueue({base_ + "events", std::string(json), false}); }

void MqttOut::status(const std::string& state) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        last_status_ = state;
    }
    enqueue({base_ + "status", state, true});
}

void MqttOut::enqueue(Message m) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        // Status is state, not data: only its latest value is worth sending,
        // and a full queue gives up its oldest read or event, never a status.
        if (m.retain) std::erase_if(queue_, [&](const Message& q) { return q.retain && q.topic == m.topic; });
        auto oldest_data = std::find_if(queue_.begin(), queue_.end(), [](const Message& q) { return !q.retain; });
        if (queue_.size() >= c_.queue_max && oldest_data != queue_.end()) {
            queue_.erase(oldest_data);  // memory stays bounded
            dropped_++;
        }
        queue_.push_back(std::move(m));
    }
    cv_.notify_all();
}

void MqttOut::flush_batch() {
    std::vector<std::string> full;
    {
        std::lock_guard<std::mutex> lock(mu_);
        full.swap(full_);
        if (batch_n_) full.push_back(std::move(batch_) + "]");
        batch_.clear();
        batch_n_ = 0;
    }
    for (std::string& payload : full) enqueue({base_ + "reads", std::move(payload), false});
}

void MqttOut::drain() {
    std::unique_lock<std::mutex> lock(mu_);
    while (connected_ && !queue_.empty()) {
        Message m = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        int rc = mosquitto_publish(m_, nullptr, m.topic.c_str(), static_cast<int>(m.payload.size()), m.payload.data(),
                                   c_.qos, m.retain);
        lock.lock();
        if (rc != MOSQ_ERR_SUCCESS) {
            queue_.push_front(std::move(m));  // the link dropped under us: keep it for later
            break;
        }
    }
}

void MqttOut::flusher() {
    bool was_connected = false;
    auto next_flush = std::chrono::steady_clock::now();
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mu_);
            cv_.wait_until(lock, next_flush, [&] { return stop_ || !full_.empty(); });
            if (stop_) return;
            if (connected_ && !was_connected) queue_.push_front({base_ + "status", last_status_, true});
            was_connected = connected_;
        }
        flush_batch();
        drain();
        next_flush = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(c_.batch_ms, 1));
    }
}

size_t MqttOut::queued() const {
    std::lock_guard<std::mutex> lock(mu_);
    return queue_.size();
}

uint64_t MqttOut::dropped() const {
    std::lock_guard<std::mutex> lock(mu_);
    return dropped_;
}

bool MqttOut::connected() const {
    std::lock_guard<std::mutex> lock(mu_);
    return connected_;
}

}  // namespace uhfd
