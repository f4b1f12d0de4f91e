#include "sse_stream.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace uhfd {

// A client's mutex guards its buffer and flags. Its connection is resumed
// only by whoever clears `parked`, outside this mutex: while parked the
// connection is suspended, so libmicrohttpd can neither read it nor free it.
struct StreamClients::Client {
    StreamClients* owner = nullptr;
    MHD_Connection* conn = nullptr;
    std::mutex mu;
    std::string buf;
    size_t sent = 0;       // bytes of buf already handed to libmicrohttpd
    int fd = -1;           // -1 once libmicrohttpd has let go of the connection
    bool parked = false;   // suspended because buf had nothing to send
    bool dropped = false;  // fell behind: the connection is being closed
    bool ended = false;    // the stream is closing: end once buf is sent
    std::atomic<bool> gone{false};
    size_t pending() const { return buf.size() - sent; }
};

StreamClients::StreamClients(Limits l) : limits_(l), keep_alive_([this] { keep_alive_loop(); }) {}

StreamClients::~StreamClients() { close(); }

MHD_Response* StreamClients::open(MHD_Connection* conn) {
    if (live_ >= limits_.clients) return nullptr;
    auto c = std::make_shared<Client>();
    c->owner = this;
    c->conn = conn;
    const MHD_ConnectionInfo* info = MHD_get_connection_info(conn, MHD_CONNECTION_INFO_CONNECTION_FD);
    c->fd = info ? info->connect_fd : -1;
    // A fixed send buffer: autotuning would let a stalled client hold
    // megabytes in the kernel before its own buffer ever filled.
    int sndbuf = static_cast<int>(limits_.socket_buffer);
    setsockopt(c->fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (closed_) return nullptr;
        list_.push_back(c);
    }
    live_++;
    auto* holder = new std::shared_ptr<Client>(c);
    MHD_Response* r = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 16 * 1024, read, holder, release);
    if (!r) {
        release(holder);
        return nullptr;
    }
    MHD_add_response_header(r, "Content-Type", "text/event-stream");
    MHD_add_response_header(r, "Cache-Control", "no-cache");
    return r;
}

ssize_t StreamClients::read(void* cls, uint64_t, char* out, size_t max) {
    Client& c = **static_cast<std::shared_ptr<Client>*>(cls);
    std::lock_guard<std::mutex> lock(c.mu);
    if (c.dropped) return MHD_CONTENT_READER_END_WITH_ERROR;
    if (c.pending() == 0) {
        if (c.ended) return MHD_CONTENT_READER_END_OF_STREAM;
        c.parked = true;
        MHD_suspend_connection(c.conn);
        return 0;
    }
    size_t n = std::min(max, c.pending());
    std::memcpy(out, c.buf.data() + c.sent, n);
    c.sent += n;
    if (c.sent == c.buf.size()) {
        c.buf.clear();
        c.sent = 0;
    } else if (c.sent >= 64 * 1024) {
        c.buf.erase(0, c.sent);  // a slow reader: keep the buffer from creeping
        c.sent = 0;
    }
    return static_cast<ssize_t>(n);
}

void StreamClients::release(void* cls) {
    auto* holder = static_cast<std::shared_ptr<Client>*>(cls);
    Client& c = **holder;
    {
        std::lock_guard<std::mutex> lock(c.mu);
        c.fd = -1;  // before libmicrohttpd closes it: never shut down a reused descriptor
    }
    c.gone = true;
    c.owner->live_--;
    delete holder;
}

void StreamClients::publish(std::string_view event, std::string_view json) {
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_ || list_.empty()) return;
    frame_.assign("event: ").append(event).append("\ndata: ").append(json).append("\n\n");
    send_all(frame_);
}

void StreamClients::send_all(std::string_view frame) {
    std::erase_if(list_, [](const std::shared_ptr<Client>& c) { return c->gone.load(); });
    for (const std::shared_ptr<Client>& c : list_)
        if (add(*c, frame)) MHD_resume_connection(c->conn);
}

// True when the connection was parked and must now be resumed.
bool StreamClients::add(Client& c, std::string_view frame) {
    std::lock_guard<std::mutex> lock(c.mu);
    if (c.dropped || c.ended || c.fd < 0) return false;
    if (c.pending() + frame.size() > limits_.buffered)
        drop(c);
    else
        c.buf.append(frame);
    bool wake = c.parked;
    c.parked = false;
    return wake;
}

void StreamClients::drop(Client& c) {
    c.dropped = true;
    c.buf.clear();
    c.sent = 0;
    dropped_++;
    // A client that stopped reading leaves libmicrohttpd waiting to write;
    // shutting the socket down makes that write fail now, and no lingering
    // means the close resets it rather than keeping unsent data queued.
    linger reset{1, 0};
    setsockopt(c.fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    shutdown(c.fd, SHUT_RDWR);
}

void StreamClients::close() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (closed_) return;
        closed_ = true;
        for (const std::shared_ptr<Client>& c : list_) {
            std::unique_lock<std::mutex> client(c->mu);
            c->ended = true;
            bool wake = c->parked;
            c->parked = false;
            client.unlock();
            if (wake) MHD_resume_connection(c->conn);
        }
        list_.clear();
    }
    tick_.notify_all();
    if (keep_alive_.joinable()) keep_alive_.join();
}

void StreamClients::keep_alive_loop() {
    std::unique_lock<std::mutex> lock(mu_);
    while (!tick_.wait_for(lock, limits_.keep_alive, [this] { return closed_; })) send_all(": keep-alive\n\n");
}

}  // namespace uhfd
