#include "supervisor.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <array>
#include <cmath>
#include <deque>

#include "backoff.h"
#include "tag_json.h"
#include "worker_wire.h"

extern char** environ;

namespace uhfd {

using nlohmann::json;

namespace {

constexpr int kTickMs = 100;
// How soon the loop comes back to a sink that holds a batch (the outbox).
constexpr int kBatchMs = 10;
// After a pass that took reads, the loop lets this long go by before the
// next: with many readers, one pass takes every worker's batch instead of a
// wake-up for each (a read waits 2.5 ms more on average).
constexpr int64_t kPaceMs = 5;
// How often a worker hands its reads over, and how long the library holds a
// stream of reports for it: one wake-up per pace instead of one per report.
// A reader with an LLRP endpoint keeps its reads quick (a client may want a
// report per tag); the others' reads reach the outputs within two paces.
constexpr int kWorkerPaceMs = 20, kQuickWorkerPaceMs = 2;
// A worker that says nothing for this long is hung: killed and replaced.
// Before its first word it may take longer (opening a link has its own limits).
constexpr int64_t kSilentMs = 10000, kFirstWordMs = 30000;
// A request the worker does not answer in this time fails.
constexpr int64_t kRequestMs = 20000;
// How long a stopping worker gets to stop its reader and close the link.
constexpr int kStopWaitMs = 5000;

int64_t now_ms() { return static_cast<int64_t>(uhftools::unix_now() * 1000); }

std::string exit_text(int status) {
    if (WIFSIGNALED(status)) return "the worker was killed by signal " + std::to_string(WTERMSIG(status));
    return "the worker exited with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

const char* state_name(LinkState s) {
    switch (s) {
        case LinkState::Connecting: return "connecting";
        case LinkState::Running: return "running";
        case LinkState::Stopped: return "stopped";
        case LinkState::Reconnecting: return "reconnecting";
    }
    return "?";
}

struct Supervisor::Reader {
    uint16_t index = 0;
    ReaderConfig conf;
    bool want_running = true;
    pid_t pid = -1;
    int fd = -1;
    bool spoke = false;                                      // the worker has sent something since it started
    bool retiring = false, remove = false, removed = false;  // reconfigured away or restarted
    int64_t retire_deadline_ms = 0;
    int64_t spawned_ms = 0, last_word_ms = 0, next_try_ms = 0;
    std::string why;  // the worker's last word on why its link failed
    uint64_t overflows_before = 0;  // queue_overflows of the workers before this one
    uhftools::Backoff backoff;
    uint64_t rate_count = 0;
    int64_t rate_mark_ms = 0;
    std::array<uint64_t, 256> antenna_reads{};  // the view's per_antenna, without a map lookup per read
    ReaderView view;
    struct Pending {
        Done done;  // every request's end, its error when it failed
        int64_t deadline_ms;
        AccessDone access;  // an access request's answer
    };
    std::map<uint32_t, Pending> pending;
    std::deque<std::string> outgoing;  // messages for the worker, sent by the loop
};

// The next index is the reader's for good: a removed reader's stays unused.
std::unique_ptr<Supervisor::Reader> Supervisor::new_reader(const ReaderConfig& rc) const {
    auto r = std::make_unique<Reader>();
    r->index = static_cast<uint16_t>(readers_.size());
    r->conf = rc;
    r->view.name = rc.name;
    r->view.uri = rc.uri;
    r->view.info = r->view.settings = json::object();
    return r;
}

Supervisor::Supervisor(const Config& c, Hub& hub, Presence& presence, std::string worker_exe)
    : config_(c), hub_(hub), presence_(presence), worker_exe_(std::move(worker_exe)) {
    for (const ReaderConfig& rc : c.readers) readers_.push_back(new_reader(rc));
    std::vector<int> llrp;
    std::string err;
    if (llrp_ports(c, llrp, err))
        for (size_t i = 0; i < llrp.size(); i++)
            if (llrp[i]) quick_.insert(c.readers[i].name);
}

Supervisor::~Supervisor() { stop(); }

void Supervisor::start() {
    if (pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) wake_[0] = wake_[1] = -1;
    thread_ = std::thread(&Supervisor::loop, this);
}

void Supervisor::stop() {
    stop_ = true;
    wake();
    if (thread_.joinable()) thread_.join();
    for (int& fd : wake_)
        if (fd >= 0) close(std::exchange(fd, -1));
}

std::vector<ReaderView> Supervisor::readers() const {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<ReaderView> out;
    for (const auto& r : readers_) {
        if (r->removed) continue;
        out.push_back(r->view);
        for (size_t a = 0; a < r->antenna_reads.size(); a++)
            if (r->antenna_reads[a]) out.back().per_antenna[static_cast<int>(a)] = r->antenna_reads[a];
    }
    return out;
}

void Supervisor::wake() {
    if (wake_[1] >= 0) (void)!write(wake_[1], "x", 1);
}

bool Supervisor::alive(int64_t within_ms) const { return now_ms() - last_pass_ms_ <= within_ms; }

bool Supervisor::has(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mu_);
    for (const auto& r : readers_)
        if (!r->removed && r->conf.name == name) return true;
    return false;
}

json Supervisor::details(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mu_);
    for (const auto& r : readers_) {
        if (r->removed || r->conf.name != name) continue;
        const ReaderView& v = r->view;
        json out = {{"name", v.name},
                    {"uri", v.uri},
                    {"state", state_name(v.state)},
                    {"reads", v.reads},
                    {"reconnects", v.reconnects},
                    {"reads_per_s", std::round(v.reads_per_s * 10) / 10},
                    {"info", v.info},
                    {"settings", v.settings}};
        if (!v.error.empty()) out["error"] = v.error;
        return out;
    }
    return {{"name", name}, {"error", "no reader of that name"}};
}

// The loop's state that the HTTP threads' requests touch lives behind mu_;
// the request is handed to the loop, which alone talks to workers.
uint32_t Supervisor::queue(Reader& r, const std::function<void(std::string&, uint32_t)>& build, Done done) {
    const uint32_t id = ++next_request_;
    std::string m;
    build(m, id);
    r.outgoing.push_back(std::move(m));
    r.pending[id] = {std::move(done), now_ms() + kRequestMs, nullptr};
    return id;
}

void Supervisor::apply(const std::string& name, const ReaderSettings& s, Done done) {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& r : readers_) {
        if (r->removed || r->conf.name != name) continue;
        const std::string text = settings_to_json(s);
        queue(*r, [&](std::string& m, uint32_t id) { wire::with_id(m, wire::kApply, id, text); },
              [this, idx = r->index, s, done](const std::string& err) {
                  if (err.empty()) {
                      // What a new worker applies from now on.
                      std::lock_guard<std::mutex> l(mu_);
                      ReaderSettings& kept = readers_[idx]->conf.settings;
                      if (s.power) kept.power = s.power;
                      if (s.antennas) kept.antennas = s.antennas;
                      if (s.region) kept.region = s.region;
                      if (s.session) kept.session = s.session;
                      if (s.target) kept.target = s.target;
                      if (s.q) kept.q = s.q;
                      if (s.mode) kept.mode = s.mode;
                  }
                  done(err);
              });
    }
    wake();
}

void Supervisor::set_inventory(const std::string& name, bool on, Done done) {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& r : readers_) {
        if (r->removed || r->conf.name != name) continue;
        r->want_running = on;
        queue(*r, [&](std::string& m, uint32_t id) { wire::inventory(m, id, on); }, done);
    }
    wake();
}

void Supervisor::set_filter(const std::string& name, const std::string& mask_json, Done done) {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& r : readers_) {
        if (r->removed || r->conf.name != name) continue;
        queue(*r, [&](std::string& m, uint32_t id) { wire::with_id(m, wire::kFilter, id, mask_json); }, done);
    }
    wake();
}

void Supervisor::access(const std::string& name, const std::string& request_json, AccessDone done) {
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& r : readers_) {
        if (r->removed || r->conf.name != name) continue;
        const uint32_t id =
            queue(*r, [&](std::string& m, uint32_t i) { wire::with_id(m, wire::kAccess, i, request_json); },
                  [done](const std::string& err) { done(0, "", err.empty() ? "no answer" : err); });
        r->pending[id].access = done;
    }
    wake();
}

void Supervisor::set_state(Reader& r, LinkState s, const std::string& why) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (s == LinkState::Running || s == LinkState::Stopped) {
            if (r.view.state == LinkState::Reconnecting && r.backoff.attempts()) r.view.reconnects++;
            r.view.error.clear();
        } else if (!why.empty()) {
            r.view.error = why;
        }
        if (r.view.state == s) return;
        r.view.state = s;
    }
    if (on_state) on_state(r.conf.name, s, why);
}

void Supervisor::spawn(Reader& r, int64_t now) {
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv) != 0) {
        r.next_try_ms = now + r.backoff.next().count();
        return;
    }
    // The worker finds its end on descriptor 3; a dup2 onto itself would keep
    // close-on-exec, so the end is moved off 3 first when it landed there.
    if (sv[1] == 3) {
        int moved = fcntl(sv[1], F_DUPFD_CLOEXEC, 4);
        close(sv[1]);
        sv[1] = moved;
    }
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, sv[1], 3);
    std::string name = r.conf.name;
    char* argv[] = {worker_exe_.data(), const_cast<char*>("--worker"), const_cast<char*>("3"), name.data(), nullptr};
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, worker_exe_.c_str(), &fa, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&fa);
    close(sv[1]);
    if (rc != 0) {
        close(sv[0]);
        set_state(r, LinkState::Reconnecting, "cannot start a worker: " + std::string(strerror(rc)));
        r.next_try_ms = now + r.backoff.next().count();
        return;
    }
    r.pid = pid;
    r.fd = sv[0];
    r.spoke = false;
    r.why.clear();
    r.spawned_ms = r.last_word_ms = now;
    json start = {{"uri", r.conf.uri},
                  {"run", r.want_running},
                  {"pace_ms", quick_.count(r.conf.name) ? kQuickWorkerPaceMs : kWorkerPaceMs}};
    {
        std::lock_guard<std::mutex> lock(mu_);
        start["settings"] = json::parse(settings_to_json(r.conf.settings));
    }
    std::string m;
    wire::text(m, wire::kStart, start.dump());
    send(r.fd, m.data(), m.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

// The worker is finished, whatever it was doing: it is killed if it still
// runs, its descriptors go with it, and its requests fail.
void Supervisor::gone(Reader& r, const std::string& why, int64_t now, Completions& done) {
    int status = 0;
    kill(r.pid, SIGKILL);
    waitpid(r.pid, &status, 0);
    close(r.fd);
    r.fd = -1;
    r.pid = -1;
    const std::string reason = r.retiring       ? "the reader was reconfigured"
                               : !why.empty()   ? why
                               : !r.why.empty() ? r.why
                                                : exit_text(status);
    {
        std::lock_guard<std::mutex> lock(mu_);
        for (auto& [id, p] : r.pending) done.emplace_back(p.done, "the reader's link was lost: " + reason);
        r.pending.clear();
        r.overflows_before = r.view.queue_overflows;  // the next worker counts from 0
    }
    if (r.retiring) {
        r.retiring = false;
        set_state(r, r.remove ? LinkState::Stopped : LinkState::Connecting, "");
        {
            std::lock_guard<std::mutex> lock(mu_);
            r.removed = r.remove;
            r.next_try_ms = now;  // a changed reader starts again at once
            r.backoff.reset();
        }
        if (r.removed && on_removed) on_removed(r.conf.name);
        return;
    }
    set_state(r, LinkState::Reconnecting, reason);
    r.next_try_ms = now + r.backoff.next().count();
}

void Supervisor::receive(Reader& r, int64_t now, Completions& done) {
    static char buf[wire::kMaxMessage];
    // A bounded number per pass, so one busy reader cannot starve the others.
    for (int i = 0; i < 64 && r.fd >= 0; i++) {
        const ssize_t n = recv(r.fd, buf, sizeof buf, MSG_DONTWAIT);
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (n <= 0) return gone(r, "", now, done);
        const std::string_view d(buf, static_cast<size_t>(n));
        wire::Message m;
        if (!wire::decode(d, m)) return gone(r, "the worker sent a message that does not parse", now, done);
        r.spoke = true;
        r.last_word_ms = now;
        switch (m.type) {
            case wire::kReads: {
                batch_.clear();
                if (!wire::decode_reads(d, r.index, batch_))
                    return gone(r, "the worker sent reads that do not parse", now, done);
                {
                    std::lock_guard<std::mutex> lock(mu_);
                    r.view.reads += batch_.size();
                    for (const Read& rd : batch_) r.antenna_reads[rd.antenna]++;
                }
                r.rate_count += batch_.size();
                for (Read& rd : batch_) {
                    events_.clear();
                    if (!presence_.add(rd, events_)) continue;
                    hub_.publish(rd);
                    for (Event& e : events_) hub_.publish(e);
                }
                break;
            }
            case wire::kState:
                if (m.value > static_cast<uint8_t>(LinkState::Reconnecting)) break;
                if (static_cast<LinkState>(m.value) == LinkState::Reconnecting) {
                    r.why = std::string(m.text);  // its last word: the exit follows
                    break;
                }
                set_state(r, static_cast<LinkState>(m.value), std::string(m.text));
                r.backoff.reset();
                break;
            case wire::kOverflows: {
                std::lock_guard<std::mutex> lock(mu_);
                r.view.queue_overflows = r.overflows_before + m.count;
                break;
            }
            case wire::kDetails: {
                json d = json::parse(m.text, nullptr, false);
                if (!d.is_object()) break;
                std::lock_guard<std::mutex> lock(mu_);
                r.view.info = d.value("info", json::object());
                r.view.settings = d.value("settings", json::object());
                break;
            }
            case wire::kReply: {
                std::lock_guard<std::mutex> lock(mu_);
                auto it = r.pending.find(m.id);
                if (it == r.pending.end()) break;
                done.emplace_back(std::move(it->second.done), std::string(m.text));
                r.pending.erase(it);
                break;
            }
            case wire::kAccessDone: {
                std::lock_guard<std::mutex> lock(mu_);
                auto it = r.pending.find(m.id);
                if (it == r.pending.end() || !it->second.access) break;
                done.emplace_back([cb = std::move(it->second.access), code = m.value,
                                   data = std::string(m.text)](const std::string&) { cb(code, data, ""); },
                                  "");
                r.pending.erase(it);
                break;
            }
            default: break;
        }
    }
}

// Hands queued requests to the worker; with no worker, a settings change
// fails and an inventory switch waits for the next connect.
void Supervisor::flush(Reader& r, int64_t now, Completions& done) {
    std::deque<std::string> out;
    {
        std::lock_guard<std::mutex> lock(mu_);
        out.swap(r.outgoing);
    }
    for (const std::string& m : out) {
        wire::Message msg;
        wire::decode(m, msg);
        if (r.fd >= 0) {
            if (send(r.fd, m.data(), m.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(m.size())) continue;
            gone(r, "the worker does not take requests", now, done);
            continue;
        }
        std::lock_guard<std::mutex> lock(mu_);
        auto it = r.pending.find(msg.id);
        if (it == r.pending.end()) continue;
        done.emplace_back(std::move(it->second.done), msg.type == wire::kInventory ? "" : "the reader is not connected");
        r.pending.erase(it);
    }
}

void Supervisor::tick(int64_t now, Completions& done) {
    for (auto& rp : readers_) {
        Reader& r = *rp;
        if (r.removed) continue;
        if (r.fd < 0 && now >= r.next_try_ms) spawn(r, now);
        if (r.fd >= 0 && r.retiring && now >= r.retire_deadline_ms) gone(r, "", now, done);
        if (r.fd >= 0 && now - r.last_word_ms > (r.spoke ? kSilentMs : kFirstWordMs))
            gone(r, "the worker stopped answering", now, done);
        std::lock_guard<std::mutex> lock(mu_);
        for (auto it = r.pending.begin(); it != r.pending.end();) {
            if (now < it->second.deadline_ms) {
                ++it;
                continue;
            }
            done.emplace_back(std::move(it->second.done), "the reader did not answer in time");
            it = r.pending.erase(it);
        }
        if (now - r.rate_mark_ms >= 1000) {
            r.view.reads_per_s =
                r.rate_mark_ms ? static_cast<double>(r.rate_count) * 1000.0 / static_cast<double>(now - r.rate_mark_ms)
                               : 0;
            r.rate_count = 0;
            r.rate_mark_ms = now;
        }
    }
    events_.clear();
    presence_.expire(now, events_);
    for (Event& e : events_) hub_.publish(e);
}

void Supervisor::loop() {
    std::vector<pollfd> fds;
    int64_t next_tick = 0;
    bool batch_held = false;
    int64_t paced_until = 0;
    while (!stop_) {
        if (const int64_t wait = paced_until - now_ms(); wait > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(wait));
        fds.assign(1, {wake_[0], POLLIN, 0});
        for (auto& r : readers_) fds.push_back({r->fd, POLLIN, 0});
        const int64_t now0 = now_ms();
        const int longest = batch_held ? kBatchMs : kTickMs;
        poll(fds.data(), fds.size(), static_cast<int>(std::clamp<int64_t>(next_tick - now0, 0, longest)));
        char sink[64];
        while (read(wake_[0], sink, sizeof sink) > 0) {
        }
        Completions done;
        const int64_t now = now_ms();
        last_pass_ms_ = now;
        bool took = false;
        for (size_t i = 0; i < readers_.size(); i++) {
            Reader& r = *readers_[i];
            if (r.fd >= 0 && fds[i + 1].fd == r.fd && fds[i + 1].revents) {
                receive(r, now, done);
                took = true;
            }
            flush(r, now, done);
        }
        paced_until = took ? now + kPaceMs : 0;
        apply_reconfig(now, done);
        if (now >= next_tick) {
            tick(now, done);
            next_tick = now + kTickMs;
        }
        batch_held = hub_.end_batch();
        for (auto& [f, err] : done)
            if (f) f(err);
    }
    stop_workers();
}

void Supervisor::reconfigure(std::vector<ReaderConfig> readers, Added added) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        reconfig_ = Reconfig{std::move(readers), std::move(added)};
    }
    wake();
}

// Asks the worker to stop its reader and close the link; gone() finishes
// the job when it exits, or kills it when it takes too long.
void Supervisor::retire(Reader& r, bool remove, int64_t now) {
    r.remove = remove;
    if (r.fd < 0) {  // between workers: nothing to stop
        if (remove) set_state(r, LinkState::Stopped, "");
        {
            std::lock_guard<std::mutex> lock(mu_);
            r.removed = remove;
            r.next_try_ms = now;
            r.backoff.reset();
        }
        if (remove && on_removed) on_removed(r.conf.name);
        return;
    }
    std::string m;
    wire::bare(m, wire::kStop);
    send(r.fd, m.data(), m.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    r.retiring = true;
    r.retire_deadline_ms = now + kStopWaitMs;
}

void Supervisor::apply_reconfig(int64_t now, Completions&) {
    std::optional<Reconfig> rc;
    {
        std::lock_guard<std::mutex> lock(mu_);
        rc.swap(reconfig_);
    }
    if (!rc) return;
    for (auto& rp : readers_) {
        Reader& r = *rp;
        if (r.removed) continue;
        auto it = std::find_if(rc->readers.begin(), rc->readers.end(),
                               [&](const ReaderConfig& c) { return c.name == r.conf.name; });
        if (it == rc->readers.end()) {
            retire(r, true, now);
            continue;
        }
        r.remove = false;  // removed by an earlier reload, and back before its worker stopped
        const bool changed =
            it->uri != r.conf.uri || settings_to_json(it->settings) != settings_to_json(r.conf.settings);
        if (changed) {
            {
                std::lock_guard<std::mutex> lock(mu_);
                r.conf = *it;
                r.view.uri = it->uri;
            }
            retire(r, false, now);
        }
        rc->readers.erase(it);
    }
    for (const ReaderConfig& c : rc->readers) {  // what is left is new
        auto r = new_reader(c);
        if (rc->added) rc->added(r->index, c.name);
        std::lock_guard<std::mutex> lock(mu_);
        readers_.push_back(std::move(r));
    }
}

// Every worker is asked to stop its reader and close its link, and given
// time to; what is still there after that is killed.
void Supervisor::stop_workers() {
    std::string m;
    wire::bare(m, wire::kStop);
    for (auto& r : readers_)
        if (r->fd >= 0) send(r->fd, m.data(), m.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    const int64_t end = now_ms() + kStopWaitMs;
    Completions done;
    for (;;) {
        std::vector<pollfd> fds;
        for (auto& r : readers_)
            if (r->fd >= 0) fds.push_back({r->fd, POLLIN, 0});
        const int64_t now = now_ms();
        if (fds.empty() || now >= end) break;
        poll(fds.data(), fds.size(), static_cast<int>(end - now));
        for (auto& r : readers_) {
            if (r->fd < 0) continue;
            char buf[wire::kMaxMessage];
            for (;;) {
                const ssize_t n = recv(r->fd, buf, sizeof buf, MSG_DONTWAIT);
                wire::Message msg;
                if (n > 0 && wire::decode({buf, static_cast<size_t>(n)}, msg) && msg.type == wire::kState &&
                    msg.value == static_cast<uint8_t>(LinkState::Stopped))
                    set_state(*r, LinkState::Stopped, "");
                if (n > 0) continue;
                if (n < 0 && errno == EAGAIN) break;
                int status = 0;
                waitpid(r->pid, &status, 0);
                close(r->fd);
                r->fd = -1;
                break;
            }
        }
    }
    for (auto& r : readers_) {
        if (r->removed) continue;
        if (r->fd >= 0) {
            kill(r->pid, SIGKILL);
            waitpid(r->pid, nullptr, 0);
            close(r->fd);
            r->fd = -1;
        }
        set_state(*r, LinkState::Stopped, "");
        std::lock_guard<std::mutex> lock(mu_);
        for (auto& [id, p] : r->pending) done.emplace_back(p.done, "the gateway is stopping");
        r->pending.clear();
    }
    for (auto& [f, err] : done)
        if (f) f(err);
}

}  // namespace uhfd
