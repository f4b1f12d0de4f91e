#include "webhook.h"

#include <curl/curl.h>

#include <cstdio>

#include "backoff.h"
#include "hmac_sign.h"
#include "oplog.h"
#include "payloads.h"

namespace uhfd {

namespace {

size_t discard(char*, size_t size, size_t n, void*) { return size * n; }

struct CurlInit {
    CurlInit() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlInit() { curl_global_cleanup(); }
};

}  // namespace

Webhook::Webhook(const WebhookConfig& c, Outbox& outbox)
    : c_(c), outbox_(outbox), output_(outbox.output("webhook")), pending_since_(Outbox::kSlots) {}

Webhook::~Webhook() {
    stop();
    if (curl_) curl_easy_cleanup(static_cast<CURL*>(curl_));
}

bool Webhook::start(std::string& err) {
    static CurlInit init;  // before any thread: libcurl's global setup is not thread-safe
    curl_ = curl_easy_init();
    if (!curl_ || output_ < 0) return (err = "webhook: cannot start libcurl", false);
    outbox_.watch([this] { wake(); });
    thread_ = std::thread(&Webhook::run, this);
    return true;
}

void Webhook::stop() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        stop_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void Webhook::wake() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        woken_ = true;
    }
    cv_.notify_all();
}

void Webhook::wait_until(Clock::time_point when) {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait_until(lock, when, [&] { return stop_ || woken_; });
    woken_ = false;
}

void Webhook::say(const std::string& what) {
    if (what == said_) return;  // an endpoint that stays down is said once
    said_ = what;
    if (what == "delivering")
        oplog(Level::Info, "", "webhook", {{"state", "delivering"}, {"url", c_.url}});
    else
        oplog(Level::Warn, "", "webhook", {{"state", "failing"}, {"url", c_.url}, {"reason", what}});
}

void Webhook::run() {
    uhftools::Backoff backoff;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (stop_) return;
        }
        const auto now = Clock::now();
        auto next = now + std::chrono::seconds(1);
        bool failed = false;
        const size_t readers = outbox_.readers();
        for (uint16_t r = 0; r < readers && !failed; r++) failed = !serve(r, now, next);
        if (failed) {
            next = Clock::now() + backoff.next();
            std::unique_lock<std::mutex> lock(mu_);
            cv_.wait_until(lock, next, [&] { return stop_; });  // new rows do not cut a backoff short
            continue;
        }
        if (!said_.empty() && said_ != "delivering") say("delivering");
        backoff.reset();
        wait_until(next);
    }
}

bool Webhook::serve(uint16_t reader, Clock::time_point now, Clock::time_point& next) {
    const uint64_t done = outbox_.delivered_up_to(output_, reader);
    const uint64_t written = outbox_.written_up_to(reader);
    auto& since = pending_since_[reader];
    if (written <= done) return since.reset(), true;
    if (!since) since = now;
    const auto due = *since + std::chrono::milliseconds(c_.batch_ms);
    if (written - done < c_.batch_size && now < due) {
        next = std::min(next, due);
        return true;
    }
    items_.clear();
    outbox_.fetch(reader, done, c_.batch_size, items_);
    if (items_.empty()) {
        outbox_.delivered(output_, reader, written);  // dropped before it could go
        return true;
    }
    std::string why;
    if (!post(json_array(items_), why)) {
        failures_++;
        say(why + "; trying again");
        return false;
    }
    outbox_.delivered(output_, reader, items_.back().seq);
    since.reset();
    next = now;  // more may be waiting
    return true;
}

bool Webhook::post(const std::string& body, std::string& why) {
    auto* curl = static_cast<CURL*>(curl_);
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    if (!c_.secret.empty())
        headers = curl_slist_append(headers, ("X-Uhfd-Signature: sha256=" + hmac_sha256_hex(c_.secret, body)).c_str());
    curl_easy_setopt(curl, CURLOPT_URL, c_.url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(c_.timeout_ms));
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discard);
    const CURLcode rc = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_slist_free_all(headers);
    if (rc != CURLE_OK) return (why = curl_easy_strerror(rc), false);
    if (status < 200 || status > 299) return (why = "the endpoint answered " + std::to_string(status), false);
    return true;
}

}  // namespace uhfd
