#include "engine/virtual_reader.h"

#include <algorithm>
#include <cstdio>

#include "engine/escaped_reports.h"

namespace uhfsim {

uint64_t EngineStats::total_requests() const {
    uint64_t n = 0;
    for (uint64_t r : requests) n += r;
    return n;
}

void EngineStats::merge(const EngineStats& o) {
    for (size_t i = 0; i < requests.size(); ++i) requests[i] += o.requests[i];
    frames_sent += o.frames_sent;
    tag_reports += o.tag_reports;
    unknown_codes += o.unknown_codes;
    ignored += o.ignored;
    unhandled_frames += o.unhandled_frames;
    skipped_bytes += o.skipped_bytes;
    missed_reads += o.missed_reads;
}

VirtualReader::VirtualReader(TagField field, EngineOptions opts)
    : VirtualReader(std::make_shared<Radio>(std::move(field), opts.state, opts.seed), opts) {}

VirtualReader::VirtualReader(std::shared_ptr<Radio> radio, EngineOptions opts)
    : radio_(std::move(radio)), opts_(std::move(opts)), seen_restarts_(radio_->restarts) {
    register_all(dispatch_);
}

void VirtualReader::catch_up(TimePoint now) {
    radio_->now = std::max(radio_->now, now + radio_->ahead);
    end_stream_if_restarted();
}

void VirtualReader::end_stream_if_restarted() {
    if (seen_restarts_ != radio_->restarts) {
        seen_restarts_ = radio_->restarts;
        running_ = false;
        buffered_.clear();
        stream_cursor_ = single_cursor_ = 0;
    }
}

const EngineStats& VirtualReader::stats() const {
    stats_.skipped_bytes = parser_.skipped_bytes();
    return stats_;
}

void VirtualReader::log(const std::string& line) const {
    if (opts_.trace) opts_.trace(line);
}

void VirtualReader::feed(const uint8_t* bytes, size_t len, TimePoint now) {
    catch_up(now);
    if (len == 0) return;
    last_input_ = radio_->now;
    parser_.feed(bytes, len, [this](const Frame& f) { on_frame(f); });
}

void VirtualReader::on_frame(const Frame& f) {
    // Any request may change the settings or the tags.
    ++radio_->revision;
    char head[16];
    if (f.kind != FrameKind::Command) {
        if (const FrameHandler* h = dispatch_.find_frame(f.kind)) {
            log(std::string("frame: ") + (*h)(*this, f));
        } else {
            ++stats_.unhandled_frames;
            log(f.kind == FrameKind::Escaped ? "escaped frame: not handled" : "packaged frame: not handled");
        }
        return;
    }
    ++stats_.requests[f.code];
    std::snprintf(head, sizeof head, "0x%02X ", f.code);
    if (opts_.ignored_codes.count(f.code)) {
        ++stats_.ignored;
        log(head + std::string("ignored on purpose, no reply"));
        return;
    }
    const HandlerEntry* h = dispatch_.find(f.code, f.data);
    if (h == nullptr) {
        ++stats_.unknown_codes;
        log(head + std::string("unknown command, no reply"));
        return;
    }
    const std::string result = h->fn(*this, Request{f.code, f.data});
    log(head + h->name + ": " + result);
}

void VirtualReader::send_raw(std::span<const uint8_t> frame) {
    ++stats_.frames_sent;
    if (out_) out_(frame.data(), frame.size());
}

void VirtualReader::reply(uint8_t code, std::span<const uint8_t> data) { send_raw(encode_command(code, data)); }

// ---- continuous inventory ------------------------------------------------

void VirtualReader::start_inventory() {
    running_ = true;
    run_start_ = radio_->now;
    slots_done_ = 0;
}

void VirtualReader::stop_inventory() { running_ = false; }

TimePoint VirtualReader::slot_due(uint64_t k) const {
    const uint64_t rate = std::max<uint32_t>(opts_.read_rate, 1);
    const uint64_t ns = (k / rate) * 1'000'000'000ull + (k % rate) * 1'000'000'000ull / rate;
    return run_start_ + std::chrono::nanoseconds(ns);
}

bool VirtualReader::passes_filter(const Tag& tag) const {
    const InventoryFilter& f = radio_->state.current.filter;
    return f.bit_len == 0 || tag.matches(f.bank, f.bit_addr, f.bit_len, f.mask);
}

const VirtualReader::ReadPlan& VirtualReader::read_plan() {
    if (planned_ && plan_revision_ == radio_->revision) return plan_;
    plan_.clear();
    const ReaderState& state = radio_->state;
    const TagField& f = radio_->field;
    const int ants = std::min<int>(state.identity.antenna_count, kMaxAntennas);
    for (int a = 1; a <= ants; ++a) {
        if (!(state.current.antenna_mask & (1u << (a - 1)))) continue;
        for (size_t i = 0; i < f.size(); ++i)
            if (f.tags()[i].visible_on(a) && passes_filter(f.tags()[i])) plan_.emplace_back(i, a);
    }
    plan_revision_ = radio_->revision;
    planned_ = true;
    return plan_;
}

void VirtualReader::emit_read(const ReadPlan& plan) {
    const auto [index, antenna] = plan[stream_cursor_++ % plan.size()];
    const Tag& tag = radio_->field.tags()[index];
    if (radio_->state.current.escaped_reports.on) {
        ++stats_.tag_reports;
        send_raw(escaped_tag_frame(*this, tag, antenna));
        return;
    }
    const bool sensor = radio_->state.current.sensor_inventory;
    auto report = make_report(tag, antenna, sensor);
    if (opts_.delivery == ReportDelivery::Buffered) {
        if (buffered_.size() >= opts_.max_buffered_reports) buffered_.pop_front();
        buffered_.push_back(std::move(report));
        return;
    }
    ++stats_.tag_reports;
    reply(sensor ? 0x7F : 0x83, report);
}

void VirtualReader::pump(TimePoint now) {
    catch_up(now);
    if (parser_.has_pending() && radio_->now - last_input_ >= opts_.frame_timeout)
        parser_.expire([this](const Frame& f) { on_frame(f); });
    if (!running_) return;

    const uint64_t rate = std::max<uint32_t>(opts_.read_rate, 1);
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(radio_->now - run_start_).count();
    if (elapsed <= 0) return;
    const uint64_t due = static_cast<uint64_t>(static_cast<unsigned __int128>(elapsed) * rate / 1'000'000'000ull);
    const uint64_t backlog = std::max<uint64_t>(1, rate * static_cast<uint64_t>(opts_.max_backlog.count()) / 1000);
    if (due > slots_done_ + backlog) {  // a real module just misses them
        stats_.missed_reads += due - backlog - slots_done_;
        slots_done_ = due - backlog;
    }
    if (due <= slots_done_) return;

    const auto& plan = read_plan();
    if (plan.empty()) {
        slots_done_ = due;
        return;
    }
    // Reports may stop the run (a handler never runs from here, but be safe).
    while (running_ && slots_done_ < due) {
        ++slots_done_;
        emit_read(plan);
    }
}

std::optional<TimePoint> VirtualReader::next_deadline() const {
    std::optional<TimePoint> next;
    if (parser_.has_pending()) next = last_input_ + opts_.frame_timeout;
    if (inventory_running()) {
        const TimePoint t = slot_due(slots_done_ + 1);
        if (!next || t < *next) next = t;
    }
    if (next) *next -= radio_->ahead;  // callers keep their own time
    return next;
}

void VirtualReader::power_cycle() {
    restart();
    parser_ = FrameParser{};
}

void VirtualReader::restart() {
    ++radio_->revision;
    radio_->state.power_cycle();
    radio_->state.boot = {};
    ++radio_->restarts;
    end_stream_if_restarted();
}

// ---- reports ---------------------------------------------------------------

static void append_words(std::vector<uint8_t>& out, std::span<const uint16_t> bank, size_t from, size_t count) {
    for (size_t w = from; w < from + count; ++w) {
        const uint16_t v = w < bank.size() ? bank[w] : 0;  // unreadable words read as zero
        out.push_back(static_cast<uint8_t>(v >> 8));
        out.push_back(static_cast<uint8_t>(v & 0xFF));
    }
}

// The bank a 0x30 region reads, as the tag shows it (QT view); the reserved
// bank is never reported.
static std::span<const uint16_t> report_bank_words(const Tag& tag, uint8_t bank) {
    if (bank == 0 || bank > 3) return {};
    return tag.shown_bank(static_cast<Bank>(bank));
}

std::vector<uint8_t> VirtualReader::make_report(const Tag& tag, int antenna, bool with_sensor) {
    std::vector<uint8_t> r = tag.uii();
    if (with_sensor) {
        const uint16_t v = tag.sensor ? tag.sensor->code : 0;
        r.push_back(static_cast<uint8_t>(v >> 8));
        r.push_back(static_cast<uint8_t>(v & 0xFF));
    }
    const Settings& s = radio_->state.current;
    if (s.report_bank.count > 0) {
        // A region chosen with 0x30 replaces the mode's TID/USER data.
        append_words(r, report_bank_words(tag, s.report_bank.bank), s.report_bank.addr, s.report_bank.count);
    } else {
        // FastID puts the TID into reports that would not carry it otherwise.
        if (s.inventory_mode != InventoryMode::Epc || s.fast_id) append_words(r, tag.shown_tid(), 0, s.tid_words);
        if (s.inventory_mode == InventoryMode::EpcTidUser) append_words(r, tag.shown_user(), s.user_addr, s.user_words);
    }

    // Tag RSSI values hold at 30 dBm; the echo follows the antenna's read power
    // (0.01 dBm steps -> 0.1 dBm).
    const int power_shift = (s.antennas[static_cast<size_t>(antenna - 1)].read_power - 3000) / 10;
    const int base = tag.rssi[static_cast<size_t>(antenna - 1)].value_or(-700) + power_shift;
    const int jitter =
        opts_.rssi_jitter > 0 ? static_cast<int>(radio_->rng.range(-opts_.rssi_jitter, opts_.rssi_jitter)) : 0;
    const int16_t rssi = static_cast<int16_t>(std::clamp<int>(base + jitter, kRssiMin, kRssiMax));
    const auto u = static_cast<uint16_t>(rssi);
    r.push_back(static_cast<uint8_t>(u >> 8));
    r.push_back(static_cast<uint8_t>(u & 0xFF));
    r.push_back(static_cast<uint8_t>(antenna));
    return r;
}

std::optional<std::pair<size_t, int>> VirtualReader::next_single_read() {
    const auto& plan = read_plan();
    if (plan.empty()) return std::nullopt;
    return plan[single_cursor_++ % plan.size()];
}

std::vector<std::vector<uint8_t>> VirtualReader::take_batch(size_t max_bytes) {
    std::vector<std::vector<uint8_t>> batch;
    size_t used = 1;  // the count byte
    auto fits = [&](const std::vector<uint8_t>& r) {
        return batch.size() < 255 && r.size() <= 255 && used + 1 + r.size() <= max_bytes;
    };
    if (!buffered_.empty()) {
        while (!buffered_.empty() && fits(buffered_.front())) {
            used += 1 + buffered_.front().size();
            batch.push_back(std::move(buffered_.front()));
            buffered_.pop_front();
        }
    } else if (!running_) {
        // Idle reader asked for tags: one inventory round, each tag once.
        std::vector<bool> seen(radio_->field.size(), false);
        for (const auto& [index, antenna] : read_plan()) {
            if (seen[index]) continue;
            seen[index] = true;
            auto r = make_report(radio_->field.tags()[index], antenna, false);
            if (!fits(r)) break;
            used += 1 + r.size();
            batch.push_back(std::move(r));
        }
    }
    stats_.tag_reports += batch.size();
    return batch;
}

}  // namespace uhfsim
