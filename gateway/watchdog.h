// What systemd is told: ready once everything is up, stopping on the way
// out, and, when the unit sets WatchdogSec, a ping at half that period for
// as long as the supervisor's loop keeps turning (a hung loop stops the
// pings, and systemd restarts the gateway).
#pragma once

#include <signal.h>

namespace uhfd {

class Supervisor;

class Watchdog {
public:
    explicit Watchdog(const Supervisor& sup);
    void ready();
    void stopping();
    // Waits for one of signals and returns it, pinging meanwhile.
    int wait(const sigset_t& signals);

private:
    const Supervisor& sup_;
    unsigned long long period_us_ = 0;  // 0: no watchdog asked for
};

}  // namespace uhfd
