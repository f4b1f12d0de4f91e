#include "llrp_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <deque>
#include <nlohmann/json.hpp>

#include "http_listen.h"
#include "llrp_engine.h"
#include "tag_json.h"

namespace uhfd {

using nlohmann::json;

namespace {

// A client that lets this much pile up unread is dropped, not waited for.
constexpr size_t kMaxPending = 16u << 20;
// Reads held for the server's thread while it is busy; beyond this the
// client is not keeping up and the oldest wait is the engine's problem.
constexpr size_t kMaxInbox = 1u << 16;

int64_t now_ms() { return static_cast<int64_t>(uhftools::unix_now() * 1000); }

std::string hex(const std::vector<uint8_t>& b) {
    static const char* d = "0123456789ABCDEF";
    std::string s;
    for (uint8_t v : b) s += {d[v >> 4], d[v & 15]};
    return s;
}

// A module filter takes whole bytes; in the EPC bank it counts from the first
// EPC byte, past the CRC and PC the LLRP bit pointer includes.
bool module_filter(const llrp::InventoryPlan::Mask& m, json& out) {
    const unsigned skip = m.bank == 1 ? 32 : 0;
    if (m.bit_ptr < skip || (m.bit_ptr - skip) % 8 || m.bit_len % 8 || m.bit_len == 0 || m.bits.size() * 8 < m.bit_len)
        return false;
    out = {{"bank", m.bank},
           {"byte", (m.bit_ptr - skip) / 8},
           {"mask", hex({m.bits.begin(), m.bits.begin() + m.bit_len / 8})}};
    return true;
}

// The gateway's own test of a read against an EPC-bank mask the module cannot take.
bool mask_matches(const llrp::InventoryPlan::Mask& m, const Read& r) {
    for (unsigned i = 0; i < m.bit_len; i++) {
        const unsigned bit = m.bit_ptr + i;  // in the bank: CRC 0..15, PC 16..31, EPC from 32
        int have;
        if (bit < 16) return false;
        if (bit < 32)
            have = r.pc >> (31 - bit) & 1;
        else if ((bit - 32) / 8 < r.epc_len)
            have = r.epc[(bit - 32) / 8] >> (7 - (bit - 32) % 8) & 1;
        else
            return false;
        if (have != (m.bits[i / 8] >> (7 - i % 8) & 1)) return false;
    }
    return true;
}

}  // namespace

// One reader's endpoint, and the engine's Port onto that reader.
struct LlrpServer::Endpoint final : llrp::Port {
    LlrpServer& server;
    uint16_t index = 0;
    std::string name;
    int antennas = 4;
    int listen_fd = -1, client_fd = -1;
    uint64_t generation = 0;  // one per connection: answers for a gone one are dropped
    std::unique_ptr<llrp::Engine> engine;
    std::string out;  // bytes for the client not yet written
    size_t out_pos = 0;
    // Under the server's mutex: what other threads hand this endpoint.
    std::vector<Read> inbox, taken;
    std::deque<std::function<void()>> jobs;
    std::atomic<bool> live{false};
    uint64_t dropped = 0;  // under the mutex
    // What LLRP changed on the reader, to be put back when it is done.
    bool started = false, was_running = false, filtered = false;
    json before;  // the reader's settings before the first start
    ReaderSettings changed;
    std::optional<llrp::InventoryPlan::Mask> host_mask;

    Endpoint(LlrpServer& s, uint16_t i, std::string n) : server(s), index(i), name(std::move(n)) {}

    using Step = std::function<void(Supervisor::Done)>;
    // Runs steps one after another on the server's thread; end gets the first error.
    void run(std::shared_ptr<std::deque<Step>> steps, std::function<void(const std::string&)> end) {
        if (steps->empty()) return end("");
        Step s = std::move(steps->front());
        steps->pop_front();
        s([this, steps, end](const std::string& err) {
            server.post(*this, [this, steps, end, err] { err.empty() ? run(steps, end) : end(err); });
        });
    }
    // The engine of the connection that asked, if it is still there.
    std::function<void(const std::string&)> answer(uint32_t token) {
        return [this, token, gen = generation](const std::string& err) {
            if (engine && generation == gen) engine->done(token, err, now_ms());
        };
    }

    llrp::ReaderFacts facts() override {
        const json d = server.sup_.details(name);
        const json info = d.value("info", json::object()), set = d.value("settings", json::object());
        llrp::ReaderFacts f;
        f.name = name;
        f.antenna_count = antennas;
        f.device_id = info.value("device_id", "");
        f.software = info.value("software", "");
        f.hardware = info.value("hardware", "");
        f.region = set.value("region", "");
        if (set.contains("power") && set["power"].is_number_integer()) f.power_dbm = set["power"].get<int>();
        if (set.contains("antennas") && set["antennas"].is_array())
            for (const json& a : set["antennas"])
                if (a.is_number_integer()) f.antennas.push_back(a.get<int>());
        if (set.contains("session") && set["session"].is_number_integer()) f.session = set["session"].get<int>();
        if (set.contains("q") && set["q"].is_number_integer()) f.q = set["q"].get<int>();
        const std::string state = d.value("state", "");
        f.connected = state == "running" || state == "stopped";
        return f;
    }

    void start_inventory(const llrp::InventoryPlan& plan, uint32_t token) override {
        json filter;
        if (plan.mask && !module_filter(*plan.mask, filter) && plan.mask->bank != 1)
            return server.post(*this, [a = answer(token)] { a("the module filters TID and USER by whole bytes only"); });
        if (!started) {
            const json d = server.sup_.details(name);
            before = d.value("settings", json::object());
            was_running = d.value("state", "") == "running";
            started = true;
        }
        ReaderSettings s;
        // No antennas named is LLRP's antenna 0: every antenna the module has.
        s.antennas = plan.antennas;
        if (s.antennas->empty())
            for (int a = 1; a <= facts().antenna_count; a++) s.antennas->push_back(a);
        s.power = plan.power_dbm;
        s.session = plan.session;
        s.q = plan.q;
        for (auto [want, kept] : {std::pair{&s.power, &changed.power}, {&s.session, &changed.session}, {&s.q, &changed.q}})
            if (*want) *kept = **want;
        if (s.antennas) changed.antennas = s.antennas;
        host_mask = plan.mask && filter.is_null() ? plan.mask : std::nullopt;
        auto steps = std::make_shared<std::deque<Step>>();
        Supervisor& sup = server.sup_;
        if (s.antennas || s.power || s.session || s.q)
            steps->push_back([&sup, n = name, s](Supervisor::Done d) { sup.apply(n, s, d); });
        if (!filter.is_null() || filtered) {
            filtered = !filter.is_null();
            const std::string text = filter.is_null() ? "{}" : filter.dump();
            steps->push_back([&sup, n = name, text](Supervisor::Done d) { sup.set_filter(n, text, d); });
        }
        steps->push_back([&sup, n = name](Supervisor::Done d) { sup.set_inventory(n, true, d); });
        run(steps, answer(token));
    }

    // Puts back what the starts changed: the filter, the settings, an idle reader.
    void stop_inventory(uint32_t token) override {
        auto end = answer(token);
        if (!started) return server.post(*this, [end] { end(""); });
        started = false;
        host_mask.reset();
        auto steps = std::make_shared<std::deque<Step>>();
        Supervisor& sup = server.sup_;
        ReaderSettings back;
        auto restore = [&](const char* key, auto& from, auto& to) {
            if (from && before.contains(key)) try {
                    to = before[key].get<std::decay_t<decltype(*from)>>();
                } catch (const json::exception&) {  // a reader that said something odd keeps the change
                }
            from.reset();
        };
        restore("power", changed.power, back.power);
        restore("session", changed.session, back.session);
        restore("q", changed.q, back.q);
        restore("antennas", changed.antennas, back.antennas);
        if (!was_running) steps->push_back([&sup, n = name](Supervisor::Done d) { sup.set_inventory(n, false, d); });
        if (back.power || back.session || back.q || back.antennas)
            steps->push_back([&sup, n = name, back](Supervisor::Done d) { sup.apply(n, back, d); });
        if (filtered) steps->push_back([&sup, n = name](Supervisor::Done d) { sup.set_filter(n, "{}", d); });
        filtered = false;
        run(steps, end);
    }

    void set_power(int dbm, uint32_t token) override {
        ReaderSettings s;
        s.power = dbm;
        changed.power.reset();  // the client's configuration now, not a start's
        Supervisor::Done end = [this, a = answer(token)](const std::string& err) {
            server.post(*this, [a, err] { a(err); });
        };
        server.sup_.apply(name, s, end);
    }

    void access(const llrp::AccessRequest& req, uint32_t token) override {
        static const char* kinds[] = {"read", "write", "lock"};
        json j = {{"kind", kinds[req.kind]}, {"epc", hex(req.epc)},   {"password", req.password},
                  {"bank", req.bank},         {"ptr", req.word_ptr}, {"count", req.word_count},
                  {"data", hex(req.data)},    {"mask", req.lock_mask}, {"action", req.lock_action}};
        server.sup_.access(name, j.dump(),
                           [this, token, gen = generation](uint8_t code, const std::string& data, const std::string&) {
                               llrp::AccessResult r;
                               r.code = code <= llrp::AccessResult::OtherError
                                            ? static_cast<llrp::AccessResult::Code>(code)
                                            : llrp::AccessResult::OtherError;
                               r.data.assign(data.begin(), data.end());
                               server.post(*this, [this, token, gen, r] {
                                   if (engine && generation == gen) engine->access_done(token, r, now_ms());
                               });
                           });
    }
};

LlrpServer::LlrpServer(Supervisor& sup) : sup_(sup) {}

LlrpServer::~LlrpServer() { stop(); }

bool LlrpServer::start(const std::string& bind, const std::vector<int>& ports, const std::vector<std::string>& names,
                       const std::vector<int>& antennas, std::string& err) {
    for (size_t i = 0; i < ports.size() && i < names.size(); i++) {
        endpoints_.emplace_back();
        if (ports[i] == 0) continue;
        ListenAddress a;
        auto e = std::make_unique<Endpoint>(*this, static_cast<uint16_t>(i), names[i]);
        if (i < antennas.size()) e->antennas = antennas[i];
        if (!resolve_listen(bind, ports[i], a, err) || (e->listen_fd = listen_on(a, err)) < 0) {
            stop();
            return false;
        }
        endpoints_.back() = std::move(e);
    }
    wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    thread_ = std::thread(&LlrpServer::loop, this);
    return true;
}

void LlrpServer::stop() {
    stop_ = true;
    wake();
    if (thread_.joinable()) thread_.join();
    const int64_t now = now_ms();
    for (auto& e : endpoints_) {
        if (!e) continue;
        if (e->client_fd >= 0) close_client(*e, now);
        if (e->listen_fd >= 0) close(std::exchange(e->listen_fd, -1));
    }
    if (wake_fd_ >= 0) close(std::exchange(wake_fd_, -1));
}

void LlrpServer::wake() {
    if (wake_fd_ < 0) return;
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t n = write(wake_fd_, &one, sizeof one);
}

void LlrpServer::post(Endpoint& e, std::function<void()> f) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        e.jobs.push_back(std::move(f));
    }
    wake();
}

// Only while a client is there; one wake-up for a burst.
void LlrpServer::read(const Read& r) {
    if (r.reader >= endpoints_.size() || !endpoints_[r.reader]) return;
    Endpoint& e = *endpoints_[r.reader];
    if (!e.live.load(std::memory_order_relaxed)) return;
    bool first;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (e.inbox.size() >= kMaxInbox) return void(e.dropped++);
        first = e.inbox.empty();
        e.inbox.push_back(r);
    }
    if (first) wake();
}

std::vector<LlrpServer::Stats> LlrpServer::stats() const {
    std::vector<Stats> out;
    std::lock_guard<std::mutex> lock(mu_);
    for (const auto& e : endpoints_)
        if (e) out.push_back({e->name, e->live.load(), e->dropped});
    return out;
}

void LlrpServer::state(const std::string& reader, LinkState s, const std::string& why) {
    if (s == LinkState::Connecting) return;
    const bool up = s != LinkState::Reconnecting;
    for (auto& e : endpoints_)
        if (e && e->name == reader)
            post(*e, [ep = e.get(), up, why] {
                if (ep->engine) ep->engine->link(up, why, now_ms());
            });
}

void LlrpServer::accept(Endpoint& e, int64_t now) {
    const int fd = accept4(e.listen_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    const int on = 1, idle = 10, interval = 5, count = 3;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // A client whose host vanished frees the endpoint within half a minute.
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
    if (e.client_fd >= 0) {
        std::string refusal;
        llrp::write_connection_refused(refusal, now);
        [[maybe_unused]] ssize_t n = send(fd, refusal.data(), refusal.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        close(fd);
        return;
    }
    e.client_fd = fd;
    e.generation++;
    e.out.clear();
    e.out_pos = 0;
    e.engine = std::make_unique<llrp::Engine>(e, now);
    {
        std::lock_guard<std::mutex> lock(mu_);
        e.inbox.clear();
    }
    e.live = true;
    e.engine->connected(now);
}

void LlrpServer::close_client(Endpoint& e, int64_t now) {
    e.live = false;
    if (e.engine) e.engine->disconnected(now);  // stops what the connection started
    e.engine.reset();
    if (e.started) e.stop_inventory(0);  // whatever the engine left running
    e.generation++;
    if (e.client_fd >= 0) close(std::exchange(e.client_fd, -1));
    e.out.clear();
    e.out_pos = 0;
}

void LlrpServer::receive(Endpoint& e, int64_t now) {
    uint8_t buf[16384];
    for (;;) {
        const ssize_t n = recv(e.client_fd, buf, sizeof buf, MSG_DONTWAIT);
        if (n > 0) {
            if (!e.engine->input(buf, static_cast<size_t>(n), now)) {
                flush(e);  // CLOSE_CONNECTION's answer goes out before the close
                return close_client(e, now);
            }
            if (static_cast<size_t>(n) < sizeof buf) return;
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
        return close_client(e, now);
    }
}

// The server thread's share of what others handed over: jobs, then reads.
void LlrpServer::drain(Endpoint& e, int64_t now) {
    std::deque<std::function<void()>> jobs;
    {
        std::lock_guard<std::mutex> lock(mu_);
        jobs.swap(e.jobs);
        e.taken.swap(e.inbox);
    }
    for (auto& job : jobs) job();
    if (e.engine)
        for (const Read& r : e.taken)
            if (!e.host_mask || mask_matches(*e.host_mask, r)) e.engine->tag_read(r, now);
    e.taken.clear();
}

// False when the client is to be dropped: it lets too much pile up.
bool LlrpServer::flush(Endpoint& e) {
    if (!e.engine || e.client_fd < 0) return true;
    std::string& fresh = e.engine->output();
    if (!fresh.empty()) {
        if (e.out_pos == e.out.size()) {
            e.out.swap(fresh);
            e.out_pos = 0;
        } else {
            e.out += fresh;
        }
        fresh.clear();
    }
    while (e.out_pos < e.out.size()) {
        const ssize_t n = send(e.client_fd, e.out.data() + e.out_pos, e.out.size() - e.out_pos, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n <= 0) break;
        e.out_pos += static_cast<size_t>(n);
    }
    if (e.out_pos == e.out.size()) {
        e.out.clear();
        e.out_pos = 0;
    } else if (e.out_pos > (1u << 20)) {
        e.out.erase(0, e.out_pos);
        e.out_pos = 0;
    }
    return e.out.size() - e.out_pos <= kMaxPending;
}

void LlrpServer::loop() {
    std::vector<pollfd> fds;
    std::vector<std::pair<Endpoint*, bool>> owners;  // (endpoint, is the client) per fds entry after the first
    while (!stop_) {
        int64_t now = now_ms();
        int64_t deadline = INT64_MAX;
        fds.assign(1, pollfd{wake_fd_, POLLIN, 0});
        owners.clear();
        for (auto& e : endpoints_) {
            if (!e) continue;
            fds.push_back({e->listen_fd, POLLIN, 0});
            owners.emplace_back(e.get(), false);
            if (e->client_fd < 0) continue;
            fds.push_back({e->client_fd, static_cast<short>(POLLIN | (e->out_pos < e->out.size() ? POLLOUT : 0)), 0});
            owners.emplace_back(e.get(), true);
            deadline = std::min(deadline, e->engine->next_deadline());
        }
        const int timeout = deadline == INT64_MAX ? -1 : static_cast<int>(std::clamp<int64_t>(deadline - now, 0, 60000));
        if (poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR) break;
        if (fds[0].revents) {
            uint64_t v;
            [[maybe_unused]] ssize_t n = ::read(wake_fd_, &v, sizeof v);
        }
        now = now_ms();
        // Clients before listeners: a client that left frees its endpoint for one waiting to connect.
        for (bool listeners : {false, true})
            for (size_t i = 1; i < fds.size(); i++) {
                auto [e, client] = owners[i - 1];
                if (!fds[i].revents || client == listeners) continue;
                if (!client) accept(*e, now);
                else if (e->client_fd == fds[i].fd && (fds[i].revents & (POLLIN | POLLHUP | POLLERR))) receive(*e, now);
            }
        for (auto& e : endpoints_) {
            if (!e) continue;
            drain(*e, now);
            if (e->engine) e->engine->tick(now);
            // Dropped when it lets too much pile up, closed when the engine says so (its last words sent).
            if (!flush(*e) || (e->engine && !e->engine->open())) close_client(*e, now);
        }
    }
}

}  // namespace uhfd
