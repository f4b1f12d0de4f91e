#include "http_api.h"

#include <httplib.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "mqtt_out.h"
#include "tag_json.h"

namespace uhfd {

using nlohmann::json;

namespace {

void reply(httplib::Response& res, int status, const json& body) {
    res.status = status;
    res.set_content(body.dump(), "application/json");
}

void error(httplib::Response& res, int status, const std::string& what) { reply(res, status, {{"error", what}}); }

json view_json(const ReaderView& v) {
    json j = {{"name", v.name},
              {"uri", v.uri},
              {"state", state_name(v.state)},
              {"reads", v.reads},
              {"reads_per_s", std::round(v.reads_per_s * 10) / 10},
              {"reconnects", v.reconnects}};
    if (!v.error.empty()) j["error"] = v.error;
    return j;
}

std::string label(const std::string& v) { return uhftools::json_string(v); }  // Prometheus label quoting matches JSON's

}  // namespace

HttpApi::HttpApi(const Config& c, Supervisor& s, Hub& hub, Presence& presence,
                 const std::vector<std::unique_ptr<MqttOut>>& mqtt)
    : c_(c), sup_(s), hub_(hub), presence_(presence), mqtt_(mqtt), srv_(std::make_unique<httplib::Server>()) {}

HttpApi::~HttpApi() { stop(); }

bool HttpApi::start(std::string& err) {
    routes();
    port_ = c_.http_port;
    if (!srv_->bind_to_port(c_.http_bind.c_str(), port_)) {
        err = "http: cannot listen on " + c_.http_bind + ":" + std::to_string(port_);
        return false;
    }
    thread_ = std::thread([this] { srv_->listen_after_bind(); });
    return true;
}

void HttpApi::stop() {
    if (!thread_.joinable()) return;
    srv_->stop();
    thread_.join();
}

void HttpApi::routes() {
    // Every write needs the token when one is configured.
    auto allowed = [this](const httplib::Request& req, httplib::Response& res) {
        if (c_.token.empty() || req.get_header_value("Authorization") == "Bearer " + c_.token) return true;
        error(res, 401, "this needs Authorization: Bearer TOKEN");
        return false;
    };
    auto known = [this](const httplib::Request& req, httplib::Response& res) {
        if (sup_.has(req.matches[1])) return true;
        error(res, 404, "no reader named " + std::string(req.matches[1]));
        return false;
    };

    srv_->Get("/", [](const httplib::Request&, httplib::Response& res) { res.set_content(kIndexHtml, "text/html"); });
    srv_->Get("/api/v1/readers", [this](const httplib::Request&, httplib::Response& res) {
        json list = json::array();
        for (const ReaderView& v : sup_.readers()) list.push_back(view_json(v));
        reply(res, 200, list);
    });
    srv_->Get(R"(/api/v1/readers/([^/]+))", [this, known](const httplib::Request& req, httplib::Response& res) {
        if (known(req, res)) reply(res, 200, sup_.details(req.matches[1]));
    });
    srv_->Put(R"(/api/v1/readers/([^/]+)/settings)",
              [this, known, allowed](const httplib::Request& req, httplib::Response& res) {
                  if (!allowed(req, res) || !known(req, res)) return;
                  ReaderSettings s;
                  std::string err;
                  if (!parse_settings(req.body, s, err)) return error(res, 400, err);
                  err = sup_.apply(req.matches[1], s);
                  if (!err.empty()) return error(res, 502, err);
                  reply(res, 200, sup_.details(req.matches[1]));
              });
    srv_->Post(R"(/api/v1/readers/([^/]+)/inventory/(start|stop))",
               [this, known, allowed](const httplib::Request& req, httplib::Response& res) {
                   if (!allowed(req, res) || !known(req, res)) return;
                   std::string err = sup_.set_inventory(req.matches[1], req.matches[2] == "start");
                   if (!err.empty()) return error(res, 502, err);
                   for (const ReaderView& v : sup_.readers())
                       if (v.name == req.matches[1]) reply(res, 200, view_json(v));
               });
    srv_->Get("/api/v1/tags", [this](const httplib::Request&, httplib::Response& res) {
        json list = json::array();
        for (const PresentTag& t : presence_.snapshot())
            list.push_back(
                {{"reader", t.reader},
                 {"epc", t.epc},
                 {"antenna", t.antenna},
                 {"reads", t.reads},
                 {"rssi_peak", t.rssi_peak / 10.0},
                 {"rssi_mean",
                  t.reads ? std::round(static_cast<double>(t.rssi_sum) / static_cast<double>(t.reads)) / 10.0 : 0},
                 {"first_seen", t.first},
                 {"last_seen", t.last}});
        reply(res, 200, list);
    });
    srv_->Get("/api/v1/stream", [this](const httplib::Request&, httplib::Response& res) {
        auto sub = hub_.subscribe();
        res.set_header("Cache-Control", "no-cache");
        res.set_chunked_content_provider(
            "text/event-stream",
            [sub](size_t, httplib::DataSink& sink) {
                std::string line;
                if (sub->pop(line, 1000)) return sink.write(line.data(), line.size());
                static const std::string ping = ": keep-alive\n\n";
                return sink.write(ping.data(), ping.size());
            },
            [this, sub](bool) { hub_.unsubscribe(sub); });
    });
    srv_->Get("/metrics", [this](const httplib::Request&, httplib::Response& res) {
        res.set_content(metrics(), "text/plain; version=0.0.4");
    });
    srv_->set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty()) error(res, res.status, res.status == 404 ? "no such path" : "request failed");
    });
}

std::string HttpApi::metrics() const {
    std::ostringstream m;
    auto help = [&](const char* name, const char* type, const char* text) {
        m << "# HELP " << name << ' ' << text << "\n# TYPE " << name << ' ' << type << '\n';
    };
    auto readers = sup_.readers();
    help("uhfd_reads_total", "counter", "Tag reads by reader and antenna.");
    for (const ReaderView& v : readers)
        for (const auto& [ant, n] : v.per_antenna)
            m << "uhfd_reads_total{reader=" << label(v.name) << ",antenna=\"" << ant << "\"} " << n << '\n';
    help("uhfd_present_tags", "gauge", "Tags in the field, by reader.");
    for (const ReaderView& v : readers)
        m << "uhfd_present_tags{reader=" << label(v.name) << "} " << presence_.count(v.name) << '\n';
    help("uhfd_link_state", "gauge", "1 for the state each reader's link is in.");
    for (const ReaderView& v : readers)
        for (LinkState s : {LinkState::Connecting, LinkState::Running, LinkState::Stopped, LinkState::Reconnecting})
            m << "uhfd_link_state{reader=" << label(v.name) << ",state=\"" << state_name(s) << "\"} " << (v.state == s)
              << '\n';
    help("uhfd_reconnects_total", "counter", "Links opened again after they were lost.");
    for (const ReaderView& v : readers)
        m << "uhfd_reconnects_total{reader=" << label(v.name) << "} " << v.reconnects << '\n';
    help("uhfd_presence_evictions_total", "counter", "Tags dropped from tracking to stay within max_tags.");
    m << "uhfd_presence_evictions_total " << presence_.evictions() << '\n';
    if (!mqtt_.empty()) {
        help("uhfd_mqtt_queue_depth", "gauge", "Messages waiting for the broker.");
        for (size_t i = 0; i < mqtt_.size(); i++)
            m << "uhfd_mqtt_queue_depth{reader=" << label(readers[i].name) << "} " << mqtt_[i]->queued() << '\n';
        help("uhfd_mqtt_dropped_total", "counter", "Messages dropped because the queue was full.");
        for (size_t i = 0; i < mqtt_.size(); i++)
            m << "uhfd_mqtt_dropped_total{reader=" << label(readers[i].name) << "} " << mqtt_[i]->dropped() << '\n';
        help("uhfd_mqtt_connected", "gauge", "1 while connected to the broker.");
        for (size_t i = 0; i < mqtt_.size(); i++)
            m << "uhfd_mqtt_connected{reader=" << label(readers[i].name) << "} " << mqtt_[i]->connected() << '\n';
    }
    return m.str();
}

}  // namespace uhfd
