// Continuous inventory throughput: a virtual reader in a child process streams
// tag reports at fixed rates over loopback TCP (and a pseudo-terminal); this
// process drains them with UHF_GetReceived_EX and reports what arrived and
// what it cost. The child keeps its CPU time out of our figures.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "UHF.h"
#include "transport/servers.h"

namespace {

using Clock = std::chrono::steady_clock;

double cpu_seconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

struct Child {
    pid_t pid = -1;
    int to_child = -1, from_child = -1;
    std::string endpoint;  // port number or pty path
};

// Start a reader in a child process; it answers "q" with its report count.
Child spawn_reader(bool pty, uint32_t rate, size_t tags) {
    int down[2], up[2];
    if (pipe(down) != 0 || pipe(up) != 0) return {};
    pid_t pid = fork();
    if (pid == 0) {
        close(down[1]);
        close(up[0]);
        uhfsim::SimOptions o;
        o.tags = uhfsim::TagField::random(tags, 11, 4);
        o.engine.read_rate = rate;
        o.baud = 115200;
        std::string endpoint;
        std::unique_ptr<uhfsim::ServerBase> server;
        if (pty) {
            auto p = std::make_unique<uhfsim::PtyServer>(o);
            if (!p->start()) _exit(2);
            endpoint = p->slave_path();
            server = std::move(p);
        } else {
            auto t = std::make_unique<uhfsim::TcpServer>(o);
            if (!t->start()) _exit(2);
            endpoint = std::to_string(t->port());
            server = std::move(t);
        }
        endpoint += "\n";
        (void)!write(up[1], endpoint.data(), endpoint.size());
        char c;
        (void)!read(down[0], &c, 1);
        std::string count = std::to_string(server->stats().tag_reports) + "\n";
        (void)!write(up[1], count.data(), count.size());
        _exit(0);
    }
    close(down[0]);
    close(up[1]);
    Child c{pid, down[1], up[0], {}};
    char buf[256];
    ssize_t n = read(c.from_child, buf, sizeof buf - 1);
    if (n > 0) c.endpoint.assign(buf, size_t(n - 1));
    return c;
}

uint64_t finish(Child& c) {
    (void)!write(c.to_child, "q", 1);
    char buf[64] = {0};
    ssize_t n = read(c.from_child, buf, sizeof buf - 1);
    waitpid(c.pid, nullptr, 0);
    close(c.to_child);
    close(c.from_child);
    return n > 0 ? strtoull(buf, nullptr, 10) : 0;
}

void run(const char* label, bool pty, uint32_t rate, double seconds) {
    Child child = spawn_reader(pty, rate, 200);
    if (child.endpoint.empty()) {
        printf("%-22s reader did not start\n", label);
        return;
    }
    int opened = pty ? ComOpen(child.endpoint.c_str()) : TCPConnect("127.0.0.1", std::stoi(child.endpoint));
    if (opened != 0) {
        printf("%-22s cannot connect\n", label);
        finish(child);
        return;
    }
    uint64_t delivered = 0;
    uint8_t out[512];
    int len = 0;
    double cpu0 = cpu_seconds();
    auto t0 = Clock::now();
    UHFInventory();
    auto end = t0 + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
        if (UHF_GetReceived_EX(&len, out) == 0) {
            delivered++;
            continue;
        }
        // An application drains the queue, then looks again 100 times a second.
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    UHFStopGet();
    while (UHF_GetReceived_EX(&len, out) == 0) delivered++;
    double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    double cpu = cpu_seconds() - cpu0;
    LinkCloseAll();
    uint64_t sent = finish(child);
    double lost = sent ? 100.0 * double(sent > delivered ? sent - delivered : 0) / double(sent) : 0;
    printf("%-22s %10llu %10llu %7.2f%% %12.0f %10.2f %8.2f%%\n", label, (unsigned long long)sent,
           (unsigned long long)delivered, lost, double(delivered) / wall, delivered ? cpu * 1e6 / double(delivered) : 0,
           100.0 * cpu / wall);
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = argc > 1 ? atof(argv[1]) : 3.0;
    signal(SIGPIPE, SIG_IGN);
    printf("%-22s %10s %10s %8s %12s %10s %9s\n", "run", "sent", "delivered", "lost", "delivered/s", "cpu us/rep",
           "cpu/wall");
    run("tcp 10/s (idle floor)", false, 10, seconds);
    run("tcp 1,000/s", false, 1000, seconds);
    run("tcp 10,000/s", false, 10000, seconds);
    run("tcp 100,000/s", false, 100000, seconds);
    run("tcp as fast as it can", false, 1000000, seconds);
    run("pty 115200 baud 500/s", true, 500, seconds);
    return 0;
}
