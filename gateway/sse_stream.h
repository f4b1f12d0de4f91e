// The clients of the event stream. Each has a bounded buffer that the hub's
// sinks fill on the supervisor's thread and libmicrohttpd drains on its own;
// a client with nothing to send is suspended rather than holding a thread,
// and one that falls too far behind is dropped without slowing the others.
#pragma once

#include <microhttpd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace uhfd {

class StreamClients {
public:
    struct Limits {
        size_t clients = 1024;
        size_t buffered = 256 * 1024;  // bytes waiting for one client
        size_t socket_buffer = 64 * 1024;
        std::chrono::seconds keep_alive{15};
    };
    explicit StreamClients(Limits l);
    ~StreamClients();

    // The response for a new client on conn, or null when there are too many
    // or the stream is closed. Called from the access handler.
    MHD_Response* open(MHD_Connection* conn);
    // Appends "event: NAME\ndata: JSON\n\n" for every client.
    void publish(std::string_view event, std::string_view json);
    // Ends every stream and stops the keep-alive; nothing is resumed after it.
    void close();

    size_t clients() const { return live_; }
    uint64_t dropped() const { return dropped_; }

private:
    struct Client;
    static ssize_t read(void* cls, uint64_t pos, char* buf, size_t max);
    static void release(void* cls);
    void send_all(std::string_view frame);
    bool add(Client& c, std::string_view frame);
    void drop(Client& c);
    void keep_alive_loop();

    const Limits limits_;
    std::mutex mu_;  // the list, closed_ and frame_; held across resumes so close() waits for them
    std::vector<std::shared_ptr<Client>> list_;
    std::string frame_;  // reused for every event
    bool closed_ = false;
    std::atomic<size_t> live_{0};
    std::atomic<uint64_t> dropped_{0};
    std::condition_variable tick_;
    std::thread keep_alive_;
};

}  // namespace uhfd
