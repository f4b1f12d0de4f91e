#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "transport/servers.h"

namespace uhfsim {

TcpServer::TcpServer(SimOptions opts, std::shared_ptr<Radio> radio) : ServerBase(std::move(opts), std::move(radio)) {}

TcpServer::~TcpServer() {
    stop();
    if (listen_fd_ >= 0) ::close(listen_fd_);
}

bool TcpServer::start() {
    if (running()) return true;
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listen_fd_ < 0) {
        error_ = "socket failed";
        return false;
    }
    const int one = 1;
    ::setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(opts_.port);
    if (::inet_pton(AF_INET, opts_.host.c_str(), &addr.sin_addr) != 1) {
        error_ = "bad listen address " + opts_.host;
        return false;
    }
    if (::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listen_fd_, SOMAXCONN) != 0) {
        error_ = "cannot listen on " + opts_.host + ":" + std::to_string(opts_.port) + ": " + std::strerror(errno);
        ::close(listen_fd_);
        listen_fd_ = -1;
        return false;
    }
    socklen_t len = sizeof addr;
    ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    return launch();
}

size_t TcpServer::client_count() const {
    std::lock_guard<std::mutex> lock(mu_);
    return live_.size();
}

void TcpServer::loop() {
    std::vector<std::unique_ptr<Link>> links;
    std::vector<pollfd> fds;
    uint8_t buf[4096];

    while (!stop_) {
        std::vector<Link*> raw;
        fds.clear();
        fds.push_back({wake_[0], POLLIN, 0});
        fds.push_back({listen_fd_, POLLIN, 0});
        for (auto& l : links) {
            raw.push_back(l.get());
            fds.push_back({l->fd, static_cast<short>(POLLIN | (l->out.empty() ? 0 : POLLOUT)), 0});
        }
        int timeout;
        {
            std::lock_guard<std::mutex> lock(mu_);
            timeout = poll_timeout_ms(raw, Clock::now(), kSocketBackedUp);
        }
        if (::poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR) break;
        if (fds[0].revents & POLLIN)
            while (::read(wake_[0], buf, sizeof buf) > 0) {
            }

        // Take every waiting connection at once: a burst of clients must not sit
        // in the backlog waiting for TCP retries.
        if (fds[1].revents & POLLIN) {
            for (;;) {
                const int c = ::accept4(listen_fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
                if (c < 0) break;
                const int one = 1;
                ::setsockopt(c, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                auto l = std::make_unique<Link>();
                l->fd = c;
                std::lock_guard<std::mutex> lock(mu_);
                l->session = new_session();
                live_.push_back(l.get());
                links.push_back(std::move(l));
            }
        }

        // Walk backwards so dropping a link keeps the indexes of the rest.
        for (size_t i = raw.size(); i-- > 0;) {
            Link& l = *links[i];
            const short ev = fds[i + 2].revents;
            bool gone = false;
            std::lock_guard<std::mutex> lock(mu_);
            const TimePoint now = Clock::now();
            if (ev & (POLLIN | POLLHUP | POLLERR)) {
                const ssize_t n = ::recv(l.fd, buf, sizeof buf, MSG_DONTWAIT);
                if (n > 0)
                    l.session->receive(buf, static_cast<size_t>(n), now);
                else if (n == 0 || (errno != EAGAIN && errno != EINTR))
                    gone = true;
            }
            if (!gone) {
                service(l, now, kSocketBackedUp);
                gone = !flush(l, false, 0, now) || (l.session->closed() && l.out.empty());
            }
            if (gone) {
                retire(l);
                ::close(l.fd);
                std::erase(live_, &l);
                links.erase(links.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
    }
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& l : links) {
        retire(*l);
        ::close(l->fd);
    }
    live_.clear();
}

}  // namespace uhfsim
