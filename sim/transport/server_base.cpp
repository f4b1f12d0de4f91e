#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "transport/servers.h"

namespace uhfsim {

// A link stops asking the engine for reports while this much output is queued,
// so a host that reads slowly cannot make the queue grow without bound.

ServerBase::ServerBase(SimOptions opts, std::shared_ptr<Radio> radio)
    : opts_(std::move(opts)),
      radio_(radio ? std::move(radio) : std::make_shared<Radio>(opts_.tags, opts_.engine.state, opts_.engine.seed)) {}

ServerBase::~ServerBase() { stop(); }

bool ServerBase::launch() {
    if (pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        error_ = "pipe failed";
        return false;
    }
    stop_ = false;
    thread_ = std::thread([this] { loop(); });
    return true;
}

void ServerBase::wake() {
    if (wake_[1] >= 0) {
        const uint8_t b = 1;
        [[maybe_unused]] auto n = ::write(wake_[1], &b, 1);
    }
}

void ServerBase::stop() {
    if (!thread_.joinable()) return;
    stop_ = true;
    wake();
    thread_.join();
    for (int& fd : wake_) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
}

std::unique_ptr<Session> ServerBase::new_session() { return std::make_unique<Session>(radio_, opts_); }

void ServerBase::retire(Link& l) {
    if (l.session) retired_.merge(l.session->reader().stats());
}

EngineStats ServerBase::stats() const {
    std::lock_guard<std::mutex> lock(mu_);
    EngineStats s = retired_;
    for (const Link* l : live_) s.merge(l->session->reader().stats());
    return s;
}

void ServerBase::set_faults(const FaultOptions& f) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        opts_.faults = f;
        for (Link* l : live_) l->session->set_faults(f);
    }
    wake();
}

void ServerBase::set_read_rate(uint32_t rate) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        opts_.engine.read_rate = rate;
        for (Link* l : live_) l->session->reader().options().read_rate = rate;
    }
    wake();
}

void ServerBase::set_tags(const TagField& tags) {
    {
        std::lock_guard<std::mutex> lock(radio_->mu);
        radio_->field = tags;
        ++radio_->revision;
    }
    wake();
}

void ServerBase::for_each_reader(const std::function<void(VirtualReader&)>& fn) {
    {
        std::lock_guard<std::mutex> lock(mu_);
        for (Link* l : live_) l->session->with_reader(fn);
    }
    wake();
}

bool ServerBase::flush(Link& l, bool paced, uint32_t baud, TimePoint now, uint32_t piece) {
    // A serial line is one byte stream: a paced write takes its piece across
    // frame boundaries, as a UART does.
    std::vector<uint8_t> line;
    while (!l.out.empty()) {
        if (paced && l.line_free > now) return true;
        iovec iov[kGatherWrites];
        size_t count = 0;
        if (paced) {
            // At most ~5 ms of line time per write keeps the pacing smooth.
            const size_t want = piece ? piece : std::max<uint32_t>(1, baud / 10 / 200);
            line.clear();
            for (const auto& c : l.out) {
                line.insert(line.end(), c.begin(),
                            c.begin() + static_cast<std::ptrdiff_t>(std::min(c.size(), want - line.size())));
                if (line.size() == want) break;
            }
            iov[count++] = {line.data(), line.size()};
        } else {
            // One system call for what is queued, not one per frame.
            for (auto& c : l.out) {
                if (count == kGatherWrites) break;
                iov[count++] = {c.data(), c.size()};
            }
        }
        msghdr msg{};
        msg.msg_iov = iov;
        msg.msg_iovlen = count;
        const ssize_t w = ::sendmsg(l.fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
        ssize_t wrote = w;
        if (w < 0 && errno == ENOTSOCK) wrote = ::writev(l.fd, iov, static_cast<int>(count));
        if (wrote < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        size_t k = static_cast<size_t>(wrote);
        if (paced) {
            // A write that comes late (poll wakes in whole ms) catches up on up to
            // 2 ms of line time, so small pieces still fill the line.
            const auto line_ns = static_cast<int64_t>(k) * 10 * 1'000'000'000LL / std::max<uint32_t>(baud, 1);
            l.line_free = std::max(l.line_free, now - std::chrono::milliseconds(2)) + std::chrono::nanoseconds(line_ns);
        }
        l.out_bytes -= k;
        while (k > 0) {
            auto& chunk = l.out.front();
            if (k >= chunk.size()) {
                k -= chunk.size();
                l.out.pop_front();
            } else {
                chunk.erase(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(k));
                k = 0;
            }
        }
    }
    return true;
}

int ServerBase::poll_timeout_ms(const std::vector<Link*>& links, TimePoint now, size_t backed_up) {
    TimePoint next = now + std::chrono::milliseconds(100);
    for (const Link* l : links) {
        if (l->out_bytes < backed_up)
            if (auto d = l->session->next_deadline(); d && *d < next) next = *d;
        if (!l->out.empty() && l->line_free > now && l->line_free < next) next = l->line_free;
    }
    if (next <= now) return 0;
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(next - now).count();
    return static_cast<int>((us + 999) / 1000);
}

void ServerBase::service(Link& l, TimePoint now, size_t backed_up) {
    l.session->service(
        now,
        [&l](const uint8_t* p, size_t n) {
            l.out.emplace_back(p, p + n);
            l.out_bytes += n;
        },
        l.out_bytes < backed_up);
}

}  // namespace uhfsim
