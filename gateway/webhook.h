// The webhook output: each reader's reads and events, from the outbox, POSTed
// as a JSON array (seq order) to one URL with libcurl, at most batch_size
// items a request and at least every batch_ms while any wait. Any 2xx
// delivers the batch; anything else, or no answer in timeout_ms, is retried
// after the project's backoff (1 s doubling to 30 s). One thread, one request
// at a time, the readers in turn (those a reload adds too).
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "config.h"
#include "outbox.h"

namespace uhfd {

class Webhook {
public:
    Webhook(const WebhookConfig& c, Outbox& outbox);
    ~Webhook();
    bool start(std::string& err);
    void stop();
    uint64_t failures() const { return failures_; }

private:
    using Clock = std::chrono::steady_clock;
    void run();
    // Posts the reader's next batch when one is due; false when a post failed.
    bool serve(uint16_t reader, Clock::time_point now, Clock::time_point& next);
    bool post(const std::string& body, std::string& why);
    void wait_until(Clock::time_point when);
    void wake();
    void say(const std::string& what);

    const WebhookConfig c_;
    Outbox& outbox_;
    const int output_;
    std::vector<std::optional<Clock::time_point>> pending_since_;  // by reader index, the outbox's kSlots
    std::vector<OutboxItem> items_;
    void* curl_ = nullptr;
    std::string said_;
    std::atomic<uint64_t> failures_{0};
    std::mutex mu_;
    std::condition_variable cv_;
    bool woken_ = false, stop_ = false;
    std::thread thread_;
};

}  // namespace uhfd
