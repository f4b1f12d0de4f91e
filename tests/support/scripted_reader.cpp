#include "scripted_reader.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace uhftest {

namespace {

// The length of the first request unit in b: 0 when incomplete, 1 to drop a
// stray byte.
size_t next_unit(const Bytes& b) {
    if (b.empty()) return 0;
    if (b[0] == 0xA5) {
        if (b.size() < 4) return 0;
        size_t len = (size_t(b[2]) << 8) | b[3];
        size_t total = b[1] == 0x5A ? len : (b[1] == 0x02 || b[1] == 0x03) ? len + 5 : 1;
        if (total < 4) return 1;
        return b.size() >= total ? total : 0;
    }
    if (b[0] == 0xAA) {  // escaped frame: ends at the first unescaped 0x55
        for (size_t i = 1; i < b.size(); i++) {
            if (b[i] == 0xFF) {
                i++;
                continue;
            }
            if (b[i] == 0x55) return i + 1;
        }
        return 0;
    }
    return 1;
}

}  // namespace

ScriptedReader::ScriptedReader() {
    listen_fd_ = socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    if (bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(listen_fd_, 4) != 0)
        throw std::runtime_error("scripted reader: cannot listen");
    socklen_t len = sizeof addr;
    getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    if (pipe(wake_) != 0) throw std::runtime_error("scripted reader: pipe");
    thread_ = std::thread([this] { run(); });
}

ScriptedReader::~ScriptedReader() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        stop_ = true;
    }
    char c = 0;
    (void)!write(wake_[1], &c, 1);
    thread_.join();
    if (client_fd_ >= 0) close(client_fd_);
    close(listen_fd_);
    close(wake_[0]);
    close(wake_[1]);
}

void ScriptedReader::reply(Bytes raw) {
    std::lock_guard<std::mutex> lock(mu_);
    script_.push_back(std::move(raw));
}

void ScriptedReader::reply_frame(uint8_t cmd, const Bytes& data) { reply(frame(cmd, data)); }

void ScriptedReader::set_responder(std::function<Bytes(const Bytes&)> fn) {
    std::lock_guard<std::mutex> lock(mu_);
    responder_ = std::move(fn);
}

void ScriptedReader::send_all(const uint8_t* p, size_t n) {
    while (n > 0 && client_fd_ >= 0) {
        ssize_t w = send(client_fd_, p, n, MSG_NOSIGNAL);
        if (w <= 0) return;
        p += w;
        n -= size_t(w);
    }
}

void ScriptedReader::push(const Bytes& raw, bool byte_by_byte) {
    wait_client(2000);
    std::lock_guard<std::mutex> lock(mu_);
    if (!byte_by_byte) {
        send_all(raw.data(), raw.size());
        return;
    }
    for (uint8_t b : raw) {
        send_all(&b, 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void ScriptedReader::hang_up() {
    // Only shut the connection down: the serving thread may be inside recv()
    // on it, and closes the descriptor itself when it sees the end.
    std::lock_guard<std::mutex> lock(mu_);
    if (client_fd_ >= 0) shutdown(client_fd_, SHUT_RDWR);
}

Bytes ScriptedReader::received() const {
    std::lock_guard<std::mutex> lock(mu_);
    return received_;
}

std::vector<Bytes> ScriptedReader::requests() const {
    std::lock_guard<std::mutex> lock(mu_);
    return requests_;
}

bool ScriptedReader::wait_requests(size_t n, int timeout_ms) const {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return requests_.size() >= n; });
}

bool ScriptedReader::wait_client(int timeout_ms) const {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return client_fd_ >= 0; });
}

void ScriptedReader::handle_input() {
    uint8_t buf[4096];
    ssize_t n = recv(client_fd_, buf, sizeof buf, 0);
    std::lock_guard<std::mutex> lock(mu_);
    if (n <= 0) {
        close(client_fd_);
        client_fd_ = -1;
        return;
    }
    received_.insert(received_.end(), buf, buf + n);
    pending_.insert(pending_.end(), buf, buf + n);
    for (size_t len; (len = next_unit(pending_)) > 0;) {
        Bytes unit(pending_.begin(), pending_.begin() + long(len));
        pending_.erase(pending_.begin(), pending_.begin() + long(len));
        if (len == 1 && unit[0] != 0xA5 && unit[0] != 0xAA) continue;  // stray byte
        requests_.push_back(unit);
        Bytes answer;
        if (responder_) {
            answer = responder_(unit);
        } else if (!script_.empty()) {
            answer = std::move(script_.front());
            script_.pop_front();
        }
        send_all(answer.data(), answer.size());
    }
    cv_.notify_all();
}

void ScriptedReader::run() {
    for (;;) {
        pollfd fds[3] = {{wake_[0], POLLIN, 0}, {listen_fd_, POLLIN, 0}, {-1, POLLIN, 0}};
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (stop_) return;
            fds[2].fd = client_fd_;
        }
        if (poll(fds, 3, 100) <= 0) continue;
        if (fds[0].revents) return;
        if (fds[1].revents & POLLIN) {
            int fd = accept(listen_fd_, nullptr, nullptr);
            if (fd >= 0) {
                int one = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                std::lock_guard<std::mutex> lock(mu_);
                if (client_fd_ >= 0) close(client_fd_);
                client_fd_ = fd;
                pending_.clear();
                cv_.notify_all();
            }
        }
        if (fds[2].fd >= 0 && (fds[2].revents & (POLLIN | POLLHUP | POLLERR))) handle_input();
    }
}

}  // namespace uhftest
