// Inventory and exchange figures, each printed beside its target. A peer in a
// child process streams tag reports whose EPC carries a sequence number and
// the send time, so loss and latency are counted exactly; the serial rows use
// the virtual reader behind a pseudo-terminal, writing 8-byte pieces as a
// UART does. CPU is this process only: the library and a polling application.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
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

enum class Peer { Stream, Echo, HangUp };

// The peer: a loopback listener in a child. Stream: reports at `rate` from the
// 0x82 start until the 0x8C stop (answered 0x8D), then it writes its count
// to the pipe. Echo: every command frame answered at once. HangUp: closes
// the connection on the first request.
struct Child {
    pid_t pid = -1;
    int port = 0, result = -1;
};

Child spawn_peer(Peer mode, uint32_t rate) {
    int ls = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t al = sizeof a;
    if (bind(ls, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(ls, 4) != 0) return {};
    getsockname(ls, reinterpret_cast<sockaddr*>(&a), &al);
    int up[2];
    if (pipe(up) != 0) return {};
    pid_t pid = fork();
    if (pid != 0) {
        close(ls);
        close(up[1]);
        return Child{pid, ntohs(a.sin_port), up[0]};
    }
    close(up[0]);
    int c = accept(ls, nullptr, nullptr);
    int one = 1;
    setsockopt(c, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (mode == Peer::Echo) {
        // Two clients, answered alike: the library's link and a raw socket.
        int c2 = accept(ls, nullptr, nullptr);
        setsockopt(c2, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        uint8_t in[512];
        auto reply = frame(0x03, {0x01});
        for (;;) {
            pollfd p[2] = {{c, POLLIN, 0}, {c2, POLLIN, 0}};
            if (poll(p, 2, 5000) <= 0) break;
            for (auto& q : p) {
                if (!(q.revents & (POLLIN | POLLHUP))) continue;
                if (recv(q.fd, in, sizeof in, 0) <= 0) _exit(0);
                (void)!send(q.fd, reply.data(), reply.size(), 0);
            }
        }
        _exit(0);
    }
    uint8_t in[4096];
    uint32_t sent = 0;
    bool streaming = false;
    uint64_t start = 0;
    for (;;) {
        pollfd p{c, POLLIN, 0};
        if (poll(&p, 1, streaming ? 0 : 100) > 0) {
            ssize_t n = recv(c, in, sizeof in, 0);
            if (n <= 0) break;
            if (mode == Peer::HangUp) break;
            for (ssize_t i = 0; i + 4 < n; i++) {
                if (in[i] != 0xA5 || in[i + 1] != 0x5A) continue;
                uint8_t cmd = in[i + 4];
                if (mode == Peer::Echo) {
                    auto f = frame(uint8_t(cmd + 1), {0x01});
                    (void)!send(c, f.data(), f.size(), 0);
                } else if (cmd == 0x82) {
                    streaming = true;
                    start = now_ns();
                } else if (cmd == 0x8C) {
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
    (void)!write(up[1], s.data(), s.size());
    _exit(0);
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

struct Drain {
    uint64_t delivered = 0;
    std::vector<double> latency_ms;
};

// Poll the queue like an application: drain it, then sleep `poll_ms`.
void drain_for(Drain& d, double seconds, int poll_ms, bool timed) {
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
        std::this_thread::sleep_for(std::chrono::milliseconds(poll_ms));
    }
}

void row(const char* name, const char* target, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
void row(const char* name, const char* target, const char* fmt, ...) {
    char buf[128];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    printf("%-58s %-30s %s\n", name, buf, target);
}

struct TcpRun {
    uint64_t sent, delivered;
    double cpu_pct;
    std::vector<double> latency_ms;
};

TcpRun tcp_stream(uint32_t rate, double seconds, int poll_ms, bool timed) {
    Child peer = spawn_peer(Peer::Stream, rate);
    TcpRun r{};
    if (TCPConnect("127.0.0.1", peer.port) != 0) return r;
    Drain d;
    double cpu0 = cpu_seconds();
    auto t0 = Clock::now();
    UHFInventory();
    drain_for(d, seconds, poll_ms, timed);
    UHFStopGet();
    double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    r.cpu_pct = 100.0 * (cpu_seconds() - cpu0) / wall;
    drain_for(d, -1, 0, false);
    LinkCloseAll();
    r.sent = reap(peer);
    r.delivered = d.delivered;
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
    drain_for(d, seconds, 10, false);
    double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    // The reader falls quiet before the stop: a serial command flushes what
    // is still unread on the line.
    pty.for_each_reader([](uhfsim::VirtualReader& r) { r.stop_inventory(); });
    for (int i = 0; i < 30; i++) drain_for(d, 0.01, 10, false);
    UHFStopGet();
    drain_for(d, -1, 0, false);
    LinkCloseAll();
    auto s = pty.stats();
    pty.stop();
    constexpr double kFrameBytes = 8 + 2 + 12 + 2 + 1;  // report frame of a 12-byte EPC
    double line = 100.0 * double(d.delivered) * kFrameBytes / wall / (115200 / 10);
    row(name, target, "%.1f%% of line, %.2f%% lost", line, lost_pct(s.tag_reports, d.delivered));
}

// Round trips against one echo peer, alternating between the library's
// exchange and a plain socket (send, poll, recv), so both meet the same load.
void round_trips(int n, int port, std::vector<double>& lib, std::vector<double>& raw) {
    if (TCPConnect("127.0.0.1", port) != 0) return;
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(uint16_t(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) return;
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    auto req = frame(0x02, {});
    uint8_t buf[256];
    uint16_t len = 0;
    for (int i = 0; i < n; i++) {
        auto t0 = Clock::now();
        if (Vexa_SendAndRecv(0x02, nullptr, 0, buf, &len) == 0)
            lib.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        t0 = Clock::now();
        (void)!send(fd, req.data(), req.size(), 0);
        pollfd p{fd, POLLIN, 0};
        poll(&p, 1, 1500);
        if (recv(fd, buf, sizeof buf, 0) > 0)
            raw.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
    }
    close(fd);
    LinkCloseAll();
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = argc > 1 ? atof(argv[1]) : 3.0;
    signal(SIGPIPE, SIG_IGN);
    printf("%-58s %-30s %s\n", "row", "measured", "target");

    pty_row("pty 115200, 8-byte pieces, line saturated", ">= 99% of line, <= 0.5% lost", 2000, seconds);
    pty_row("pty 115200, 8-byte pieces, 400/s", "0 lost", 400, seconds);

    TcpRun fast = tcp_stream(100000, seconds, 10, false);
    row("TCP 100,000/s", "<= 0.01% lost", "%.4f%% lost (%llu of %llu)", lost_pct(fast.sent, fast.delivered),
        (unsigned long long)(fast.sent - std::min(fast.sent, fast.delivered)), (unsigned long long)fast.sent);

    // The application looks once a second: what is left is the library's.
    TcpRun idle = tcp_stream(0, seconds, 1000, false);
    row("inventory with no tags, library CPU", "<= 0.1%", "%.3f%% of a core", idle.cpu_pct);

    TcpRun k = tcp_stream(1000, seconds, 10, false);
    row("CPU per 1,000 reports/s (library + app polling every 10 ms)", "<= 0.5%", "%.3f%% of a core (%.2f%% lost)",
        k.cpu_pct, lost_pct(k.sent, k.delivered));

    TcpRun lat = tcp_stream(1000, seconds, 1, true);
    row("report -> application latency, app polls every 1 ms, 1,000/s", "p50 <= 2 ms, p99 <= 5 ms",
        "p50 %.2f ms, p99 %.2f ms", pct(lat.latency_ms, 0.5), pct(lat.latency_ms, 0.99));

    Child echo = spawn_peer(Peer::Echo, 0);
    std::vector<double> lib, raw;
    round_trips(5000, echo.port, lib, raw);
    reap(echo);
    row("exchange vs raw socket ping-pong, same peer", "median <= 1.05x, p99 <= 1.1x", "median %.2fx, p99 %.2fx",
        pct(lib, 0.5) / pct(raw, 0.5), pct(lib, 0.99) / pct(raw, 0.99));

    Child gone = spawn_peer(Peer::HangUp, 0);
    double hung_ms = -1;
    if (TCPConnect("127.0.0.1", gone.port) == 0) {
        uint8_t buf[64];
        uint16_t len = 0;
        auto t0 = Clock::now();
        Vexa_SendAndRecv(0x02, nullptr, 0, buf, &len);
        hung_ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
        LinkCloseAll();
    }
    reap(gone);
    row("exchange against a hung-up peer", "< 10 ms", "%.2f ms", hung_ms);
    return 0;
}
