#include "http_wait.h"

namespace uhfd {

void Waiting::park() {
    std::lock_guard<std::mutex> lock(mu_);
    parked_ = true;
    MHD_suspend_connection(conn_);
}

void Waiting::settle(const Outcome& o) {
    std::lock_guard<std::mutex> lock(mu_);
    if (outcome_) return;
    outcome_ = o;
    if (parked_) MHD_resume_connection(conn_);
    parked_ = false;
}

std::optional<Outcome> Waiting::outcome() const {
    std::lock_guard<std::mutex> lock(mu_);
    return outcome_;
}

bool WaitingList::add(const std::shared_ptr<Waiting>& w) {
    std::lock_guard<std::mutex> lock(mu_);
    if (stopping_) return false;
    waiting_.insert(w);
    return true;
}

void WaitingList::remove(const std::shared_ptr<Waiting>& w) {
    std::lock_guard<std::mutex> lock(mu_);
    waiting_.erase(w);
    if (waiting_.empty()) answered_.notify_all();
}

void WaitingList::settle_all(const Outcome& o) {
    std::lock_guard<std::mutex> lock(mu_);
    stopping_ = true;
    for (const std::shared_ptr<Waiting>& w : waiting_) w->settle(o);
}

void WaitingList::wait_answered(std::chrono::milliseconds at_most) {
    std::unique_lock<std::mutex> lock(mu_);
    answered_.wait_for(lock, at_most, [this] { return waiting_.empty(); });
}

}  // namespace uhfd
