// A reader on loopback TCP that records what the library sends and answers
// from a script: the tool of the wire tests. It shares no code with the
// library, so a framing mistake on one side cannot hide on the other.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "bytes_ops.h"

namespace uhftest {

class ScriptedReader {
public:
    ScriptedReader();  // listens on 127.0.0.1, ephemeral port
    ~ScriptedReader();
    ScriptedReader(const ScriptedReader&) = delete;
    ScriptedReader& operator=(const ScriptedReader&) = delete;

    int port() const { return port_; }

    // Script: each request unit (a whole frame of any of the reader's frame
    // forms) consumes one entry; an empty entry means "say nothing".
    void reply(Bytes raw);
    void reply_frame(uint8_t cmd, const Bytes& data = {});
    // Answer every request with whatever the function returns.
    void set_responder(std::function<Bytes(const Bytes& request)> fn);
    // Write bytes to the client now; optionally one byte per write.
    void push(const Bytes& raw, bool byte_by_byte = false);
    // Close the client connection.
    void hang_up();

    Bytes received() const;               // every byte the client sent
    std::vector<Bytes> requests() const;  // the request units, in order
    // Wait until at least n request units arrived (false on time-out).
    bool wait_requests(size_t n, int timeout_ms) const;
    bool wait_client(int timeout_ms) const;

private:
    void run();
    void handle_input();
    void send_all(const uint8_t* p, size_t n);

    int listen_fd_ = -1;
    int client_fd_ = -1;
    int port_ = 0;
    int wake_[2] = {-1, -1};
    bool stop_ = false;
    Bytes pending_;
    Bytes received_;
    std::vector<Bytes> requests_;
    std::deque<Bytes> script_;
    std::function<Bytes(const Bytes&)> responder_;
    mutable std::mutex mu_;
    mutable std::condition_variable cv_;
    std::thread thread_;
};

}  // namespace uhftest
