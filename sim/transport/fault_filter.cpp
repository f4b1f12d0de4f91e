#include "transport/fault_filter.h"

namespace uhfsim {

FaultFilter::FaultFilter(FaultOptions opts) : opts_(std::move(opts)), rng_(opts_.seed) {}

void FaultFilter::set_options(const FaultOptions& opts) {
    opts_ = opts;
    rng_ = Rng(opts.seed);
}

void FaultFilter::push(const uint8_t* frame, size_t len, TimePoint now) {
    if (closed_ || len == 0) return;
    ++stats_.frames_in;
    if (rng_.chance(opts_.drop_ratio)) {
        ++stats_.dropped;
        return;
    }
    std::vector<uint8_t> bytes(frame, frame + len);
    if (len >= 3 && rng_.chance(opts_.corrupt_ratio)) {
        bytes[len - 3] ^= 0xFF;  // the check byte sits before 0D 0A
        ++stats_.corrupted;
    }
    const TimePoint due = now + std::chrono::milliseconds(opts_.delay_ms);

    std::vector<uint8_t> junk;
    for (size_t i = 0; i < opts_.garbage_bytes; ++i) {
        uint8_t b = static_cast<uint8_t>(rng_.next());
        if (b == 0xA5 || b == 0xAA) b ^= 0x01;  // never a frame start: junk, not a trap
        junk.push_back(b);
    }
    if (!junk.empty()) bytes.insert(bytes.begin(), junk.begin(), junk.end());

    pending_bytes_ += bytes.size();
    if (opts_.split_bytes) {
        for (size_t i = 0; i < bytes.size(); ++i) queue_.push_back(Chunk{due, {bytes[i]}, i + 1 == bytes.size()});
    } else {
        queue_.push_back(Chunk{due, std::move(bytes), true});
    }
}

void FaultFilter::drain(TimePoint now, const Write& write) {
    while (!closed_ && !queue_.empty() && queue_.front().due <= now) {
        Chunk c = std::move(queue_.front());
        queue_.pop_front();
        pending_bytes_ -= c.bytes.size();
        write(c.bytes.data(), c.bytes.size());
        if (!c.ends_frame) continue;
        ++stats_.frames_out;
        if (opts_.close_after != 0 && stats_.frames_out >= opts_.close_after) {
            closed_ = true;
            queue_.clear();
            pending_bytes_ = 0;
        }
    }
}

std::optional<TimePoint> FaultFilter::next_deadline() const {
    if (closed_ || queue_.empty()) return std::nullopt;
    return queue_.front().due;
}

}  // namespace uhfsim
