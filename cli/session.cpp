#include "session.h"

#include <csignal>
#include <cstdio>

#include "UHF.h"

namespace uhfctl {

int Session::each(const std::function<int(const Reader&)>& fn) const {
    int worst = kOk;
    for (const Reader& r : readers) {
        if (stop_requested()) break;
        LinkSelect(r.slot);
        int rc = fn(r);
        if (rc > worst) worst = rc;
    }
    return worst;
}

int fail(int code, const std::string& message) {
    std::fprintf(stderr, "uhfctl: %s\n", message.c_str());
    return code;
}

int reader_failed(const Reader& r, const std::string& what) {
    return fail(kReaderFailed, what + ": " + r.label + " refused it or did not answer");
}

static volatile sig_atomic_t g_stop = 0;

static void on_stop_signal(int) { g_stop = 1; }

void install_stop_handler() {
    struct sigaction sa = {};
    sa.sa_handler = on_stop_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    // A closed pipe or socket shows up as a write error instead of killing
    // the tool with the reader still inventorying.
    signal(SIGPIPE, SIG_IGN);
}

void request_stop() { g_stop = 1; }

bool stop_requested() { return g_stop != 0; }

}  // namespace uhfctl
