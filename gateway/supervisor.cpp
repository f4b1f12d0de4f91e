#include "supervisor.h"

#include <chrono>
#include <cmath>
#include <cstdio>

#include "UHF.h"
#include "reader_settings.h"
#include "tag_json.h"

namespace uhfd {

using nlohmann::json;

namespace {

// A running reader that sent nothing for this long is asked whether it is there.
constexpr double kQuietS = 1.5;
constexpr unsigned kSimTags = 30;
constexpr unsigned kSimRate = 300;
constexpr const char* kBusy = "the gateway is busy or stopping; try again";

// The reader's code of a word the configuration check accepted.
uint8_t code_of(const char* setting, const std::string& word) {
    int code = 0;
    uhftools::choice_code(uhftools::setting_row(setting), word, code);
    return static_cast<uint8_t>(code);
}

std::string hex(const uint8_t* p, size_t n) {
    static const char d[] = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; i++) {
        s += d[p[i] >> 4];
        s += d[p[i] & 15];
    }
    return s;
}

bool is_sim(const std::string& uri) { return uri == "sim" || uri.rfind("sim:", 0) == 0; }

// Set by the library's USB receive thread when the reader goes away; only
// one USB reader can be open at a time.
std::atomic<bool> g_usb_unplugged{false};
void usb_unplugged(int) { g_usb_unplugged = true; }

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

Supervisor::Supervisor(const Config& c, Hub& hub, Presence& presence) : config_(c), hub_(hub), presence_(presence) {
    for (const ReaderConfig& rc : c.readers) {
        Reader r;
        r.conf = rc;
        r.view.name = rc.name;
        r.view.uri = rc.uri;
        std::string err;
        if (is_sim(rc.uri))
            r.target.kind = uhftools::Target::Sim;
        else
            uhftools::parse_target(rc.uri, r.target, err);  // checked with the configuration
        readers_.push_back(std::move(r));
    }
}

Supervisor::~Supervisor() { stop(); }

void Supervisor::start() { thread_ = std::thread(&Supervisor::loop, this); }

void Supervisor::stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
}

std::vector<ReaderView> Supervisor::readers() const {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<ReaderView> out;
    for (const Reader& r : readers_) out.push_back(r.view);
    return out;
}

bool Supervisor::has(const std::string& name) const {
    for (const Reader& r : readers_)
        if (r.conf.name == name) return true;
    return false;
}

Supervisor::Reader* Supervisor::find(const std::string& name) {
    for (Reader& r : readers_)
        if (r.conf.name == name) return &r;
    return nullptr;
}

void Supervisor::loop() {
    while (!stop_) {
        run_jobs();
        double now = uhftools::unix_now();
        for (Reader& r : readers_)
            if (r.slot < 0 && now >= r.next_try && !stop_) connect(r, uhftools::unix_now());
        size_t n = take_reports(uhftools::unix_now());
        tick(uhftools::unix_now());
        if (n == 0) {
            std::unique_lock<std::mutex> lock(mu_);
            jobs_done_.wait_for(lock, std::chrono::milliseconds(5), [&] { return !jobs_.empty() || stop_; });
        }
    }
    run_jobs();
    for (Reader& r : readers_) {
        if (r.slot < 0 || !select(r)) continue;
        if (r.view.state == LinkState::Running) UHFStopGet();
        ClosePort();
        r.slot = -1;
        set_state(r, LinkState::Stopped);
    }
}

void Supervisor::run_jobs() {
    for (;;) {
        std::function<void()> job;
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (jobs_.empty()) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

std::optional<std::string> Supervisor::run_job(std::function<std::string()> job) {
    auto done = std::make_shared<bool>(false);
    auto result = std::make_shared<std::string>();
    std::unique_lock<std::mutex> lock(mu_);
    jobs_.push_back([this, job, done, result] {
        std::string r = job();
        std::lock_guard<std::mutex> l(mu_);
        *result = r;
        *done = true;
        jobs_done_.notify_all();
    });
    jobs_done_.notify_all();
    // Long enough for a reader being reconnected to time out first.
    // A job still queued when the wait gives up runs later on its own copies.
    if (!jobs_done_.wait_for(lock, std::chrono::seconds(20), [&] { return *done || stop_; }) || !*done)
        return std::nullopt;
    return *result;
}

bool Supervisor::select(const Reader& r) const { return r.slot >= 0 && LinkSelect(r.slot) == 0; }

void Supervisor::set_state(Reader& r, LinkState s) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (r.view.state == s) return;
        r.view.state = s;
    }
    if (on_state) on_state(r.conf.name, s);
}

void Supervisor::connect(Reader& r, double now) {
    std::string err;
    if (r.target.kind == uhftools::Target::Sim && !r.sim) {
        unsigned tags = kSimTags;
        if (r.conf.uri.size() > 4) tags = static_cast<unsigned>(std::stoul(r.conf.uri.substr(4)));
        r.sim = std::make_unique<uhftools::SimReader>(tags, kSimRate, 1);
        if (!r.sim->start(err)) r.sim.reset();
        r.target.host = "127.0.0.1";
        r.target.port = r.sim ? r.sim->port() : 0;
    }
    bool ok = (r.target.kind != uhftools::Target::Sim || r.sim) && uhftools::open_target(r.target, err);
    if (ok) {
        r.slot = LinkGetSelected();
        if (r.target.kind == uhftools::Target::Usb) {
            g_usb_unplugged = false;
            SetDisconnectCallback(usb_unplugged);
        }
        if (!apply_now(r.conf.settings, err))
            err = "settings: " + err;
        else if (r.want_running && UHFInventory() != 0)
            err = "the reader did not start its inventory";
        else
            err.clear();
        ok = err.empty();
        if (!ok) lose(r, err, now);
    } else {
        std::lock_guard<std::mutex> lock(mu_);
        r.view.error = err;
    }
    if (!ok) {
        if (r.view.state == LinkState::Running || r.view.state == LinkState::Stopped || r.view.reconnects ||
            r.backoff.attempts())
            set_state(r, LinkState::Reconnecting);
        r.next_try = now + static_cast<double>(r.backoff.next().count()) / 1000.0;
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (r.backoff.attempts() && r.view.state == LinkState::Reconnecting) r.view.reconnects++;
        r.view.error.clear();
    }
    r.backoff.reset();
    r.last_report = r.last_probe = now;
    set_state(r, r.want_running ? LinkState::Running : LinkState::Stopped);
}

void Supervisor::lose(Reader& r, const std::string& why, double now) {
    if (select(r)) ClosePort();
    r.slot = -1;
    {
        std::lock_guard<std::mutex> lock(mu_);
        r.view.error = why;
    }
    set_state(r, LinkState::Reconnecting);
    r.next_try = now + static_cast<double>(r.backoff.next().count()) / 1000.0;
}

bool Supervisor::apply_now(const ReaderSettings& s, std::string& err) {
    auto refused = [&](const std::string& what) {
        err = "the reader refused the " + what;
        return false;
    };
    if (s.power && !uhftools::set_power_everywhere(false, static_cast<uint16_t>(*s.power * 100)))
        return refused("power");
    if (s.antennas) {
        unsigned mask = 0;
        for (int a : *s.antennas) mask |= 1u << (a - 1);
        uint8_t b[2] = {static_cast<uint8_t>(mask >> 8), static_cast<uint8_t>(mask)};
        if (UHFSetANT(0, b) != 0) return refused("antennas");
    }
    if (s.region && UHFSetRegion(0, code_of("region", *s.region)) != 0) return refused("region");
    if (s.session || s.target || s.q) {
        uhftools::Gen2Block g;
        if (!uhftools::read_gen2(g)) return refused("Gen2 query");
        for (auto [name, v] : {std::pair{"session", &s.session}, {"target", &s.target}, {"q", &s.q}})
            if (*v) g.f[uhftools::setting_row(name).gen2] = static_cast<uint8_t>(**v);
        if (!uhftools::write_gen2(g)) return refused("Gen2 parameters");
    }
    if (s.mode && UHFSetEPCTIDUSERMode(0, code_of("mode", *s.mode), 0, 0) != 0) return refused("inventory mode");
    return true;
}

size_t Supervisor::take_reports(double now) {
    uint8_t out[512];
    int len = 0;
    size_t n = 0;
    // A bounded batch per pass keeps jobs and link checks going at any read rate.
    while (n < 2000 && UHFGetTagData(&len, out) == 0) {
        n++;
        int slot = -1, rssi = 0, antenna = 1;
        const uint8_t* uii = nullptr;
        size_t uii_len = 0;
        for (int i = 0; len <= static_cast<int>(sizeof out) && i + 2 <= len;) {
            uint8_t type = out[i], k = out[i + 1];
            const uint8_t* v = out + i + 2;
            if (i + 2 + k > len) break;
            if (type == 0x01 && k == 2) slot = v[0] << 8 | v[1];
            if (type == 0x06) uii = v, uii_len = k;
            if (type == 0x04 && k == 2) rssi = static_cast<int16_t>(v[0] << 8 | v[1]);
            if (type == 0x05 && k == 1) antenna = v[0];
            i += 2 + k;
        }
        Reader* r = nullptr;
        for (Reader& c : readers_)
            if (c.slot >= 0 && c.slot == slot) r = &c;
        if (!r || uii_len < 2) continue;
        r->last_report = now;
        r->rate_count++;
        Read rd{r->conf.name, hex(uii + 2, uii_len - 2), hex(uii, 2), "", rssi, antenna, now};
        {
            std::lock_guard<std::mutex> lock(mu_);
            r->view.reads++;
            r->view.per_antenna[antenna]++;
        }
        std::vector<Event> arrived;
        if (!presence_.add(rd, arrived)) continue;
        hub_.publish(rd);
        for (const Event& e : arrived) hub_.publish(e);
    }
    return n;
}

void Supervisor::tick(double now) {
    for (Reader& r : readers_) {
        if (now - r.rate_mark >= 1.0) {
            std::lock_guard<std::mutex> lock(mu_);
            r.view.reads_per_s = r.rate_mark > 0 ? static_cast<double>(r.rate_count) / (now - r.rate_mark) : 0;
            r.rate_count = 0;
            r.rate_mark = now;
        }
        if (r.slot >= 0 && r.target.kind == uhftools::Target::Usb && g_usb_unplugged.exchange(false)) {
            lose(r, "the USB reader was unplugged", now);
            continue;
        }
        if (r.slot < 0 || r.view.state != LinkState::Running) continue;
        if (now - r.last_report < kQuietS || now - r.last_probe < kQuietS) continue;
        // Quiet: an empty field, or a reader that went away. Ask it.
        r.last_probe = now;
        uint8_t version[16];
        bool there = select(r);
        if (there) {
            UHFStopGet();
            there = UHFGetSoftwareVersion(version) == 0 && UHFInventory() == 0;
        }
        if (!there) lose(r, "it stopped sending and does not answer", uhftools::unix_now());
    }
    std::vector<Event> departed;
    presence_.expire(now, departed);
    for (const Event& e : departed) hub_.publish(e);
}

json Supervisor::details(const std::string& name) {
    auto text = run_job([this, name]() -> std::string {
        json out;
        Reader* r = find(name);
        ReaderView v;
        {
            std::lock_guard<std::mutex> lock(mu_);
            v = r->view;
        }
        out = {{"name", v.name},
               {"uri", v.uri},
               {"state", state_name(v.state)},
               {"reads", v.reads},
               {"reconnects", v.reconnects},
               {"reads_per_s", std::round(v.reads_per_s * 10) / 10}};
        if (!v.error.empty()) out["error"] = v.error;
        if (!select(*r)) return out.dump();
        bool running = v.state == LinkState::Running;
        if (running) UHFStopGet();
        uint8_t b[300] = {}, power = 0, region = 0, mode = 0, ant[2] = {};
        uhftools::Gen2Block g;
        unsigned id = 0;
        json info, settings;
        if (UHFGetSoftwareVersion(b) == 0 && b[0] >= 1)
            info["software"] = std::string(reinterpret_cast<char*>(b + 1), b[0] - 1u);
        if (UHFGetHardwareVersion(b) == 0) info["hardware"] = std::string(reinterpret_cast<char*>(b + 1), b[0]);
        if (UHFGetDeviceID(&id) == 0) {
            char t[16];
            std::snprintf(t, sizeof t, "%08X", id);
            info["device_id"] = t;
        }
        if (UHFGetPower(&power) == 0) settings["power"] = power;
        if (UHFGetANT(ant) == 0) {
            json list = json::array();
            for (int a = 0; a < 16; a++)
                if ((ant[0] << 8 | ant[1]) >> a & 1) list.push_back(a + 1);
            settings["antennas"] = list;
        }
        if (UHFGetRegion(&region) == 0)
            settings["region"] = uhftools::choice_word(uhftools::setting_row("region"), region);
        if (uhftools::read_gen2(g))
            for (const char* name : {"session", "target", "q"}) settings[name] = g.f[uhftools::setting_row(name).gen2];
        if (UHFGetEPCTIDMode(&mode) == 0) settings["mode"] = uhftools::choice_word(uhftools::setting_row("mode"), mode);
        if (running) UHFInventory();
        out["info"] = info;
        out["settings"] = settings;
        return out.dump();
    });
    if (!text) return {{"name", name}, {"error", kBusy}};
    return json::parse(*text);
}

std::string Supervisor::apply(const std::string& name, const ReaderSettings& s) {
    return run_job([this, name, s]() -> std::string {
               Reader* r = find(name);
               if (!select(*r)) return "the reader is not connected";
               bool running = r->view.state == LinkState::Running;
               if (running) UHFStopGet();
               std::string err;
               bool ok = apply_now(s, err);
               if (running) UHFInventory();
               if (!ok) return err;
               // What a reconnect applies from now on.
               ReaderSettings& kept = r->conf.settings;
               if (s.power) kept.power = s.power;
               if (s.antennas) kept.antennas = s.antennas;
               if (s.region) kept.region = s.region;
               if (s.session) kept.session = s.session;
               if (s.target) kept.target = s.target;
               if (s.q) kept.q = s.q;
               if (s.mode) kept.mode = s.mode;
               return "";
           })
        .value_or(kBusy);
}

std::string Supervisor::set_inventory(const std::string& name, bool on) {
    return run_job([this, name, on]() -> std::string {
               Reader* r = find(name);
               r->want_running = on;
               if (!select(*r)) return "";  // applies when it connects
               if (on == (r->view.state == LinkState::Running)) return "";
               if (on ? UHFInventory() != 0 : UHFStopGet() != 0)
                   return on ? "the reader did not start its inventory" : "the reader did not confirm the stop";
               r->last_report = r->last_probe = uhftools::unix_now();
               set_state(*r, on ? LinkState::Running : LinkState::Stopped);
               return "";
           })
        .value_or(kBusy);
}

}  // namespace uhfd
