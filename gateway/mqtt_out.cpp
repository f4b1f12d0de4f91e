#include "mqtt_out.h"

#include <mosquitto.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "oplog.h"
#include "tcp_probe.h"

namespace uhfd {

namespace {

struct LibInit {
    LibInit() { mosquitto_lib_init(); }
    ~LibInit() { mosquitto_lib_cleanup(); }
};

// How long the last status and "offline" get to reach the broker at a stop.
constexpr auto kGoodbyeWait = std::chrono::seconds(2);

std::string error_text(int rc) { return rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc); }

int ms_until(std::chrono::steady_clock::time_point now, std::chrono::steady_clock::time_point when) {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(when - now).count();
    return static_cast<int>(std::clamp<int64_t>(ms, 0, 1000));
}

}  // namespace

MqttOut::MqttOut(const MqttConfig& c, const std::string& reader, uint16_t index, Outbox& outbox)
    : c_(c), base_(c.prefix + "/" + reader + "/"), index_(index), outbox_(outbox), output_(outbox.output("mqtt")) {}

MqttOut::~MqttOut() {
    stop();
    if (wake_fd_ >= 0) close(wake_fd_);
}

bool MqttOut::start(std::string& err) {
    static LibInit init;
    wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_fd_ < 0 || output_ < 0) return (err = "mqtt: cannot start the client", false);
    outbox_.watch(index_, [this] { wake(); });  // new rows end the wait
    thread_ = std::thread(&MqttOut::run, this);
    return true;
}

void MqttOut::end() {
    stop_ = true;
    wake();
}

void MqttOut::stop() {
    if (!thread_.joinable()) return;
    end();
    thread_.join();
}

void MqttOut::status(const std::string& state) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        status_ = state;
        status_due_ = true;
    }
    wake();
}

void MqttOut::wake() {
    const uint64_t one = 1;
    (void)!write(wake_fd_, &one, sizeof one);
}

void MqttOut::say(const std::string& what) {
    if (what == said_) return;  // a broker that stays away is said once
    said_ = what;
    const std::string broker = c_.host + ":" + std::to_string(c_.port);
    const std::string_view reader =
        std::string_view(base_).substr(c_.prefix.size() + 1, base_.size() - c_.prefix.size() - 2);
    if (what == "connected")
        oplog(Level::Info, reader, "broker", {{"state", "connected"}, {"broker", broker}});
    else
        oplog(Level::Warn, reader, "broker", {{"state", "disconnected"}, {"broker", broker}, {"reason", what}});
}

void MqttOut::run() {
    while (!stop_) {
        const auto now = Clock::now();
        if (!m_) {
            if (now < next_try_) {
                sleep_until(next_try_);
                continue;
            }
            open_client(now);
            continue;
        }
        if (!serve(timeout_ms(now))) {
            lose(why_);
            continue;
        }
        const auto after = Clock::now();
        if (connecting_ && after - connect_started_ > kAckWait) {
            lose("the broker did not answer the connect");
        } else if (connected_ && !flights_.empty() && after - flights_.front().sent > kAckWait) {
            lose("the broker acknowledged nothing for " + std::to_string(kAckWait.count()) + " s");
        } else if (connected_) {
            publish_status(after);
            publish_pending(after);
            if (failed_) lose(why_);
        }
    }
    say_goodbye();
}

// A fresh client for every connection: nothing of a lost one (its queue, its
// messages in flight) is carried over; the outbox has all of it.
void MqttOut::open_client(Clock::time_point now) {
    const std::string id = "uhfd-" + std::to_string(getpid()) + "-" + base_;
    m_ = mosquitto_new(id.c_str(), true, this);
    if (!m_) return lose("cannot create an MQTT client");
    const std::string will = base_ + "status";
    mosquitto_will_set(m_, will.c_str(), 7, "offline", c_.qos, true);
    mosquitto_max_inflight_messages_set(m_, kWindow + 4);  // our window, a status and "offline"
    if (!c_.user.empty()) mosquitto_username_pw_set(m_, c_.user.c_str(), c_.password.c_str());
    if (!c_.cafile.empty() &&
        mosquitto_tls_set(m_, c_.cafile.c_str(), nullptr, nullptr, nullptr, nullptr) != MOSQ_ERR_SUCCESS)
        return lose("cannot use " + c_.cafile + " for TLS");
    mosquitto_connect_callback_set(m_, [](mosquitto*, void* self, int rc) {
        auto* me = static_cast<MqttOut*>(self);
        if (rc == 0) return me->on_connected();
        me->failed_ = true;
        me->why_ = std::string("the broker refused the connection: ") + mosquitto_connack_string(rc);
    });
    mosquitto_publish_callback_set(m_,
                                   [](mosquitto*, void* self, int mid) { static_cast<MqttOut*>(self)->on_acked(mid); });
    mosquitto_disconnect_callback_set(m_, [](mosquitto*, void* self, int rc) {
        auto* me = static_cast<MqttOut*>(self);
        me->failed_ = true;
        me->why_ = rc ? "the connection was lost" : "disconnected";
    });
    failed_ = false;
    why_.clear();
    std::string why;
    const int limit_ms = static_cast<int>(std::chrono::milliseconds(kAckWait).count());
    if (!tcp_answers(c_.host, c_.port, limit_ms, wake_fd_, why)) return lose("cannot connect: " + why);
    const int rc = mosquitto_connect(m_, c_.host.c_str(), c_.port, kKeepAliveSeconds);
    if (rc != MOSQ_ERR_SUCCESS) return lose("cannot connect: " + error_text(rc));
    connecting_ = true;  // until the broker's CONNACK
    connect_started_ = now;
}

void MqttOut::lose(const std::string& why) {
    connected_ = false;
    connecting_ = false;
    if (m_) mosquitto_destroy(m_);
    m_ = nullptr;
    flights_.clear();
    pending_since_.reset();
    next_try_ = Clock::now() + backoff_.next();
    if (!stop_) say(why + "; trying again");
}

void MqttOut::sleep_until(Clock::time_point when) {
    pollfd p{wake_fd_, POLLIN, 0};
    if (poll(&p, 1, ms_until(Clock::now(), when)) > 0) {
        uint64_t n;
        (void)!read(wake_fd_, &n, sizeof n);
    }
}

// One wait on the socket and the wake-up, then whatever libmosquitto has to
// read, write or keep alive; its callbacks run here, on this thread.
bool MqttOut::serve(int timeout) {
    const int fd = mosquitto_socket(m_);
    if (fd < 0) return (why_ = why_.empty() ? "the connection closed" : why_, false);
    const short events = POLLIN | (mosquitto_want_write(m_) ? POLLOUT : 0);
    pollfd p[2] = {{fd, events, 0}, {wake_fd_, POLLIN, 0}};
    if (poll(p, 2, timeout) < 0 && errno != EINTR) return (why_ = std::strerror(errno), false);
    if (p[1].revents) {
        uint64_t n;
        (void)!read(wake_fd_, &n, sizeof n);
    }
    int rc = MOSQ_ERR_SUCCESS;
    if (p[0].revents & (POLLIN | POLLERR | POLLHUP)) rc = mosquitto_loop_read(m_, 1);
    if (rc == MOSQ_ERR_SUCCESS && m_ && (p[0].revents & POLLOUT)) rc = mosquitto_loop_write(m_, 1);
    if (rc == MOSQ_ERR_SUCCESS) rc = mosquitto_loop_misc(m_);
    if (rc != MOSQ_ERR_SUCCESS) return (why_ = failed_ ? why_ : error_text(rc), false);
    return !failed_;
}

int MqttOut::timeout_ms(Clock::time_point now) const {
    if (connecting_) return ms_until(now, connect_started_ + kAckWait);
    auto next = now + std::chrono::seconds(1);  // keep-alive work, at the least
    if (!flights_.empty()) next = std::min(next, flights_.front().sent + kAckWait);
    if (pending_since_ && flights_.size() < kWindow)
        next = std::min(next, *pending_since_ + std::chrono::milliseconds(c_.batch_ms));
    return ms_until(now, next);
}

void MqttOut::on_connected() {
    connecting_ = false;
    connected_ = true;
    backoff_.reset();
    sent_ = outbox_.delivered_up_to(output_, index_);  // what was in flight goes again
    pending_since_.reset();
    {
        std::lock_guard<std::mutex> lock(mu_);
        status_due_ = true;  // before the backlog
    }
    say("connected");
}

void MqttOut::on_acked(int mid) {
    auto it = std::find_if(flights_.begin(), flights_.end(), [mid](const Flight& f) { return f.mid == mid; });
    // Unknown: the publish still under way, whose QoS 0 write completed inside the call.
    if (it == flights_.end())
        it = std::find_if(flights_.begin(), flights_.end(), [](const Flight& f) { return !f.mid; });
    if (it != flights_.end()) it->acked = true;
    while (!flights_.empty() && flights_.front().acked) {
        if (flights_.front().last_seq) outbox_.delivered(output_, index_, flights_.front().last_seq);
        flights_.pop_front();
    }
}

void MqttOut::publish_status(Clock::time_point now) {
    std::string state;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (!status_due_) return;
        status_due_ = false;
        state = status_;
    }
    publish(base_ + "status", state, true, 0, now);
}

void MqttOut::publish_pending(Clock::time_point now) {
    while (!failed_ && flights_.size() < kWindow) {
        const uint64_t written = outbox_.written_up_to(index_);
        if (written <= sent_) return pending_since_.reset();
        if (!pending_since_) pending_since_ = now;
        if (written - sent_ < c_.batch_size && now - *pending_since_ < std::chrono::milliseconds(c_.batch_ms)) return;
        items_.clear();
        outbox_.fetch(index_, sent_, c_.batch_size, items_);
        if (items_.empty()) {
            sent_ = written;  // dropped before it could go
            continue;
        }
        payloads_.clear();
        mqtt_payloads(items_, c_.batch_size, payloads_);
        for (const Payload& p : payloads_) {
            if (flights_.size() >= kWindow) return;
            if (!publish(base_ + (p.event ? "events" : "reads"), p.body, false, p.last_seq, now)) return;
            sent_ = p.last_seq;
        }
        pending_since_.reset();
    }
}

bool MqttOut::publish(const std::string& topic, const std::string& body, bool retain, uint64_t last_seq,
                      Clock::time_point now) {
    // The flight is noted first: the library writes at once when it can, and
    // at QoS 0 that is the acknowledgement, called before publish returns.
    flights_.push_back({0, last_seq, now, false});
    int mid = 0;
    const int rc =
        mosquitto_publish(m_, &mid, topic.c_str(), static_cast<int>(body.size()), body.data(), c_.qos, retain);
    auto mine = std::find_if(flights_.begin(), flights_.end(), [](const Flight& f) { return !f.mid; });
    if (rc != MOSQ_ERR_SUCCESS) {
        if (mine != flights_.end()) flights_.erase(mine);
        failed_ = true;
        why_ = "cannot publish: " + error_text(rc);
        return false;
    }
    if (mine != flights_.end()) mine->mid = mid;
    return true;
}

void MqttOut::say_goodbye() {
    if (!m_) return;
    if (connected_) {
        const auto now = Clock::now();
        publish_status(now);
        publish(base_ + "status", "offline", true, 0, now);
        while (!flights_.empty() && Clock::now() - now < kGoodbyeWait && serve(50)) {
        }
        mosquitto_disconnect(m_);
        mosquitto_loop_write(m_, 1);
    }
    connected_ = false;
    mosquitto_destroy(m_);
    m_ = nullptr;
}

}  // namespace uhfd
