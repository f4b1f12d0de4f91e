// The REST API, the event stream, the metrics and the web page, on
// libmicrohttpd: one polling thread (epoll) for every client, stream clients
// and writes waiting for a reader suspended rather than holding a thread.
#pragma once

#include <microhttpd.h>

#include <memory>
#include <string>

#include "config.h"
#include "events.h"
#include "http_guard.h"
#include "http_wait.h"
#include "sse_stream.h"
#include "supervisor.h"

namespace uhfd {

struct Outputs;

class HttpApi {
public:
    HttpApi(const Config& c, Supervisor& s, Hub& hub, Presence& presence, const Outputs& outputs);
    ~HttpApi();
    // False with err when it cannot listen, or would serve other hosts without a token.
    bool start(std::string& err);
    // Answers every waiting write and ends every stream, then closes.
    void stop();
    int port() const { return port_; }

private:
    struct Request;
    static MHD_Result on_request(void* cls, MHD_Connection* conn, const char* url, const char* method,
                                 const char* version, const char* upload, size_t* upload_size, void** req_cls);
    static void on_completed(void* cls, MHD_Connection* conn, void** req_cls, MHD_RequestTerminationCode why);
    MHD_Result begin(MHD_Connection* conn, const char* url, const char* method, Request& r);
    MHD_Result admit_write(MHD_Connection* conn, const Request& r);
    MHD_Result serve_read(MHD_Connection* conn, const Request& r);
    MHD_Result take_body(const char* data, size_t* size, Request& r);
    MHD_Result start_write(MHD_Connection* conn, Request& r);
    MHD_Result finish_write(MHD_Connection* conn, Request& r);

    const Config& c_;
    Supervisor& sup_;
    Hub& hub_;
    Presence& presence_;
    const Outputs& outputs_;
    std::unique_ptr<HostRule> hosts_;
    std::shared_ptr<StreamClients> streams_;  // shared with the hub's sinks
    WaitingList waiting_;
    MHD_Daemon* daemon_ = nullptr;
    int port_ = 0;
};

// The page served at "/", built from gateway/web/index.html.
extern const char* const kIndexHtml;

}  // namespace uhfd
