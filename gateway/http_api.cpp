#include "http_api.h"

#include <unistd.h>

#include <charconv>

#include "http_listen.h"
#include "http_metrics.h"
#include "http_reply.h"
#include "http_routes.h"
#include "http_views.h"
#include "outputs.h"

namespace uhfd {

namespace {

constexpr size_t kMaxHeaders = 64;
constexpr size_t kMaxHeaderBytes = 8 * 1024;
constexpr size_t kMaxBody = 64 * 1024;
constexpr unsigned kMaxConnections = 1200;  // 1,024 stream clients and room for everyone else
constexpr unsigned kIdleSeconds = 30;       // a suspended stream is not idle: it never times out
constexpr size_t kConnectionMemory = 32 * 1024;

struct Tally {
    size_t count = 0, bytes = 0;
    bool utf8 = true;
};

MHD_Result count_value(void* cls, MHD_ValueKind, const char* key, size_t key_size, const char* value,
                       size_t value_size) {
    auto& t = *static_cast<Tally*>(cls);
    t.count++;
    t.bytes += key_size + value_size + 4;  // ": " and CRLF
    t.utf8 = t.utf8 && valid_utf8({key, key_size}) && (!value || valid_utf8({value, value_size}));
    return MHD_YES;
}

Tally tally(MHD_Connection* conn, MHD_ValueKind kind) {
    Tally t;
    MHD_get_connection_values_n(conn, kind, count_value, &t);
    return t;
}

const char* header(MHD_Connection* conn, const char* name) {
    return MHD_lookup_connection_value(conn, MHD_HEADER_KIND, name);
}

bool body_too_long(MHD_Connection* conn) {
    const char* text = header(conn, "Content-Length");
    if (!text) return false;
    std::string_view len(text);
    unsigned long long n = 0;
    auto [end, ec] = std::from_chars(len.data(), len.data() + len.size(), n);
    return ec == std::errc::result_out_of_range || (ec == std::errc() && n > kMaxBody);
}

const char* allow_header(const RouteMatch& m) { return m.write() ? m.method() : "GET, HEAD"; }

}  // namespace

struct HttpApi::Request {
    RouteMatch route;
    bool head = false;
    std::string body;
    std::shared_ptr<Waiting> waiting;  // set once a write has gone to the supervisor
};

HttpApi::HttpApi(const Config& c, Supervisor& s, Hub& hub, Presence& presence, const Outputs& outputs)
    : c_(c), sup_(s), hub_(hub), presence_(presence), outputs_(outputs) {}

HttpApi::~HttpApi() { stop(); }

bool HttpApi::start(std::string& err) {
    ListenAddress where;
    if (!resolve_listen(c_.http_bind, c_.http_port, where, err)) return false;
    if (!where.loopback() && c_.token.empty()) {
        err = "refusing to serve HTTP on " + where.text +
              " without a token: other hosts could change the readers; give one (--token-file FILE, UHFD_TOKEN "
              "or http.token) or bind a loopback address";
        return false;
    }
    int fd = listen_on(where, err);
    if (fd < 0) return false;
    raise_descriptor_limit();
    hosts_ = std::make_unique<HostRule>(c_.http_bind, where.wildcard(), c_.http_names);
    streams_ = std::make_shared<StreamClients>(StreamClients::Limits{});
    daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr,
                               nullptr, &on_request, this, MHD_OPTION_LISTEN_SOCKET, fd, MHD_OPTION_CONNECTION_LIMIT,
                               kMaxConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_NOTIFY_COMPLETED,
                               &on_completed, this, MHD_OPTION_END);
    if (!daemon_) {
        close(fd);
        err = "cannot serve HTTP on " + where.text + ": libmicrohttpd did not start";
        return false;
    }
    hub_.on_read([s = streams_](const Read&, std::string_view json) { s->publish("read", json); });
    hub_.on_event([s = streams_](const Event& e, std::string_view json) {
        s->publish(e.kind == Event::Arrive ? "arrive" : "depart", json);
    });
    port_ = c_.http_port;
    return true;
}

void HttpApi::stop() {
    if (!daemon_) return;
    // libmicrohttpd must not stop with connections suspended: resume them all first.
    streams_->close();
    waiting_.settle_all({MHD_HTTP_SERVICE_UNAVAILABLE, "uhfd is stopping"});
    waiting_.wait_answered(std::chrono::seconds(1));  // so they hear 503 rather than a closed connection
    MHD_stop_daemon(daemon_);
    daemon_ = nullptr;
}

MHD_Result HttpApi::on_request(void* cls, MHD_Connection* conn, const char* url, const char* method, const char*,
                               const char* upload, size_t* upload_size, void** req_cls) {
    auto& api = *static_cast<HttpApi*>(cls);
    auto* r = static_cast<Request*>(*req_cls);
    if (!r) {
        *req_cls = r = new Request;
        return api.begin(conn, url, method, *r);
    }
    if (*upload_size) return api.take_body(upload, upload_size, *r);
    if (!r->route.write()) return api.serve_read(conn, *r);
    return r->waiting ? api.finish_write(conn, *r) : api.start_write(conn, *r);
}

void HttpApi::on_completed(void* cls, MHD_Connection*, void** req_cls, MHD_RequestTerminationCode) {
    auto* r = static_cast<Request*>(*req_cls);
    if (r && r->waiting) static_cast<HttpApi*>(cls)->waiting_.remove(r->waiting);
    delete r;
    *req_cls = nullptr;
}

// Headers are in: every check that needs no body. Answering now would close
// the connection (libmicrohttpd cannot tell there is no body), so even a read
// is answered on the next call.
MHD_Result HttpApi::begin(MHD_Connection* conn, const char* url, const char* method, Request& r) {
    Tally headers = tally(conn, MHD_HEADER_KIND);
    if (headers.count > kMaxHeaders || headers.bytes > kMaxHeaderBytes)
        return answer_error(conn, MHD_HTTP_REQUEST_HEADER_FIELDS_TOO_LARGE, "at most 64 headers and 8 KB of them");
    if (!headers.utf8 || !valid_utf8(url) || !tally(conn, MHD_GET_ARGUMENT_KIND).utf8)
        return answer_error(conn, MHD_HTTP_BAD_REQUEST, "the request is not UTF-8 text");
    const char* host = header(conn, "Host");
    if (!host || !hosts_->allows_host(host))
        return answer_error(conn, MHD_HTTP_MISDIRECTED_REQUEST, "not a name of this gateway (http.names lists more)");
    r.route = match_route(url);
    if (r.route.route == Route::None) return answer_error(conn, MHD_HTTP_NOT_FOUND, "no such path");
    if (!method_fits(r.route, method)) return answer_wrong_method(conn, allow_header(r.route));
    r.head = std::string_view(method) == "HEAD";
    return r.route.write() ? admit_write(conn, r) : MHD_YES;
}

// An answer when the write is refused before its body; else MHD_YES for the body.
MHD_Result HttpApi::admit_write(MHD_Connection* conn, const Request& r) {
    const char* origin = header(conn, "Origin");
    if (origin && !hosts_->allows_origin(origin))
        return answer_error(conn, MHD_HTTP_FORBIDDEN, "writes from a page of another site are refused");
    const char* auth = header(conn, "Authorization");
    if (!c_.token.empty() && !bearer_matches(auth ? auth : "", c_.token))
        return answer_error(conn, MHD_HTTP_UNAUTHORIZED, "this needs Authorization: Bearer TOKEN");
    if (!sup_.has(r.route.reader)) return answer_error(conn, MHD_HTTP_NOT_FOUND, "no reader named " + r.route.reader);
    if (body_too_long(conn)) return answer_error(conn, MHD_HTTP_CONTENT_TOO_LARGE, "the body is over 64 KB");
    return MHD_YES;
}

MHD_Result HttpApi::serve_read(MHD_Connection* conn, const Request& r) {
    switch (r.route.route) {
        case Route::Page: return answer(conn, MHD_HTTP_OK, kIndexHtml, "text/html; charset=utf-8");
        case Route::Readers: {
            nlohmann::json list = nlohmann::json::array();
            for (const ReaderView& v : sup_.readers()) list.push_back(view_json(v));
            return answer_json(conn, MHD_HTTP_OK, list);
        }
        case Route::Reader:
            if (!sup_.has(r.route.reader))
                return answer_error(conn, MHD_HTTP_NOT_FOUND, "no reader named " + r.route.reader);
            return answer_json(conn, MHD_HTTP_OK, sup_.details(r.route.reader));
        case Route::Tags: return answer_json(conn, MHD_HTTP_OK, tags_json(presence_.snapshot(), hub_));
        case Route::Metrics:
            return answer(conn, MHD_HTTP_OK, metrics_text({sup_, hub_, presence_, outputs_, *streams_}),
                          "text/plain; version=0.0.4");
        default: break;
    }
    if (r.head) return answer(conn, MHD_HTTP_OK, "", "text/event-stream");
    MHD_Response* stream = streams_->open(conn);
    if (!stream) return answer_error(conn, MHD_HTTP_SERVICE_UNAVAILABLE, "too many stream clients");
    MHD_Result ok = MHD_queue_response(conn, MHD_HTTP_OK, stream);
    MHD_destroy_response(stream);
    return ok;
}

MHD_Result HttpApi::take_body(const char* data, size_t* size, Request& r) {
    // Past the bound without a Content-Length (chunked): no answer can be
    // queued mid-body, so the connection goes.
    if (r.body.size() + *size > kMaxBody) return MHD_NO;
    r.body.append(data, *size);
    *size = 0;
    return MHD_YES;
}

// The whole body is in: the connection waits, suspended, for the supervisor.
MHD_Result HttpApi::start_write(MHD_Connection* conn, Request& r) {
    if (!valid_utf8(r.body)) return answer_error(conn, MHD_HTTP_BAD_REQUEST, "the body is not UTF-8 text");
    ReaderSettings settings;
    std::string err;
    const bool apply = r.route.route == Route::Settings;
    if (apply && !parse_settings(r.body, settings, err)) return answer_error(conn, MHD_HTTP_BAD_REQUEST, err);
    r.waiting = std::make_shared<Waiting>(conn);
    r.waiting->park();
    if (!waiting_.add(r.waiting)) {
        r.waiting->settle({MHD_HTTP_SERVICE_UNAVAILABLE, "uhfd is stopping"});
        return MHD_YES;
    }
    auto done = [w = r.waiting](const std::string& why) {
        w->settle(why.empty() ? Outcome{} : Outcome{MHD_HTTP_BAD_GATEWAY, why});
    };
    if (apply)
        sup_.apply(r.route.reader, settings, done);
    else
        sup_.set_inventory(r.route.reader, r.route.start, done);
    return MHD_YES;
}

// Resumed: the supervisor has answered, or uhfd is stopping.
MHD_Result HttpApi::finish_write(MHD_Connection* conn, Request& r) {
    std::optional<Outcome> o = r.waiting->outcome();
    if (!o) return MHD_NO;  // resumed without an outcome cannot happen; never spin on it
    if (o->status != MHD_HTTP_OK) return answer_error(conn, o->status, o->error);
    if (r.route.route == Route::Settings) return answer_json(conn, MHD_HTTP_OK, sup_.details(r.route.reader));
    for (const ReaderView& v : sup_.readers())
        if (v.name == r.route.reader) return answer_json(conn, MHD_HTTP_OK, view_json(v));
    return answer_error(conn, MHD_HTTP_NOT_FOUND, "no reader named " + r.route.reader);
}

}  // namespace uhfd
