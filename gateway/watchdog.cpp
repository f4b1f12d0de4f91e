#include "watchdog.h"

#include <systemd/sd-daemon.h>

#include <cerrno>
#include <ctime>

#include "supervisor.h"

namespace uhfd {

Watchdog::Watchdog(const Supervisor& sup) : sup_(sup) {
    uint64_t usec = 0;
    if (sd_watchdog_enabled(0, &usec) > 0) period_us_ = usec;
}

void Watchdog::ready() { sd_notify(0, "READY=1"); }

void Watchdog::stopping() { sd_notify(0, "STOPPING=1"); }

int Watchdog::wait(const sigset_t& signals) {
    if (!period_us_) {
        int sig = 0;
        sigwait(&signals, &sig);
        return sig;
    }
    const unsigned long long half = period_us_ / 2;
    const timespec tick{static_cast<time_t>(half / 1000000), static_cast<long>(half % 1000000 * 1000)};
    for (;;) {
        const int sig = sigtimedwait(&signals, nullptr, &tick);
        if (sig > 0) return sig;
        if (errno == EAGAIN && sup_.alive(static_cast<int64_t>(half / 1000))) sd_notify(0, "WATCHDOG=1");
    }
}

}  // namespace uhfd
