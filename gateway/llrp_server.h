// The LLRP endpoints: one listening port per reader, one client at a time
// (a second is told "another connection exists" and closed), served by one
// thread with a poll loop. Each connection's protocol lives in an Engine;
// this file owns the sockets and is the engine's Port, driving the reader's
// worker through the supervisor. LLRP shares the reader with the other
// outputs: it starts an inventory when the reader was idle and leaves a
// running one running.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "events.h"
#include "supervisor.h"

namespace uhfd {

class LlrpServer {
public:
    explicit LlrpServer(Supervisor& sup);
    ~LlrpServer();
    // ports by reader index (0: no endpoint), the readers' names and their
    // modules' antenna counts. False with "cannot listen on ADDR:PORT: why"
    // when a port cannot be had.
    bool start(const std::string& bind, const std::vector<int>& ports, const std::vector<std::string>& names,
               const std::vector<int>& antennas, std::string& err);
    void stop();

    // The supervisor's thread: every read, and every change of a reader's link.
    void read(const Read& r);
    void state(const std::string& reader, LinkState s, const std::string& why);

    struct Stats {
        std::string reader;
        bool client = false;
        uint64_t dropped = 0;  // reads a client was too far behind to be given
    };
    std::vector<Stats> stats() const;

    struct Endpoint;

private:
    friend struct Endpoint;
    void loop();
    void wake();
    // Runs f on the server's thread, at its next pass.
    void post(Endpoint& e, std::function<void()> f);
    void accept(Endpoint& e, int64_t now);
    void close_client(Endpoint& e, int64_t now);
    void receive(Endpoint& e, int64_t now);
    void drain(Endpoint& e, int64_t now);
    bool flush(Endpoint& e);

    Supervisor& sup_;
    std::vector<std::unique_ptr<Endpoint>> endpoints_;  // by reader index; null for none
    mutable std::mutex mu_;                             // guards every endpoint's inbox
    int wake_fd_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace uhfd
