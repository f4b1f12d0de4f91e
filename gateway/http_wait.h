// A write request waits for the supervisor's Done with its connection
// suspended. The state is shared with the Done callback, so a Done that comes
// after the daemon has stopped touches nothing that has gone.
#pragma once

#include <microhttpd.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace uhfd {

// What the client is told: 200, 502 with the supervisor's reason, 503 when stopping.
struct Outcome {
    unsigned status = 200;
    std::string error;
};

class Waiting {
public:
    explicit Waiting(MHD_Connection* c) : conn_(c) {}
    // From the access handler: suspends the connection.
    void park();
    // From any thread: the first outcome is kept and the connection resumed;
    // later calls change nothing.
    void settle(const Outcome& o);
    std::optional<Outcome> outcome() const;

private:
    mutable std::mutex mu_;
    MHD_Connection* conn_;
    bool parked_ = false;
    std::optional<Outcome> outcome_;
};

// Every write not yet answered, so stopping can answer them all before the
// daemon goes (libmicrohttpd must not stop with suspended connections).
class WaitingList {
public:
    // False once stopping: the caller settles it at once.
    bool add(const std::shared_ptr<Waiting>& w);
    // Once the answer is sent (or the connection gone).
    void remove(const std::shared_ptr<Waiting>& w);
    void settle_all(const Outcome& o);
    // Until every write is answered or the time is up.
    void wait_answered(std::chrono::milliseconds at_most);

private:
    std::mutex mu_;
    std::condition_variable answered_;
    std::set<std::shared_ptr<Waiting>> waiting_;
    bool stopping_ = false;
};

}  // namespace uhfd
