// The supervisor: one worker process per reader (the library's state is
// process-wide, so processes keep readers apart). It starts, watches and
// restarts workers with backoff, takes their batches of reads and link
// events from a socketpair, runs presence and hands reads to the hub. It
// never calls the reader library itself.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config.h"
#include "events.h"
#include "presence.h"

namespace uhfd {

enum class LinkState { Connecting, Running, Stopped, Reconnecting };
const char* state_name(LinkState s);

struct ReaderView {
    std::string name, uri;
    LinkState state = LinkState::Connecting;
    uint64_t reads = 0, reconnects = 0;
    uint64_t queue_overflows = 0;  // reports the library's full queue discarded, over every worker
    double reads_per_s = 0;
    std::map<int, uint64_t> per_antenna;
    std::string error;        // why the last connect failed or the link was lost
    nlohmann::json info;      // software, hardware, device_id: learnt at connect
    nlohmann::json settings;  // as the reader holds them, refreshed after every change
};

class Supervisor {
public:
    // worker_exe: the program started as a reader's worker (uhfd itself).
    Supervisor(const Config& c, Hub& hub, Presence& presence, std::string worker_exe);
    ~Supervisor();
    void start();
    // Stops every inventory, closes every link, waits for every worker.
    void stop();

    std::vector<ReaderView> readers() const;
    bool has(const std::string& name) const;
    // At once, from what the worker reported; never asks the reader.
    nlohmann::json details(const std::string& name) const;

    // Called on the supervisor's thread with "" when done, else why not;
    // within a bounded time whatever the worker does.
    using Done = std::function<void(const std::string& err)>;
    void apply(const std::string& name, const ReaderSettings& s, Done done);
    void set_inventory(const std::string& name, bool on, Done done);
    // The inventory's select mask, as the worker's filter message has it ({} lifts it).
    void set_filter(const std::string& name, const std::string& mask_json, Done done);
    // One tag-access operation (the worker's access message); result is an
    // llrp::AccessResult::Code, data the words read; err when it never ran.
    using AccessDone = std::function<void(uint8_t result, const std::string& data, const std::string& err)>;
    void access(const std::string& name, const std::string& request_json, AccessDone done);

    // True when the loop has turned within the last within_ms: it is not hung.
    bool alive(int64_t within_ms) const;

    // A new list of readers (SIGHUP): removed ones are stopped, changed ones
    // (link or settings) restarted with their new configuration, new ones
    // started; the others are not touched. added is called on the
    // supervisor's thread for each new reader with its index, before its
    // first read.
    using Added = std::function<void(uint16_t index, const std::string& name)>;
    void reconfigure(std::vector<ReaderConfig> readers, Added added);

    // Every state change, with the reason for reconnecting; supervisor's thread.
    std::function<void(const std::string& reader, LinkState state, const std::string& why)> on_state;
    // A reader a reload removed has stopped, after its last read; supervisor's thread.
    std::function<void(const std::string& reader)> on_removed;

private:
    struct Reader;
    using Completions = std::vector<std::pair<Done, std::string>>;
    void loop();
    void wake();
    std::unique_ptr<Reader> new_reader(const ReaderConfig& rc) const;
    void spawn(Reader& r, int64_t now);
    void gone(Reader& r, const std::string& why, int64_t now, Completions& done);
    void receive(Reader& r, int64_t now, Completions& done);
    void flush(Reader& r, int64_t now, Completions& done);
    void tick(int64_t now, Completions& done);
    void set_state(Reader& r, LinkState s, const std::string& why);
    void stop_workers();
    void apply_reconfig(int64_t now, Completions& done);
    // Queues a request for r's worker; under mu_.
    uint32_t queue(Reader& r, const std::function<void(std::string&, uint32_t)>& build, Done done);
    void retire(Reader& r, bool remove, int64_t now);
    std::vector<std::unique_ptr<Reader>> readers_;
    std::vector<Read> batch_;  // the loop's buffer for a decoded batch
    std::vector<Event> events_;
    struct Reconfig {
        std::vector<ReaderConfig> readers;
        Added added;
    };
    std::optional<Reconfig> reconfig_;  // under mu_, taken by the loop
    Config config_;
    std::set<std::string> quick_;  // readers with an LLRP endpoint
    Hub& hub_;
    Presence& presence_;
    std::string worker_exe_;
    mutable std::mutex mu_;  // guards every Reader's view and pending requests
    std::atomic<bool> stop_{false};
    std::atomic<int64_t> last_pass_ms_{0};
    int wake_[2] = {-1, -1};     // a pipe that wakes the loop for new requests and stop
    uint32_t next_request_ = 0;  // under mu_: ids of requests to workers
    std::thread thread_;
};

}  // namespace uhfd
