#include "mqtt_out.h"

#include <mosquitto.h>
#include <poll.h>
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

}  // namespace

// A batch waits at most batch_ms, until the next multiple of it on the clock:
// every reader's batches fall due together, and one wake-up of the loop
// publishes them all.
MqttOut::Clock::time_point MqttOut::batch_due(Clock::time_point now) const {
    const auto step = std::chrono::duration_cast<Clock::duration>(std::chrono::milliseconds(c_.batch_ms));
    if (step.count() <= 0) return now;
    return Clock::time_point((now.time_since_epoch() / step + 1) * step);
}

MqttOut::MqttOut(const MqttConfig& c, const std::string& reader, uint16_t index, Outbox& outbox, int stop_fd)
    : c_(c),
      reader_(reader),
      base_(c.prefix + "/" + reader + "/"),
      index_(index),
      outbox_(outbox),
      output_(outbox.output("mqtt")),
      stop_fd_(stop_fd) {
    static LibInit init;
}

MqttOut::~MqttOut() {
    if (m_) mosquitto_destroy(m_);
}

void MqttOut::status(const std::string& state) {
    std::lock_guard<std::mutex> lock(mu_);
    status_ = state;
    status_due_ = true;
}

void MqttOut::say(const std::string& what) {
    if (what == said_) return;  // a broker that stays away is said once
    said_ = what;
    const std::string broker = c_.host + ":" + std::to_string(c_.port);
    if (what == "connected")
        oplog(Level::Info, reader_, "broker", {{"state", "connected"}, {"broker", broker}});
    else
        oplog(Level::Warn, reader_, "broker", {{"state", "disconnected"}, {"broker", broker}, {"reason", what}});
}

void MqttOut::arm(Clock::time_point now, pollfd& p, Clock::time_point& next) const {
    p = {-1, 0, 0};
    if (finished_) return;
    if (ending_ && !goodbye_since_) {
        next = now;  // the goodbye starts at once
        return;
    }
    if (!m_) {
        next = std::min(next, next_try_);
        return;
    }
    const int fd = mosquitto_socket(m_);
    if (fd < 0) {
        next = now;  // step finds the connection gone
        return;
    }
    p = {fd, static_cast<short>(POLLIN | (mosquitto_want_write(m_) ? POLLOUT : 0)), 0};
    if (connecting_) next = std::min(next, connect_started_ + kAckWait);
    if (!flights_.empty()) next = std::min(next, flights_.front().sent + kAckWait);
    if (batch_due_ && flights_.size() < kWindow) next = std::min(next, *batch_due_);
    if (goodbye_since_) next = std::min(next, *goodbye_since_ + kGoodbyeWait);
}

void MqttOut::step(short revents) {
    if (finished_) return;
    const auto now = Clock::now();
    if (!m_) {
        if (ending_) return finish();
        if (now >= next_try_) open_client(now);
        return;
    }
    if (!serve(revents)) {
        lose(why_);
        if (ending_) finish();
        return;
    }
    const auto after = Clock::now();
    if (goodbye_since_) {
        if (flights_.empty() || after - *goodbye_since_ >= kGoodbyeWait) finish();
    } else if (connecting_ && after - connect_started_ > kAckWait) {
        lose("the broker did not answer the connect");
    } else if (connected_ && !flights_.empty() && after - flights_.front().sent > kAckWait) {
        lose("the broker acknowledged nothing for " + std::to_string(kAckWait.count()) + " s");
    } else if (connected_ && ending_) {
        publish_status(after);
        publish(base_ + "status", "offline", true, 0, after);
        goodbye_since_ = after;
    } else if (connected_) {
        publish_status(after);
        publish_pending(after);
        if (failed_) lose(why_);
    }
    if (ending_ && (!m_ || !connected_ || failed_)) finish();
}

// A fresh client for every connection: nothing of a lost one (its queue, its
// messages in flight) is carried over; the outbox has all of it. The probe
// before the connect holds the loop (every client's) for up to kAckWait when
// the broker's host drops packets; all clients go to that one broker.
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
    if (!tcp_answers(c_.host, c_.port, limit_ms, stop_fd_, why)) return lose("cannot connect: " + why);
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
    batch_due_.reset();
    next_try_ = Clock::now() + backoff_.next();
    if (!ending_) say(why + "; trying again");
}

void MqttOut::finish() {
    if (m_) {
        if (connected_) {
            mosquitto_disconnect(m_);
            mosquitto_loop_write(m_, 1);
        }
        mosquitto_destroy(m_);
        m_ = nullptr;
    }
    connected_ = false;
    finished_ = true;
}

// Whatever libmosquitto has to read, write or keep alive after the wait; its
// callbacks run here, on the loop's thread.
bool MqttOut::serve(short revents) {
    if (mosquitto_socket(m_) < 0) return (why_ = why_.empty() ? "the connection closed" : why_, false);
    int rc = MOSQ_ERR_SUCCESS;
    if (revents & (POLLIN | POLLERR | POLLHUP)) rc = mosquitto_loop_read(m_, 1);
    if (rc == MOSQ_ERR_SUCCESS && m_ && (revents & POLLOUT)) rc = mosquitto_loop_write(m_, 1);
    if (rc == MOSQ_ERR_SUCCESS) rc = mosquitto_loop_misc(m_);
    if (rc != MOSQ_ERR_SUCCESS) return (why_ = failed_ ? why_ : error_text(rc), false);
    return !failed_;
}

void MqttOut::on_connected() {
    connecting_ = false;
    connected_ = true;
    backoff_.reset();
    sent_ = outbox_.delivered_up_to(output_, index_);  // what was in flight goes again
    batch_due_.reset();
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
        if (written <= sent_) return batch_due_.reset();
        if (!batch_due_) batch_due_ = batch_due(now);
        const bool due = now >= *batch_due_;
        if (written - sent_ < c_.batch_size && !due) return;
        // Whole batches for every free place in the window, in one fetch: a
        // row of the outbox holds many batches, and each fetch reads it whole.
        const uint64_t waiting = written - sent_;
        const uint64_t room = static_cast<uint64_t>(c_.batch_size) * (kWindow - flights_.size());
        const uint64_t want = std::min(due ? waiting : waiting - waiting % c_.batch_size, room);
        payloads_.clear();
        MqttPayloads cut(c_.batch_size, payloads_);
        outbox_.fetch(index_, sent_, static_cast<size_t>(want),
                      [&cut](uint64_t seq, bool event, std::string_view json) { cut.add(seq, event, json); });
        cut.finish();
        if (payloads_.empty()) {
            sent_ = written;  // dropped before it could go
            continue;
        }
        for (const Payload& p : payloads_) {
            if (flights_.size() >= kWindow) return;
            if (!publish(base_ + (p.event ? "events" : "reads"), p.body, false, p.last_seq, now)) return;
            sent_ = p.last_seq;
        }
        batch_due_.reset();
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

}  // namespace uhfd
