#include "transport/session.h"

#include <algorithm>

namespace uhfsim {

static EngineOptions with_ignores(EngineOptions e, const FaultOptions& f) {
    e.ignored_codes.insert(f.ignore_codes.begin(), f.ignore_codes.end());
    return e;
}

Session::Session(const SimOptions& opts)
    : Session(std::make_shared<Radio>(opts.tags, opts.engine.state, opts.engine.seed), opts) {}

Session::Session(std::shared_ptr<Radio> radio, const SimOptions& opts)
    : reader_(std::move(radio), with_ignores(opts.engine, opts.faults)),
      filter_(opts.faults),
      base_ignored_(opts.engine.ignored_codes) {
    reader_.set_output([this](const uint8_t* p, size_t n) { filter_.push(p, n, now_); });
}

void Session::set_faults(const FaultOptions& f) {
    filter_.set_options(f);
    auto& ignored = reader_.options().ignored_codes;
    ignored = base_ignored_;
    ignored.insert(f.ignore_codes.begin(), f.ignore_codes.end());
}

void Session::receive(const uint8_t* bytes, size_t len, TimePoint now) {
    std::lock_guard<std::mutex> lock(reader_.radio()->mu);
    now_ = std::max(now_, now);
    reader_.feed(bytes, len, now_);
}

void Session::service(TimePoint now, const Write& write, bool engine_may_emit) {
    std::lock_guard<std::mutex> lock(reader_.radio()->mu);
    now_ = std::max(now_, now);
    if (engine_may_emit) reader_.pump(now_);
    filter_.drain(now_, write);
}

std::optional<TimePoint> Session::next_deadline() const {
    std::lock_guard<std::mutex> lock(reader_.radio()->mu);
    auto a = reader_.next_deadline();
    auto b = filter_.next_deadline();
    if (!a) return b;
    if (!b) return a;
    return std::min(*a, *b);
}

}  // namespace uhfsim
