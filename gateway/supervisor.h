// The readers: one command thread owns every library call (the library's
// commands act on one selected link and fill one tag queue), keeps each
// reader inventorying, and reconnects the ones it loses.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "backoff.h"
#include "config.h"
#include "events.h"
#include "reader_link.h"
#include "sim_reader.h"

namespace uhfd {

enum class LinkState { Connecting, Running, Stopped, Reconnecting };
const char* state_name(LinkState s);

struct ReaderView {
    std::string name, uri;
    LinkState state = LinkState::Connecting;
    uint64_t reads = 0, reconnects = 0;
    double reads_per_s = 0;
    std::map<int, uint64_t> per_antenna;
    std::string error;  // why the last connect failed or the link was lost
};

class Supervisor {
public:
    Supervisor(const Config& c, Hub& hub, Presence& presence);
    ~Supervisor();
    void start();
    // Stops every inventory and closes every link.
    void stop();

    std::vector<ReaderView> readers() const;
    bool has(const std::string& name) const;
    // Called on every state change, from the command thread.
    std::function<void(const std::string& reader, LinkState state)> on_state;

    // Jobs for the command thread; each waits for its result.
    nlohmann::json details(const std::string& name);
    // Empty when applied; else why not (nothing applied when the reader is away).
    std::string apply(const std::string& name, const ReaderSettings& s);
    std::string set_inventory(const std::string& name, bool on);

private:
    struct Reader {
        ReaderConfig conf;
        uhftools::Target target;
        std::unique_ptr<uhftools::SimReader> sim;
        int slot = -1;
        bool want_running = true;
        uhftools::Backoff backoff;
        double next_try = 0, last_report = 0, last_probe = 0, rate_mark = 0;
        uint64_t rate_count = 0;
        ReaderView view;
    };

    void loop();
    void run_jobs();
    void tick(double now);
    void connect(Reader& r, double now);
    void lose(Reader& r, const std::string& why, double now);
    void set_state(Reader& r, LinkState s);
    bool select(const Reader& r) const;
    bool apply_now(const ReaderSettings& s, std::string& err);
    size_t take_reports(double now);
    Reader* find(const std::string& name);
    // The job's result, or nothing when it did not run in time.
    std::optional<std::string> run_job(std::function<std::string()> job);

    Config config_;
    Hub& hub_;
    Presence& presence_;
    std::vector<Reader> readers_;
    mutable std::mutex mu_;  // guards readers_[i].view and the job queue
    std::deque<std::function<void()>> jobs_;
    std::condition_variable jobs_done_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace uhfd
