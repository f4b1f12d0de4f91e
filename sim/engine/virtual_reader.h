// A UHF RFID reader module in software, as one link sees it. Bytes in through
// feed(), reply frames out through the output callback, one whole frame per
// call. No threads and no clock of its own: the caller passes the time, and
// calls pump() by next_deadline() so a running inventory streams its reports.
// Links made on one Radio are connections to the same module: settings, tags
// and clock are the radio's; the parser, replies and inventory stream are the
// link's.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "engine/dispatcher.h"
#include "engine/frame_codec.h"
#include "engine/radio.h"

namespace uhfsim {

// Stream: continuous inventory sends one 0x83/0x7F frame per read (serial, TCP).
// Buffered: reads are held and handed out by 0xEB batches (the USB habit).
enum class ReportDelivery : uint8_t { Stream, Buffered };

struct EngineOptions {
    uint32_t read_rate = 300;         // tag reads per second during continuous inventory
    uint64_t seed = 1;                // RSSI jitter (read when the radio is made)
    int16_t rssi_jitter = 20;         // +/- in 0.1 dBm
    std::set<uint8_t> ignored_codes;  // requests taken in silently, e.g. 0x8C
    ReportDelivery delivery = ReportDelivery::Stream;
    std::chrono::milliseconds frame_timeout{100};  // quiet spell that drops a half frame
    std::chrono::milliseconds max_backlog{1000};   // reads owed beyond this are lost
    size_t max_buffered_reports = 1000;
    ReaderState state;  // the radio's starting state; its `saved` copy is what survives a power cycle
    std::function<void(const std::string&)> trace;  // one line per request when set
};

struct EngineStats {
    std::array<uint64_t, 256> requests{};  // command frames received, by code
    uint64_t frames_sent = 0;
    uint64_t tag_reports = 0;       // 0x83/0x7F frames, single replies and batch entries
    uint64_t unknown_codes = 0;     // command frames nobody handles (no reply sent)
    uint64_t ignored = 0;           // requests dropped on purpose (ignored_codes)
    uint64_t unhandled_frames = 0;  // packaged, plain or escaped frames without a handler
    uint64_t skipped_bytes = 0;     // junk and broken frames
    uint64_t missed_reads = 0;      // reads the line had no room for, lost as a module loses them

    uint64_t total_requests() const;
    void merge(const EngineStats& o);
};

class VirtualReader {
public:
    using Output = std::function<void(const uint8_t*, size_t)>;

    // A module of its own (opts.state and opts.seed make its radio).
    explicit VirtualReader(TagField field = {}, EngineOptions opts = {});
    // Another link to the module behind `radio`.
    VirtualReader(std::shared_ptr<Radio> radio, EngineOptions opts);

    void set_output(Output out) { out_ = std::move(out); }
    void feed(const uint8_t* bytes, size_t len, TimePoint now);
    void feed(std::span<const uint8_t> bytes, TimePoint now) { feed(bytes.data(), bytes.size(), now); }

    // Emits the reports due by `now`; drops a half frame after a quiet spell.
    void pump(TimePoint now);
    std::optional<TimePoint> next_deadline() const;

    void advance(std::chrono::nanoseconds d) { radio_->advance(d); }

    // Power off and on: unsaved settings are lost, every link's inventory stops.
    void power_cycle();
    // The same from a command (soft reset): safe to call from a handler, as it
    // leaves the frame parser that is delivering the request alone.
    void restart();

    // State, for handlers and tests. Whoever may change the tags or the
    // settings gets them through these, so the read plan is made again.
    const std::shared_ptr<Radio>& radio() const { return radio_; }
    ReaderState& state() { return touched().state; }
    Settings& settings() { return touched().state.current; }
    TagField& field() { return touched().field; }
    const Settings& settings() const { return radio_->state.current; }
    const EngineStats& stats() const;
    EngineOptions& options() { return opts_; }
    Dispatcher& dispatcher() { return dispatch_; }
    TimePoint now() const { return radio_->now; }

    // ---- used by handlers ----
    void reply(uint8_t code, std::span<const uint8_t> data);
    void reply(uint8_t code, std::initializer_list<uint8_t> data) {
        reply(code, std::span<const uint8_t>(data.begin(), data.size()));
    }
    // A frame already encoded (the escaped form has its own encoder).
    void send_raw(std::span<const uint8_t> frame);
    // This link's stream; another link's stop leaves it running.
    void start_inventory();
    void stop_inventory();
    bool inventory_running() const { return running_ && seen_restarts_ == radio_->restarts; }
    // Next (tag, antenna) read for single-shot inventory; nullopt when the field is empty.
    std::optional<std::pair<size_t, int>> next_single_read();
    // PC+EPC, [sensor word], [extra bank data], RSSI, antenna.
    std::vector<uint8_t> make_report(const Tag& tag, int antenna, bool with_sensor);
    // Buffered reports first; otherwise, when idle, one round over the field.
    std::vector<std::vector<uint8_t>> take_batch(size_t max_bytes);
    void count_report(uint64_t n = 1) { stats_.tag_reports += n; }

private:
    void on_frame(const Frame& f);
    void log(const std::string& line) const;
    using ReadPlan = std::vector<std::pair<size_t, int>>;  // (tag, antenna) in reading order
    Radio& touched() {
        ++radio_->revision;
        return *radio_;
    }
    const ReadPlan& read_plan();
    bool passes_filter(const Tag& tag) const;
    TimePoint slot_due(uint64_t k) const;
    void emit_read(const ReadPlan& plan);
    void catch_up(TimePoint now);    // moves the radio's clock, then follows a restart
    void end_stream_if_restarted();  // through any link: a restart ends every link's stream

    std::shared_ptr<Radio> radio_;
    EngineOptions opts_;
    Dispatcher dispatch_;
    FrameParser parser_;
    Output out_;
    mutable EngineStats stats_;
    TimePoint last_input_{};
    uint64_t seen_restarts_ = 0;

    bool running_ = false;
    TimePoint run_start_{};
    uint64_t slots_done_ = 0;  // read slots consumed since run_start_
    size_t stream_cursor_ = 0;
    size_t single_cursor_ = 0;
    ReadPlan plan_;
    uint64_t plan_revision_ = 0;
    bool planned_ = false;
    std::deque<std::vector<uint8_t>> buffered_;
};

}  // namespace uhfsim
