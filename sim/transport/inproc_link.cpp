#include <algorithm>

#include "transport/servers.h"

namespace uhfsim {

InProcLink::InProcLink(SimOptions opts, std::function<TimePoint()> clock) : clock_(std::move(clock)), session_(opts) {}

void InProcLink::write(const uint8_t* bytes, size_t len) {
    std::lock_guard<std::mutex> lock(mu_);
    session_.receive(bytes, len, clock_());
    service_locked();
}

void InProcLink::service_locked() {
    session_.service(clock_(), [this](const uint8_t* p, size_t n) { out_.insert(out_.end(), p, p + n); });
}

size_t InProcLink::read(uint8_t* buf, size_t cap) {
    std::lock_guard<std::mutex> lock(mu_);
    service_locked();
    const size_t n = std::min(cap, out_.size());
    std::copy_n(out_.begin(), n, buf);
    out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(n));
    return n;
}

std::vector<uint8_t> InProcLink::read_all() {
    std::lock_guard<std::mutex> lock(mu_);
    service_locked();
    std::vector<uint8_t> v(out_.begin(), out_.end());
    out_.clear();
    return v;
}

std::optional<TimePoint> InProcLink::next_deadline() const {
    std::lock_guard<std::mutex> lock(mu_);
    return session_.next_deadline();
}

bool InProcLink::closed() const {
    std::lock_guard<std::mutex> lock(mu_);
    return session_.closed() && out_.empty();
}

EngineStats InProcLink::stats() const {
    std::lock_guard<std::mutex> lock(mu_);
    return session_.reader().stats();
}

void InProcLink::set_faults(const FaultOptions& f) {
    std::lock_guard<std::mutex> lock(mu_);
    session_.set_faults(f);
}

void InProcLink::with_reader(const std::function<void(VirtualReader&)>& fn) {
    std::lock_guard<std::mutex> lock(mu_);
    fn(session_.reader());
}

}  // namespace uhfsim
