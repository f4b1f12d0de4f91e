// One link as a transport sees it: an engine link plus its fault filter. A TCP
// client, the pty and an in-process link each own one; sessions made on one
// Radio are links to the same reader, and each call takes the radio's lock.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "engine/virtual_reader.h"
#include "transport/fault_filter.h"

namespace uhfsim {

struct SimOptions {
    TagField tags;         // the field of the reader the sessions share
    EngineOptions engine;  // rate, inventory settings, delivery, trace
    FaultOptions faults;
    std::string host = "127.0.0.1";  // TCP listen address
    uint16_t port = 0;               // 0 = ephemeral
    uint32_t baud = 115200;          // pty output pacing: baud / 10 bytes per second
    uint32_t chunk = 0;              // pty: bytes per write, as a UART hands them over (0: ~5 ms of line)
};

class Session {
public:
    using Write = FaultFilter::Write;

    // A reader of its own, made from opts.
    explicit Session(const SimOptions& opts);
    // A link to the reader behind `radio`.
    Session(std::shared_ptr<Radio> radio, const SimOptions& opts);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void receive(const uint8_t* bytes, size_t len, TimePoint now);
    // Runs the engine's due work (unless the transport is backed up), then
    // passes the writes due by `now` to `write`.
    void service(TimePoint now, const Write& write, bool engine_may_emit = true);
    std::optional<TimePoint> next_deadline() const;
    bool closed() const { return filter_.closed(); }

    void set_faults(const FaultOptions& f);
    // Runs fn on the reader under the radio's lock.
    template <typename F>
    auto with_reader(F&& fn) {
        std::lock_guard<std::mutex> lock(reader_.radio()->mu);
        return fn(reader_);
    }
    // Unlocked: for what is the link's own (stats, options), or a radio no other session shares.
    VirtualReader& reader() { return reader_; }
    const VirtualReader& reader() const { return reader_; }
    FaultFilter& filter() { return filter_; }

private:
    VirtualReader reader_;
    FaultFilter filter_;
    std::set<uint8_t> base_ignored_;  // from the engine options, kept across set_faults
    TimePoint now_{};
};

}  // namespace uhfsim
