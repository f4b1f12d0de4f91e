#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "transport/servers.h"

namespace uhfsim {

PtyServer::PtyServer(SimOptions opts, std::shared_ptr<Radio> radio) : ServerBase(std::move(opts), std::move(radio)) {
    // Reads owed beyond a few ms are lost: the line, not a queue, sets the pace.
    opts_.engine.max_backlog = std::chrono::milliseconds(5);
}

PtyServer::~PtyServer() {
    stop();
    if (master_ >= 0) ::close(master_);
    if (slave_ >= 0) ::close(slave_);
}

bool PtyServer::start() {
    if (running()) return true;
    char name[128] = {};
    termios tio{};
    cfmakeraw(&tio);
    if (::openpty(&master_, &slave_, name, &tio, nullptr) != 0) {
        error_ = std::string("openpty failed: ") + std::strerror(errno);
        return false;
    }
    // Raw again on the slave: some kernels ignore the openpty termios argument.
    ::tcgetattr(slave_, &tio);
    cfmakeraw(&tio);
    ::tcsetattr(slave_, TCSANOW, &tio);
    ::fcntl(master_, F_SETFL, ::fcntl(master_, F_GETFL) | O_NONBLOCK);
    ::fcntl(master_, F_SETFD, FD_CLOEXEC);
    ::fcntl(slave_, F_SETFD, FD_CLOEXEC);
    slave_path_ = name;
    return launch();
}

// One serial line, one reader: the session lives as long as the server, the
// way a module stays powered while hosts open and close the port. A
// close_after fault cannot hang up a serial line; the reader just falls silent.
void PtyServer::loop() {
    Link link;
    link.fd = master_;
    {
        std::lock_guard<std::mutex> lock(mu_);
        link.session = new_session();
        live_.push_back(&link);
    }
    uint8_t buf[4096];
    const uint32_t baud = opts_.baud;
    const size_t backed_up = line_backed_up(baud);

    while (!stop_) {
        int timeout;
        {
            std::lock_guard<std::mutex> lock(mu_);
            timeout = poll_timeout_ms({&link}, Clock::now(), backed_up);
        }
        pollfd fds[2] = {{wake_[0], POLLIN, 0},
                         {master_, static_cast<short>(POLLIN | (link.out.empty() ? 0 : POLLOUT)), 0}};
        if (::poll(fds, 2, timeout) < 0 && errno != EINTR) break;
        if (fds[0].revents & POLLIN)
            while (::read(wake_[0], buf, sizeof buf) > 0) {
            }
        std::lock_guard<std::mutex> lock(mu_);
        const TimePoint now = Clock::now();
        if (fds[1].revents & POLLIN) {
            const ssize_t n = ::read(master_, buf, sizeof buf);
            if (n > 0) link.session->receive(buf, static_cast<size_t>(n), now);
        }
        service(link, now, backed_up);
        if (link.session->closed()) {
            link.out.clear();
            link.out_bytes = 0;
        }
        flush(link, true, baud, now, opts_.chunk);
        // POLLHUP cannot happen while we hold the slave open; nothing else to watch.
    }
    std::lock_guard<std::mutex> lock(mu_);
    retire(link);
    live_.clear();
}

}  // namespace uhfsim
