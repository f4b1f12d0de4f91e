// The LLRP client llrp_bench.py measures uhfd with: one ROSpec (immediate
// start, a duration, all antennas, a report every N tags), read as fast as
// the socket gives, then one JSON line: tags reported (the sum of their seen
// counts), reports, and the latency from a read (its last-seen time) to its
// report's arrival.
//   llrp_client PORT SECONDS N
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "llrp_codec.h"

using namespace uhfd::llrp;

namespace {

int64_t now_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string add_rospec(uint32_t ms, uint16_t n) {
    std::string out;
    Writer w(out);
    const size_t m = w.begin_message(msg::ADD_ROSPEC, 2);
    const size_t ro = w.begin(param::ROSpec);
    w.u32(1);  // ROSpecID
    w.u8(0);   // priority
    w.u8(0);   // Disabled
    const size_t bound = w.begin(param::ROBoundarySpec);
    const size_t start = w.begin(param::ROSpecStartTrigger);
    w.u8(1);  // Immediate
    w.end(start);
    const size_t stop = w.begin(param::ROSpecStopTrigger);
    w.u8(1);  // Duration
    w.u32(ms);
    w.end(stop);
    w.end(bound);
    const size_t ai = w.begin(param::AISpec);
    w.u16(1);
    w.u16(0);  // antenna 0: all
    const size_t ai_stop = w.begin(param::AISpecStopTrigger);
    w.u8(0);  // Null: the ROSpec's duration ends it
    w.u32(0);
    w.end(ai_stop);
    const size_t inv = w.begin(param::InventoryParameterSpec);
    w.u16(1);
    w.u8(1);  // EPCGlobal Class 1 Gen 2
    w.end(inv);
    w.end(ai);
    const size_t rep = w.begin(param::ROReportSpec);
    w.u8(2);  // at the end of the ROSpec or every N tags
    w.u16(n);
    const size_t sel = w.begin(param::TagReportContentSelector);
    w.u16(1u << 12 | 1u << 10 | 1u << 8 | 1u << 7);  // antenna, peak RSSI, last seen, seen count
    w.end(sel);
    w.end(rep);
    w.end(ro);
    w.end_message(m);
    return out;
}

std::string with_id32(uint16_t type, uint32_t id, uint32_t value) {
    std::string out;
    Writer w(out);
    const size_t m = w.begin_message(type, id);
    w.u32(value);
    w.end_message(m);
    return out;
}

struct Totals {
    uint64_t tags = 0, datas = 0, reports = 0;
    std::vector<int64_t> latency_us;
};

// One RO_ACCESS_REPORT's TagReportData: seen counts and last-seen times.
void count_report(std::string_view body, int64_t arrived, Totals& t) {
    Params top(body);
    Param p;
    while (top.next(p)) {
        if (p.type != param::TagReportData) continue;
        t.datas++;
        uint64_t seen = 1;
        int64_t last = 0;
        Params in = top.inside(p.body);
        Param f;
        while (in.next(f)) {
            Reader r(f.body);
            if (f.type == param::TagSeenCount) seen = r.u16();
            if (f.type == param::LastSeenTimestampUTC) last = static_cast<int64_t>(r.u64());
        }
        t.tags += seen;
        if (last) t.latency_us.push_back(arrived - last);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: llrp_client PORT SECONDS N\n");
        return 2;
    }
    const int port = std::atoi(argv[1]);
    const double seconds = std::atof(argv[2]);
    const uint16_t n = static_cast<uint16_t>(std::atoi(argv[3]));
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) return perror("connect"), 1;
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::string hello = with_id32(msg::DELETE_ROSPEC, 1, 0) + add_rospec(static_cast<uint32_t>(seconds * 1000), n) +
                        with_id32(msg::ENABLE_ROSPEC, 3, 1);
    if (send(fd, hello.data(), hello.size(), 0) != static_cast<ssize_t>(hello.size())) return perror("send"), 1;

    Totals t;
    std::string in;
    char buf[1 << 16];
    timeval tv{0, 200000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds + 2.0);
    while (std::chrono::steady_clock::now() < end) {
        const ssize_t got = recv(fd, buf, sizeof buf, 0);
        if (got == 0) break;
        if (got < 0) continue;
        const int64_t arrived = now_us();
        in.append(buf, static_cast<size_t>(got));
        size_t used = 0;
        Header h;
        while (frame(std::string_view(in).substr(used), h) == Frame::Whole) {
            if (h.type == msg::RO_ACCESS_REPORT) {
                t.reports++;
                count_report(std::string_view(in).substr(used + kHeaderSize, h.length - kHeaderSize), arrived, t);
            }
            used += h.length;
        }
        in.erase(0, used);
    }
    std::string bye;
    Writer w(bye);
    w.end_message(w.begin_message(msg::CLOSE_CONNECTION, 4));
    send(fd, bye.data(), bye.size(), MSG_NOSIGNAL);
    close(fd);

    std::sort(t.latency_us.begin(), t.latency_us.end());
    auto pct = [&](double q) {
        return t.latency_us.empty() ? 0.0 : t.latency_us[static_cast<size_t>(q * (t.latency_us.size() - 1))] / 1000.0;
    };
    std::printf("{\"tags\": %llu, \"tag_datas\": %llu, \"reports\": %llu, \"p50_ms\": %.2f, \"p99_ms\": %.2f}\n",
                static_cast<unsigned long long>(t.tags), static_cast<unsigned long long>(t.datas),
                static_cast<unsigned long long>(t.reports), pct(0.5), pct(0.99));
    return 0;
}
