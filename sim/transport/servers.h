// The transports: a TCP listener, a pseudo-terminal and an in-process link.
// TCP and pty servers run one background thread each (poll loop driven by the
// engines' deadlines) and stop cleanly in their destructors. Every connection
// to a server is a link to the server's one reader; servers given the same
// radio serve the same reader.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "transport/session.h"

namespace uhfsim {

// What a server shares between its thread and its callers.
class ServerBase {
public:
    // A reader made from opts, unless `radio` names one to share.
    explicit ServerBase(SimOptions opts, std::shared_ptr<Radio> radio = nullptr);
    virtual ~ServerBase();
    ServerBase(const ServerBase&) = delete;
    ServerBase& operator=(const ServerBase&) = delete;

    void stop();
    bool running() const { return thread_.joinable(); }
    const std::string& error() const { return error_; }

    // Statistics of every session so far, live and closed.
    EngineStats stats() const;
    // Applies to live sessions and to those opened later.
    void set_faults(const FaultOptions& f);
    void set_read_rate(uint32_t reads_per_second);
    // A new tag field: tags enter and leave the reader's field.
    void set_tags(const TagField& tags);
    // Runs `fn` on each live link under the server's and the radio's locks (settings, tags, power cycle...).
    void for_each_reader(const std::function<void(VirtualReader&)>& fn);
    const std::shared_ptr<Radio>& radio() const { return radio_; }

protected:
    struct Link {
        int fd = -1;
        std::unique_ptr<Session> session;
        std::deque<std::vector<uint8_t>> out;  // writes in order, each kept whole
        size_t out_bytes = 0;
        TimePoint line_free{};  // pty pacing
    };

    bool launch();
    void wake();
    virtual void loop() = 0;
    void retire(Link& l);  // keeps its stats once the link goes away
    std::unique_ptr<Session> new_session();
    // Writes queued output; returns false when the peer is gone.
    static bool flush(Link& l, bool paced, uint32_t baud, TimePoint now, uint32_t piece = 0);
    // Due work into l.out; the engine adds reads only while less than
    // backed_up bytes wait.
    static void service(Link& l, TimePoint now, size_t backed_up);
    static int poll_timeout_ms(const std::vector<Link*>& links, TimePoint now, size_t backed_up);
    // A socket may queue a lot; a serial line holds about 20 ms, so a module
    // asked for more reads than its line carries misses them instead of
    // queueing seconds of them ahead of the next reply.
    static constexpr size_t kSocketBackedUp = 256 * 1024;
    static size_t line_backed_up(uint32_t baud) { return std::max<size_t>(64, baud / 10 / 50); }
    // Queued frames one write takes at most.
    static constexpr size_t kGatherWrites = 64;

    SimOptions opts_;
    std::shared_ptr<Radio> radio_;
    mutable std::mutex mu_;    // taken before the radio's
    std::vector<Link*> live_;  // guarded by mu_, owned by the loop
    EngineStats retired_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    int wake_[2] = {-1, -1};
    std::string error_;
};

class TcpServer : public ServerBase {
public:
    explicit TcpServer(SimOptions opts, std::shared_ptr<Radio> radio = nullptr);
    ~TcpServer() override;

    // Binds opts.host:opts.port and starts serving; false with error() set on failure.
    bool start();
    uint16_t port() const { return port_; }
    size_t client_count() const;

private:
    void loop() override;
    int listen_fd_ = -1;
    uint16_t port_ = 0;
};

class PtyServer : public ServerBase {
public:
    explicit PtyServer(SimOptions opts, std::shared_ptr<Radio> radio = nullptr);
    ~PtyServer() override;

    // Opens the pseudo-terminal pair and starts serving.
    bool start();
    // Path the host opens as its serial port, e.g. /dev/pts/7.
    const std::string& slave_path() const { return slave_path_; }

private:
    void loop() override;
    int master_ = -1;
    int slave_ = -1;  // held open so the master never sees a hang-up between host opens
    std::string slave_path_;
};

// No thread, no descriptor: the host side writes request bytes and reads reply
// bytes directly. The clock is injectable so tests can drive time themselves.
// Safe to use from several threads.
class InProcLink {
public:
    explicit InProcLink(
        SimOptions opts, std::function<TimePoint()> clock = [] { return Clock::now(); });

    void write(const uint8_t* bytes, size_t len);
    void write(std::span<const uint8_t> bytes) { write(bytes.data(), bytes.size()); }
    // Runs due work, then moves up to `cap` reply bytes into `buf`.
    size_t read(uint8_t* buf, size_t cap);
    std::vector<uint8_t> read_all();
    std::optional<TimePoint> next_deadline() const;
    bool closed() const;

    EngineStats stats() const;
    void set_faults(const FaultOptions& f);
    void with_reader(const std::function<void(VirtualReader&)>& fn);

private:
    void service_locked();
    std::function<TimePoint()> clock_;
    mutable std::mutex mu_;
    Session session_;
    std::deque<uint8_t> out_;
};

}  // namespace uhfsim
