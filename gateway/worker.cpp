#include "worker.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "UHF.h"
#include "config.h"
#include "llrp_port.h"
#include "reader_link.h"
#include "reader_settings.h"
#include "sim_reader.h"
#include "supervisor.h"
#include "tag_json.h"
#include "worker_wire.h"

namespace uhfd {

using nlohmann::json;

namespace {

// A running reader that sent nothing for this long is asked whether it is there.
constexpr int64_t kQuietMs = 1500;
constexpr int64_t kHeartbeatMs = 1000;
constexpr unsigned kSimTags = 30, kSimRate = 300;
// Reads taken from the queue per pass before the socket is looked at again.
constexpr int kReadsPerPass = 2000;
// Messages the supervisor has not taken yet wait here, so that a supervisor
// busy for a moment (a checkpoint of its outbox, a burst of other readers)
// does not stop this worker draining the library's queue, which discards
// itself whole when full (125 ms at 100,000 reads/s). Beyond this the worker
// waits for the supervisor, as it always did.
constexpr size_t kPendingBytes = 32u << 20;
constexpr int kDrainMs = 5000;  // at exit, for what is still pending

std::atomic<bool> g_unplugged{false};
void usb_unplugged(int) { g_unplugged = true; }

int64_t now_ms() { return static_cast<int64_t>(uhftools::unix_now() * 1000); }

// The reader's code of a word the configuration check accepted.
uint8_t code_of(const char* setting, const std::string& word) {
    int code = 0;
    uhftools::choice_code(uhftools::setting_row(setting), word, code);
    return static_cast<uint8_t>(code);
}

// L, PC+EPC, d, data, RSSI hi, RSSI lo, antenna: UHF_GetReceived_EX's layout.
bool parse_report(const uint8_t* out, size_t n, Read& r) {
    if (n < 6) return false;
    const size_t l = out[0];
    if (l < 2 || l - 2 > r.epc.size() || l + 2 > n) return false;
    const size_t d = out[l + 1];
    if (l + 2 + d + 3 > n || d > r.data.size()) return false;
    r.pc = static_cast<uint16_t>(out[1] << 8 | out[2]);
    r.epc_len = static_cast<uint8_t>(l - 2);
    std::copy(out + 3, out + 1 + l, r.epc.begin());
    r.data_len = static_cast<uint8_t>(d);
    std::copy(out + l + 2, out + l + 2 + d, r.data.begin());
    r.rssi = static_cast<int16_t>(out[n - 3] << 8 | out[n - 2]);
    r.antenna = out[n - 1];
    return true;
}

class Worker {
public:
    explicit Worker(int fd) : fd_(fd) {}
    // Serves until told to stop or the link is lost; what is pending goes before the exit.
    int run() {
        const int rc = serve();
        flush(kDrainMs);
        return rc;
    }

private:
    int serve();
    // Queues m behind what is pending and sends what the socket takes now;
    // false when the supervisor is gone.
    bool send(const std::string& m);
    // Sends what is pending, waiting up to wait_ms for room (0: not at all).
    bool flush(int wait_ms);
    void pulse();
    void set_state(LinkState s, const std::string& why = "");
    bool open(const std::string& uri, std::string& err);
    bool apply(const ReaderSettings& s, std::string& err);
    json details();
    void send_details();
    void access(uint32_t id, const json& req);
    std::string filter(const json& req);
    bool handle(const wire::Message& m);
    bool take_reads();
    bool more_ = false;  // the last pass stopped at kReadsPerPass: the queue holds more
    bool probe();
    // Stops the inventory around f when it runs, and starts it again after.
    template <typename F>
    auto paused(F f) {
        if (running_) UHFStopGet();
        auto r = f();
        if (running_ && UHFInventory() != 0) lost_ = "the reader did not start its inventory again";
        return r;
    }

    int fd_;
    std::unique_ptr<uhftools::SimReader> sim_;
    bool running_ = false;
    std::string lost_;  // set when the link is gone: why
    int64_t last_sent_ = 0, last_report_ = 0, last_probe_ = 0;
    uint64_t overflows_said_ = 0;
    std::string out_;
    std::deque<std::string> pending_;
    size_t pending_bytes_ = 0;
};

bool Worker::send(const std::string& m) {
    last_sent_ = now_ms();
    if (pending_.empty()) {  // the usual case: no copy
        const ssize_t n = ::send(fd_, m.data(), m.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n == static_cast<ssize_t>(m.size())) return true;
        if (n >= 0 || (errno != EAGAIN && errno != EINTR)) return false;
    }
    pending_.push_back(m);
    pending_bytes_ += m.size();
    return flush(pending_bytes_ > kPendingBytes ? kDrainMs : 0);
}

bool Worker::flush(int wait_ms) {
    while (!pending_.empty()) {
        const std::string& m = pending_.front();
        const ssize_t n = ::send(fd_, m.data(), m.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == EAGAIN) {
            pollfd p{fd_, POLLOUT, 0};
            if (wait_ms > 0 && poll(&p, 1, wait_ms) == 1 && !(p.revents & (POLLERR | POLLHUP))) continue;
            return wait_ms == 0;  // the supervisor did not take it in time: as gone
        }
        if (n != static_cast<ssize_t>(m.size())) return false;
        pending_bytes_ -= m.size();
        pending_.pop_front();
    }
    return true;
}

// Reports the library's full queue discarded go as soon as there are new
// ones, busy stream or not; otherwise a heartbeat when nothing else was sent
// for a while (long sequences of exchanges keep the hang check satisfied).
void Worker::pulse() {
    if (const uint64_t n = UHF_GetQueueOverflowCount(); n != overflows_said_) {
        overflows_said_ = n;
        wire::overflows(out_, n);
    } else if (now_ms() - last_sent_ >= kHeartbeatMs) {
        wire::bare(out_, wire::kHeartbeat);
    } else {
        return;
    }
    send(out_);
}

void Worker::set_state(LinkState s, const std::string& why) {
    wire::state(out_, static_cast<uint8_t>(s), why);
    send(out_);
}

bool Worker::open(const std::string& uri, std::string& err) {
    uhftools::Target t;
    if (uri == "sim" || uri.rfind("sim:", 0) == 0) {
        const unsigned tags = uri.size() > 4 ? static_cast<unsigned>(std::stoul(uri.substr(4))) : kSimTags;
        sim_ = std::make_unique<uhftools::SimReader>(tags, kSimRate, 1);
        if (!sim_->start(err)) return false;
        t.kind = uhftools::Target::Sim;
        t.host = "127.0.0.1";
        t.port = sim_->port();
    } else if (!uhftools::parse_target(uri, t, err)) {
        return false;
    }
    if (!uhftools::open_target(t, err)) return false;
    if (t.kind == uhftools::Target::Usb) SetDisconnectCallback(usb_unplugged);
    return true;
}

bool Worker::apply(const ReaderSettings& s, std::string& err) {
    auto refused = [&](const std::string& what) {
        err = "the reader refused the " + what;
        return false;
    };
    if (s.power && !uhftools::set_power_everywhere(false, static_cast<uint16_t>(*s.power * 100)))
        return refused("power");
    pulse();
    if (s.antennas) {
        unsigned mask = 0;
        for (int a : *s.antennas) mask |= 1u << (a - 1);
        uint8_t b[2] = {static_cast<uint8_t>(mask >> 8), static_cast<uint8_t>(mask)};
        if (UHFSetANT(0, b) != 0) return refused("antennas");
    }
    if (s.region && UHFSetRegion(0, code_of("region", *s.region)) != 0) return refused("region");
    pulse();
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

// What the REST API shows of the reader: asked once at connect and after
// every change, never while anyone waits on it.
json Worker::details() {
    uint8_t b[300] = {}, power = 0, region = 0, mode = 0, ant[2] = {};
    unsigned id = 0;
    json info = json::object(), settings = json::object();
    if (UHFGetSoftwareVersion(b) == 0 && b[0] >= 1)
        info["software"] = std::string(reinterpret_cast<char*>(b + 1), b[0] - 1u);
    if (UHFGetHardwareVersion(b) == 0) info["hardware"] = std::string(reinterpret_cast<char*>(b + 1), b[0]);
    if (UHFGetDeviceID(&id) == 0) {
        char t[16];
        std::snprintf(t, sizeof t, "%08X", id);
        info["device_id"] = t;
    }
    pulse();
    if (UHFGetPower(&power) == 0) settings["power"] = power;
    if (UHFGetANT(ant) == 0) {
        json list = json::array();
        for (int a = 0; a < 16; a++)
            if ((ant[0] << 8 | ant[1]) >> a & 1) list.push_back(a + 1);
        settings["antennas"] = list;
    }
    pulse();
    if (UHFGetRegion(&region) == 0) settings["region"] = uhftools::choice_word(uhftools::setting_row("region"), region);
    uhftools::Gen2Block g;
    if (uhftools::read_gen2(g))
        for (const char* name : {"session", "target", "q"}) settings[name] = g.f[uhftools::setting_row(name).gen2];
    if (UHFGetEPCTIDMode(&mode) == 0) settings["mode"] = uhftools::choice_word(uhftools::setting_row("mode"), mode);
    return {{"info", info}, {"settings", settings}};
}

void Worker::send_details() {
    wire::text(out_, wire::kDetails, details().dump());
    send(out_);
}

// Bytes from hex text; false on anything else or more than max bytes.
bool from_hex(const json& j, std::vector<uint8_t>& out, size_t max) {
    if (!j.is_string() || j.get_ref<const std::string&>().size() % 2 || j.get_ref<const std::string&>().size() > 2 * max)
        return false;
    const std::string& t = j.get_ref<const std::string&>();
    out.clear();
    for (size_t i = 0; i < t.size(); i += 2) {
        unsigned v = 0;
        if (std::sscanf(t.c_str() + i, "%2x", &v) != 1 || !std::isxdigit(static_cast<unsigned char>(t[i])) ||
            !std::isxdigit(static_cast<unsigned char>(t[i + 1])))
            return false;
        out.push_back(static_cast<uint8_t>(v));
    }
    return true;
}

// One tag-access operation on the tag whose EPC the request names (the
// supervisor checked the request; a malformed one is refused here too).
void Worker::access(uint32_t id, const json& req) {
    using Code = llrp::AccessResult::Code;
    std::vector<uint8_t> epc, data;
    uint8_t words[2048] = {};
    auto reply = [&](Code code, size_t bytes) {
        wire::access_done(out_, id, code, {reinterpret_cast<const char*>(words), bytes});
        send(out_);
    };
    if (!req.is_object() || !from_hex(req.value("epc", json()), epc, 62) ||
        !from_hex(req.value("data", json("")), data, 200))
        return reply(Code::OtherError, 0);
    const uint32_t password = req.value("password", 0u);
    uint8_t pwd[4] = {static_cast<uint8_t>(password >> 24), static_cast<uint8_t>(password >> 16),
                      static_cast<uint8_t>(password >> 8), static_cast<uint8_t>(password)};
    const std::string kind = req.value("kind", "");
    const uint8_t bank = req.value("bank", uint8_t{3});
    const int ptr = req.value("ptr", 0), count = req.value("count", 0);
    const int epc_bits = static_cast<int>(epc.size() * 8);
    int rc = -1;
    // The tag is chosen by its whole EPC, from the EPC bank's first EPC bit.
    if (kind == "read" && count > 0 && count <= 1024) {
        rc = UHFReadData(pwd, 1, 32, epc_bits, epc.data(), bank, ptr, static_cast<uint16_t>(count), words);
        if (rc == 0) return reply(Code::Ok, static_cast<size_t>(count) * 2);
    } else if (kind == "write" && !data.empty() && data.size() % 2 == 0) {
        rc = UHFWriteData(pwd, 1, 32, epc_bits, epc.data(), bank, ptr, static_cast<uint16_t>(data.size() / 2),
                          data.data());
    } else if (kind == "lock") {
        const unsigned payload = (req.value("mask", 0u) & 0x3FF) << 10 | (req.value("action", 0u) & 0x3FF);
        uint8_t b[3] = {static_cast<uint8_t>(payload >> 16), static_cast<uint8_t>(payload >> 8),
                        static_cast<uint8_t>(payload)};
        rc = UHFLockTag(pwd, 1, 32, static_cast<unsigned>(epc_bits), epc.data(), b);
    }
    // The module says only that it failed: most often the tag was gone.
    reply(rc == 0 ? Code::Ok : Code::NoResponse, 0);
}

// The inventory's select mask ({} lifts it): the module takes whole bytes,
// EPC-bank addresses counted from the first EPC byte.
std::string Worker::filter(const json& req) {
    std::vector<uint8_t> mask;
    if (!req.is_object()) return "the filter is not an object";
    uint8_t none = 0;
    if (req.empty()) return UHFSetFilter(0, 1, 0, 0, &none) == 0 ? "" : "the reader refused to lift the filter";
    const uint8_t bank = req.value("bank", uint8_t{1});
    const unsigned byte = req.value("byte", 0u);
    if (!from_hex(req.value("mask", json()), mask, 94) || mask.empty() || bank < 1 || bank > 3 || byte > 0xFFFF)
        return "the filter is malformed";
    return UHFSetFilter(0, bank, static_cast<uint16_t>(byte), static_cast<uint16_t>(mask.size()), mask.data()) == 0
               ? ""
               : "the reader refused the filter";
}

// False when the supervisor asked the worker to stop.
bool Worker::handle(const wire::Message& m) {
    std::string err;
    switch (m.type) {
        case wire::kApply: {
            ReaderSettings s;
            if (parse_settings(std::string(m.text), s, err))
                paused([&] {
                    if (apply(s, err)) send_details();
                    return 0;
                });
            wire::with_id(out_, wire::kReply, m.id, err);
            send(out_);
            return true;
        }
        case wire::kInventory: {
            const bool on = m.value != 0;
            if (on != running_ && (on ? UHFInventory() != 0 : UHFStopGet() != 0))
                err = on ? "the reader did not start its inventory" : "the reader did not confirm the stop";
            else
                running_ = on;
            last_report_ = last_probe_ = now_ms();
            set_state(running_ ? LinkState::Running : LinkState::Stopped);
            wire::with_id(out_, wire::kReply, m.id, err);
            send(out_);
            return true;
        }
        case wire::kAccess: {
            const json req = json::parse(m.text, nullptr, false);
            paused([&] {
                access(m.id, req);
                return 0;
            });
            return true;
        }
        case wire::kFilter: {
            const json req = json::parse(m.text, nullptr, false);
            err = paused([&] { return filter(req); });
            wire::with_id(out_, wire::kReply, m.id, err);
            send(out_);
            return true;
        }
        case wire::kStop: return false;
        default: return true;  // nothing else is for a running worker
    }
}

// Moves what the library queued into batches for the supervisor; false when
// a batch could not be sent.
bool Worker::take_reads() {
    uint8_t raw[512];
    int len = 0;
    Read r;
    wire::begin_reads(out_);
    size_t n = 0;
    int i = 0;
    for (; i < kReadsPerPass && UHF_GetReceived_EX(&len, raw) == 0; i++) {
        if (len < 0 || len > static_cast<int>(sizeof raw) || !parse_report(raw, static_cast<size_t>(len), r)) continue;
        r.time_ms = now_ms();
        if (!wire::add_read(out_, r)) {
            if (!send(out_)) return false;
            wire::begin_reads(out_);
            wire::add_read(out_, r);
        }
        n++;
    }
    more_ = i == kReadsPerPass;
    if (n == 0) return true;
    last_report_ = now_ms();
    return send(out_);
}

// Quiet: an empty field, or a reader that went away. Ask it.
bool Worker::probe() {
    last_probe_ = now_ms();
    uint8_t version[300];
    UHFStopGet();
    return UHFGetSoftwareVersion(version) == 0 && UHFInventory() == 0;
}

int Worker::serve() {
    // The first message names the reader; a supervisor that sends nothing is gone.
    char buf[wire::kMaxMessage];
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, 10000) != 1) return 4;
    ssize_t n = recv(fd_, buf, sizeof buf, 0);
    wire::Message m;
    if (n <= 0 || !wire::decode({buf, static_cast<size_t>(n)}, m) || m.type != wire::kStart) return 4;
    const json start = json::parse(m.text, nullptr, false);
    ReaderSettings settings;
    std::string err;
    if (!start.is_object() || !parse_settings(start.value("settings", json::object()).dump(), settings, err)) return 4;
    const bool run_inventory = start.value("run", true);
    // How long the loop sleeps when the queue is empty, and the library holds
    // a stream of reports so that one wake-up of its receive thread takes
    // several: the latency a read may wait here, twice over.
    const int pace_ms = std::clamp(start.value("pace_ms", 20), 1, 50);
    UHF_SetReceiveHold(pace_ms > 2 ? static_cast<unsigned>(pace_ms) * 1000 : 0);

    if (!open(start.value("uri", ""), err)) {
        set_state(LinkState::Reconnecting, err);
        return 3;
    }
    if (!apply(settings, err)) {
        set_state(LinkState::Reconnecting, "settings: " + err);
        return 3;
    }
    send_details();
    if (run_inventory && UHFInventory() != 0) {
        set_state(LinkState::Reconnecting, "the reader did not start its inventory");
        return 3;
    }
    running_ = run_inventory;
    last_report_ = last_probe_ = now_ms();
    set_state(running_ ? LinkState::Running : LinkState::Stopped);

    for (;;) {
        if (!take_reads()) return 4;
        const int64_t now = now_ms();
        if (g_unplugged) lost_ = "the USB reader was unplugged";
        if (lost_.empty() && running_ && now - last_report_ >= kQuietMs && now - last_probe_ >= kQuietMs && !probe())
            lost_ = "it stopped sending and does not answer";
        if (!lost_.empty()) {
            set_state(LinkState::Reconnecting, lost_);
            return 3;
        }
        pulse();
        p.events = static_cast<short>(POLLIN | (pending_.empty() ? 0 : POLLOUT));
        p.revents = 0;
        if (poll(&p, 1, more_ ? 0 : pace_ms) < 0) continue;
        if ((p.revents & POLLOUT) && !flush(0)) return 4;
        if (!(p.revents & (POLLIN | POLLHUP | POLLERR))) continue;
        n = recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) break;  // the supervisor went away
        if (n > 0 && wire::decode({buf, static_cast<size_t>(n)}, m) && !handle(m)) {
            if (running_) UHFStopGet();
            ClosePort();
            set_state(LinkState::Stopped);
            return 0;
        }
    }
    if (running_) UHFStopGet();
    ClosePort();
    return 4;
}

}  // namespace

int worker_main(int fd) {
    // Descriptors the supervisor had open (its listeners, the broker) are not ours.
    if (fd > 3) close_range(3, static_cast<unsigned>(fd) - 1, 0);
    close_range(static_cast<unsigned>(fd) + 1, ~0U, 0);
    // The supervisor says when to stop, so that every reader is stopped and
    // closed in order: Ctrl-C on a terminal and systemd's SIGTERM reach the
    // whole group. A supervisor that dies closes the socket, and that stops us.
    signal(SIGINT, SIG_IGN);
    signal(SIGTERM, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    return Worker(fd).run();
}

}  // namespace uhfd
