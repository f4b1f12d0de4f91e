// Inventory and exchange figures, each printed beside its target. A peer in a
// child process streams tag reports whose EPC carries a sequence number and
// the send time, so loss and latency are counted exactly; the serial rows use
// the virtual reader behind a pseudo-terminal, writing 8-byte pieces as a
// UART does. CPU is this process only: the library and a polling application.
// The exchange rows pin the process to one CPU and answer from threads of
// this process, so both sides of the comparison meet the same scheduler.
//
//   bench_inventory [seconds] [serial|stream|exchange|sim]
#include <arpa/inet.h>
#include <linux/perf_event.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "UHF.h"
#include "transport/servers.h"

namespace {

using Clock = std::chrono::steady_clock;

double cpu_seconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

uint64_t now_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000ull + uint64_t(ts.tv_nsec);
}

std::vector<uint8_t> frame(uint8_t cmd, const std::vector<uint8_t>& data) {
    std::vector<uint8_t> f(data.size() + 8);
    f[0] = 0xA5;
    f[1] = 0x5A;
    f[2] = uint8_t((data.size() + 8) >> 8);
    f[3] = uint8_t(data.size() + 8);
    f[4] = cmd;
    std::copy(data.begin(), data.end(), f.begin() + 5);
    uint8_t x = 0;
    for (size_t i = 2; i < 5 + data.size(); i++) x ^= f[i];
    f[5 + data.size()] = x;
    f[6 + data.size()] = 0x0D;
    f[7 + data.size()] = 0x0A;
    return f;
}

// A report: PC for a 12-byte EPC holding seq (4) and send time (8), RSSI, antenna.
std::vector<uint8_t> report(uint32_t seq) {
    uint64_t t = now_ns();
    std::vector<uint8_t> d = {0x30, 0x00};
    for (int i = 3; i >= 0; i--) d.push_back(uint8_t(seq >> (8 * i)));
    for (int i = 7; i >= 0; i--) d.push_back(uint8_t(t >> (8 * i)));
    d.insert(d.end(), {0xFD, 0x7A, 0x01});
    return frame(0x83, d);
}

int listen_loopback(int& port) {
    int ls = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t al = sizeof a;
    if (bind(ls, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(ls, 4) != 0) return -1;
    getsockname(ls, reinterpret_cast<sockaddr*>(&a), &al);
    port = ntohs(a.sin_port);
    return ls;
}

void no_delay(int fd) {
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

enum class Peer { Stream, HangUp };

// The peer: a loopback listener in a child. Stream: reports at `rate` from the
// 0x82 start until the 0x8C stop (answered 0x8D), then it writes its count
// to the pipe. HangUp: closes the connection on the first request.
struct Child {
    pid_t pid = -1;
    int port = 0, result = -1;
};

[[noreturn]] void stream_reports(int c, Peer mode, uint32_t rate, int up) {
    uint8_t in[4096];
    uint32_t sent = 0;
    bool streaming = false;
    uint64_t start = 0;
    for (;;) {
        pollfd p{c, POLLIN, 0};
        if (poll(&p, 1, streaming ? 0 : 100) > 0) {
            ssize_t n = recv(c, in, sizeof in, 0);
            if (n <= 0 || mode == Peer::HangUp) break;
            for (ssize_t i = 0; i + 4 < n; i++) {
                if (in[i] != 0xA5 || in[i + 1] != 0x5A) continue;
                if (in[i + 4] == 0x82) {
                    streaming = true;
                    start = now_ns();
                } else if (in[i + 4] == 0x8C) {
                    streaming = false;
                    auto f = frame(0x8D, {0x01});
                    (void)!send(c, f.data(), f.size(), 0);
                }
            }
        }
        if (!streaming) continue;
        uint64_t due = (now_ns() - start) * rate / 1000000000ull;
        std::vector<uint8_t> burst;
        while (sent < due && burst.size() < 60000) {
            auto f = report(sent++);
            burst.insert(burst.end(), f.begin(), f.end());
        }
        for (size_t off = 0; off < burst.size();) {
            ssize_t w = send(c, burst.data() + off, burst.size() - off, 0);
            if (w <= 0) break;
            off += size_t(w);
        }
        if (burst.empty()) usleep(rate >= 20000 ? 50 : 200);
    }
    std::string s = std::to_string(sent) + "\n";
    (void)!write(up, s.data(), s.size());
    _exit(0);
}

Child spawn_peer(Peer mode, uint32_t rate) {
    int port = 0;
    int ls = listen_loopback(port);
    int up[2];
    if (ls < 0 || pipe(up) != 0) return {};
    pid_t pid = fork();
    if (pid != 0) {
        close(ls);
        close(up[1]);
        return Child{pid, port, up[0]};
    }
    close(up[0]);
    int c = accept(ls, nullptr, nullptr);
    no_delay(c);
    stream_reports(c, mode, rate, up[1]);
}

uint64_t reap(Child& c) {
    char buf[64] = {0};
    ssize_t n = read(c.result, buf, sizeof buf - 1);
    waitpid(c.pid, nullptr, 0);
    close(c.result);
    return n > 0 ? strtoull(buf, nullptr, 10) : 0;
}

double pct(std::vector<double> v, double q) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(q * double(v.size())))];
}

double median(std::vector<double> v) { return pct(std::move(v), 0.5); }

struct Drain {
    uint64_t delivered = 0;
    std::vector<double> latency_ms;
};

// Poll the queue like an application: drain it, then sleep `poll_us`. With
// seconds < 0, drain until the queue is empty.
void drain_for(Drain& d, double seconds, int poll_us, bool timed) {
    uint8_t out[512];
    int len = 0;
    auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (seconds < 0 || Clock::now() < end) {
        bool got = false;
        while (UHF_GetReceived_EX(&len, out) == 0) {
            got = true;
            d.delivered++;
            if (timed && out[0] == 14) {
                uint64_t t = 0;
                for (int i = 0; i < 8; i++) t = t << 8 | out[7 + i];
                d.latency_ms.push_back(double(now_ns() - t) / 1e6);
            }
        }
        if (seconds < 0 && !got) return;
        std::this_thread::sleep_for(std::chrono::microseconds(poll_us));
    }
}

void row(const char* name, const char* target, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
void row(const char* name, const char* target, const char* fmt, ...) {
    char buf[160];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    printf("%-62s %-44s %s\n", name, buf, target);
    fflush(stdout);
}

// System calls entered by the calling thread while it is enabled (the
// raw_syscalls:sys_enter tracepoint), with those of threads it starts
// meanwhile once they have ended when asked; -1 where tracing is not open to us.
class SyscallCount {
public:
    explicit SyscallCount(bool with_new_threads = false) {
        std::ifstream id_file("/sys/kernel/tracing/events/raw_syscalls/sys_enter/id");
        unsigned long long id = 0;
        if (!(id_file >> id)) return;
        perf_event_attr a{};
        a.type = PERF_TYPE_TRACEPOINT;
        a.size = sizeof a;
        a.config = id;
        a.disabled = 1;
        a.inherit = with_new_threads ? 1 : 0;
        fd_ = static_cast<int>(syscall(SYS_perf_event_open, &a, 0, -1, -1, 0));
    }
    ~SyscallCount() {
        if (fd_ >= 0) close(fd_);
    }
    void start() const {
        if (fd_ >= 0) ioctl(fd_, PERF_EVENT_IOC_ENABLE, 0);
    }
    // Stops and returns the count, less the disabling call itself.
    long long stop() const {
        if (fd_ < 0) return -1;
        ioctl(fd_, PERF_EVENT_IOC_DISABLE, 0);
        long long n = 0;
        return read(fd_, &n, sizeof n) == sizeof n ? n - 1 : -1;
    }

private:
    int fd_ = -1;
};

long voluntary_switches() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_nvcsw;
}

struct TcpRun {
    uint64_t sent, delivered;
    double cpu_pct;       // the median of three windows
    double calls, wakes;  // system calls and sleeps of the process, per report
    std::vector<double> latency_ms;
};

TcpRun tcp_stream(uint32_t rate, double seconds, int poll_us, bool timed) {
    Child peer = spawn_peer(Peer::Stream, rate);
    TcpRun r{};
    if (TCPConnect("127.0.0.1", peer.port) != 0) return r;
    Drain d;
    SyscallCount calls(true);
    long wakes = voluntary_switches();
    calls.start();
    UHFInventory();
    std::vector<double> cpu;
    for (int w = 0; w < 3; w++) {
        double cpu0 = cpu_seconds();
        auto t0 = Clock::now();
        drain_for(d, seconds / 3, poll_us, timed);
        double wall = std::chrono::duration<double>(Clock::now() - t0).count();
        cpu.push_back(100.0 * (cpu_seconds() - cpu0) / wall);
    }
    UHFStopGet();
    drain_for(d, -1, 0, false);
    long long counted = calls.stop();
    wakes = voluntary_switches() - wakes;
    LinkCloseAll();
    r.sent = reap(peer);
    r.calls = d.delivered ? double(counted) / double(d.delivered) : 0;
    r.wakes = d.delivered ? double(wakes) / double(d.delivered) : 0;
    r.delivered = d.delivered;
    r.cpu_pct = median(cpu);
    r.latency_ms = std::move(d.latency_ms);
    return r;
}

double lost_pct(uint64_t sent, uint64_t delivered) {
    return sent ? 100.0 * double(sent > delivered ? sent - delivered : 0) / double(sent) : 0;
}

void pty_row(const char* name, const char* target, uint32_t rate, double seconds) {
    uhfsim::SimOptions o;
    o.tags = uhfsim::TagField::random(200, 11, 4);
    o.engine.read_rate = rate;
    o.baud = 115200;
    o.chunk = 8;
    uhfsim::PtyServer pty(o);
    if (!pty.start() || ComOpen(pty.slave_path().c_str()) != 0) {
        row(name, target, "could not open");
        return;
    }
    // Opening sends a stop; its reply must be in before the start, or the
    // receive thread would end its first buffer at it.
    uint8_t power[8];
    UHFGetPower(power);
    Drain d;
    auto t0 = Clock::now();
    UHFInventory();
    drain_for(d, seconds, 10000, false);
    double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    // The reader falls quiet before the stop: a serial command flushes what
    // is still unread on the line.
    pty.for_each_reader([](uhfsim::VirtualReader& r) { r.stop_inventory(); });
    for (int i = 0; i < 30; i++) drain_for(d, 0.01, 10000, false);
    UHFStopGet();
    drain_for(d, -1, 0, false);
    LinkCloseAll();
    auto s = pty.stats();
    pty.stop();
    constexpr double kFrameBytes = 8 + 2 + 12 + 2 + 1;  // report frame of a 12-byte EPC
    double line = 100.0 * double(d.delivered) * kFrameBytes / wall / (115200 / 10);
    row(name, target, "%.1f%% of line, %.2f%% lost", line, lost_pct(s.tag_reports, d.delivered));
}

void serial_rows(double seconds) {
    pty_row("pty 115200, 8-byte pieces, line saturated", ">= 99% of line, 0 lost", 2000, seconds);
    pty_row("pty 115200, 8-byte pieces, 400/s", "0 lost", 400, seconds);
}

void stream_rows(double seconds) {
    TcpRun fast = tcp_stream(100000, seconds, 1000, false);
    row("TCP 100,000/s, app drains every 1 ms", "0 lost", "%.4f%% lost (%llu of %llu)",
        lost_pct(fast.sent, fast.delivered), (unsigned long long)(fast.sent - std::min(fast.sent, fast.delivered)),
        (unsigned long long)fast.sent);

    TcpRun busy = tcp_stream(100000, seconds, 10000, false);
    row("library CPU per 1,000 reports/s at 100,000/s (app every 10 ms)", "<= 0.08%",
        "%.3f%% of a core; %.3f calls, %.3f sleeps a report", busy.cpu_pct / 100, busy.calls, busy.wakes);

    TcpRun k = tcp_stream(1000, seconds, 10000, false);
    row("library CPU per 1,000 reports/s at 1,000/s (app every 10 ms)", "<= 0.5%",
        "%.3f%% of a core; %.2f calls, %.2f sleeps a report", k.cpu_pct, k.calls, k.wakes);

    // The same application letting the receive thread hold reports for its
    // fetch interval: the trade UHF_SetReceiveHold offers, latency for CPU.
    UHF_SetReceiveHold(10000);
    TcpRun held = tcp_stream(1000, seconds, 10000, false);
    TcpRun held_lat = tcp_stream(1000, seconds, 10000, true);
    UHF_SetReceiveHold(0);
    TcpRun plain_lat = tcp_stream(1000, seconds, 10000, true);
    row("  the same with a 10 ms hold", "<= 0.5%", "%.3f%% of a core; %.2f calls, %.2f sleeps a report", held.cpu_pct,
        held.calls, held.wakes);
    row("  report -> fetch, app every 10 ms, p50 / p99: 10 ms hold", "", "%.2f / %.2f ms",
        pct(held_lat.latency_ms, 0.5), pct(held_lat.latency_ms, 0.99));
    row("  no hold", "", "%.2f / %.2f ms", pct(plain_lat.latency_ms, 0.5), pct(plain_lat.latency_ms, 0.99));

    // The application looks once a second: what is left is the library's.
    TcpRun idle = tcp_stream(0, seconds, 1000000, false);
    row("inventory with no tags, library CPU", "<= 0.1%", "%.3f%% of a core", idle.cpu_pct);

    // Polled every 0.1 ms, the figure is the library's share plus at most
    // that (and the sleep's overshoot).
    TcpRun lat = tcp_stream(1000, seconds, 100, true);
    row("report -> queue at 1,000/s (app polls every 0.1 ms)", "p50 <= 0.5 ms", "p50 %.2f ms, p99 %.2f ms",
        pct(lat.latency_ms, 0.5), pct(lat.latency_ms, 0.99));
}

// ---- the exchange --------------------------------------------------------

// A peer thread on one connection: every request read is answered with
// `reply`, until the connection closes.
std::thread echo_peer(int& port, std::vector<uint8_t> reply) {
    int ls = listen_loopback(port);
    return std::thread([ls, reply] {
        int c = accept(ls, nullptr, nullptr);
        close(ls);
        no_delay(c);
        uint8_t in[512];
        while (recv(c, in, sizeof in, 0) > 0) (void)!send(c, reply.data(), reply.size(), 0);
        close(c);
    });
}

int connect_loopback(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(uint16_t(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) return -1;
    no_delay(fd);
    return fd;
}

struct Pinned {
    cpu_set_t before;
    Pinned() {
        sched_getaffinity(0, sizeof before, &before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~Pinned() { sched_setaffinity(0, sizeof before, &before); }
};

double elapsed_us(uint64_t t0) { return double(now_ns() - t0) / 1e3; }

// One round: n exchanges through the library and n plain blocking round trips
// (send, recv) against an identical peer, interleaved so that both meet the
// same moments of load.
void round_trips(int n, int raw_fd, std::vector<double>& lib, std::vector<double>& raw) {
    auto req = frame(0x02, {});
    uint8_t version[32], buf[64];
    for (int i = 0; i < n; i++) {
        uint64_t t0 = now_ns();
        if (UHFGetSoftwareVersion(version) == 0) lib.push_back(elapsed_us(t0));
        t0 = now_ns();
        (void)!send(raw_fd, req.data(), req.size(), 0);
        if (recv(raw_fd, buf, sizeof buf, 0) > 0) raw.push_back(elapsed_us(t0));
    }
}

void exchange_rows() {
    constexpr int kRounds = 3, kPerRound = 100000, kCounted = 10000;
    Pinned pinned;
    auto reply = frame(0x03, {0x01, 0x02, 0x03});
    int lib_port = 0, raw_port = 0;
    std::thread lib_peer = echo_peer(lib_port, reply), raw_peer = echo_peer(raw_port, reply);
    int raw_fd = connect_loopback(raw_port);
    if (TCPConnect("127.0.0.1", lib_port) != 0 || raw_fd < 0) {
        row("exchange", "", "could not connect");
        std::exit(1);
    }
    uint8_t version[32];
    SyscallCount calls;
    calls.start();
    for (int i = 0; i < kCounted; i++) UHFGetSoftwareVersion(version);
    long long counted = calls.stop();
    std::vector<double> p50, p99;
    double lib_us = 0, raw_us = 0;
    for (int r = 0; r < kRounds; r++) {
        std::vector<double> lib, raw;
        round_trips(kPerRound, raw_fd, lib, raw);
        p50.push_back(pct(lib, 0.5) / pct(raw, 0.5));
        p99.push_back(pct(lib, 0.99) / pct(raw, 0.99));
        lib_us = pct(lib, 0.5);
        raw_us = pct(raw, 0.5);
    }
    close(raw_fd);
    LinkCloseAll();
    lib_peer.join();
    raw_peer.join();
    row("system calls per exchange (client side)", "2", "%.2f", counted < 0 ? -1.0 : double(counted) / kCounted);
    row("exchange vs plain blocking round trip, pinned, 3 x 100,000", "median <= 1.05x, p99 <= 1.05x",
        "median %.3fx, p99 %.3fx (%.1f us vs %.1f us)", median(p50), median(p99), lib_us, raw_us);
}

// A peer that accepts and never answers (the backlog does it for us).
void silent_limit_row() {
    int port = 0;
    int ls = listen_loopback(port);
    if (TCPConnect("127.0.0.1", port) == 0) {
        uint8_t buf[64];
        uint16_t len = 0;
        std::vector<double> ms;
        for (int i = 0; i < 3; i++) {
            uint64_t t0 = now_ns();
            ExternalSend(0x02, nullptr, 0, buf, &len, 300);
            ms.push_back(elapsed_us(t0) / 1e3);
        }
        LinkCloseAll();
        row("exchange against a silent peer, 300 ms limit", "300 ms, + < 5 ms", "%.1f ms (median of 3)", median(ms));
    }
    close(ls);
}

void hang_up_row() {
    Child gone = spawn_peer(Peer::HangUp, 0);
    double hung_ms = -1;
    if (TCPConnect("127.0.0.1", gone.port) == 0) {
        uint8_t buf[64];
        uint16_t len = 0;
        uint64_t t0 = now_ns();
        Vexa_SendAndRecv(0x02, nullptr, 0, buf, &len);
        hung_ms = elapsed_us(t0) / 1e3;
        LinkCloseAll();
    }
    reap(gone);
    row("exchange against a hung-up peer", "< 10 ms", "%.2f ms", hung_ms);
}

// ---- the virtual reader ----------------------------------------------------

// The virtual reader in a child, serving `tags` tags at `rate` reads/s to
// this process's library; returns the child's CPU while the inventory ran.
double sim_cpu(size_t tags, uint32_t rate, double seconds) {
    int to_child[2], from_child[2];
    if (pipe(to_child) != 0 || pipe(from_child) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        uhfsim::SimOptions o;
        o.tags = uhfsim::TagField::random(tags, 5);
        o.engine.read_rate = rate;
        uhfsim::TcpServer srv(o);
        int port = srv.start() ? srv.port() : 0;
        (void)!write(from_child[1], &port, sizeof port);
        char go;
        (void)!read(to_child[0], &go, 1);
        double cpu0 = cpu_seconds();
        auto t0 = Clock::now();
        (void)!read(to_child[0], &go, 1);
        double pct = 100.0 * (cpu_seconds() - cpu0) / std::chrono::duration<double>(Clock::now() - t0).count();
        (void)!write(from_child[1], &pct, sizeof pct);
        _exit(0);
    }
    int port = 0;
    double pct = -1;
    if (read(from_child[0], &port, sizeof port) == sizeof port && port != 0 && TCPConnect("127.0.0.1", port) == 0) {
        UHFInventory();
        Drain d;
        drain_for(d, 0.2, 10000, false);  // settle before the window opens
        (void)!write(to_child[1], "g", 1);
        drain_for(d, seconds, 10000, false);
        (void)!write(to_child[1], "s", 1);
        UHFStopGet();
        LinkCloseAll();
        if (read(from_child[0], &pct, sizeof pct) != sizeof pct) pct = -1;
    }
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    for (int fd : {to_child[0], to_child[1], from_child[0], from_child[1]}) close(fd);
    return pct;
}

void sim_rows(double seconds) {
    row("uhfsim CPU, 10 tags at 10,000 reads/s", "", "%.2f%% of a core", sim_cpu(10, 10000, seconds));
    row("uhfsim CPU, 10,000 tags at 10,000 reads/s", "<= 3%", "%.2f%% of a core", sim_cpu(10000, 10000, seconds));
}

void load_line(const char* when) {
    double load[3] = {0, 0, 0};
    getloadavg(load, 3);
    printf("# load average %s: %.2f %.2f %.2f\n", when, load[0], load[1], load[2]);
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = argc > 1 ? atof(argv[1]) : 3.0;
    std::string only = argc > 2 ? argv[2] : "";
    auto wanted = [&](const char* group) { return only.empty() || only == group; };
    signal(SIGPIPE, SIG_IGN);
    load_line("at start");
    printf("%-62s %-44s %s\n", "row", "measured", "target");
    if (wanted("serial")) serial_rows(seconds);
    if (wanted("stream")) stream_rows(seconds);
    if (wanted("exchange")) {
        exchange_rows();
        silent_limit_row();
        hang_up_row();
    }
    if (wanted("sim")) sim_rows(seconds);
    load_line("at end");
    return 0;
}
