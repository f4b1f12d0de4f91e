#include "http_metrics.h"

#include <map>
#include <sstream>

#include "tag_json.h"

namespace uhfd {

namespace {

std::string label(const std::string& v) { return uhftools::json_string(v); }  // Prometheus label quoting matches JSON's

void help(std::ostream& m, const char* name, const char* type, const char* text) {
    m << "# HELP " << name << ' ' << text << "\n# TYPE " << name << ' ' << type << '\n';
}

void link_metrics(std::ostream& m, const std::vector<ReaderView>& readers) {
    help(m, "uhfd_reads_total", "counter", "Tag reads by reader and antenna.");
    for (const ReaderView& v : readers)
        for (const auto& [ant, n] : v.per_antenna)
            m << "uhfd_reads_total{reader=" << label(v.name) << ",antenna=\"" << ant << "\"} " << n << '\n';
    help(m, "uhfd_link_state", "gauge", "1 for the state each reader's link is in.");
    for (const ReaderView& v : readers)
        for (LinkState s : {LinkState::Connecting, LinkState::Running, LinkState::Stopped, LinkState::Reconnecting})
            m << "uhfd_link_state{reader=" << label(v.name) << ",state=\"" << state_name(s) << "\"} " << (v.state == s)
              << '\n';
    help(m, "uhfd_reconnects_total", "counter", "Links opened again after they were lost.");
    for (const ReaderView& v : readers)
        m << "uhfd_reconnects_total{reader=" << label(v.name) << "} " << v.reconnects << '\n';
    help(m, "uhfd_queue_overflow_reads_total", "counter",
         "Reads the library's tag queue discarded when its worker fell behind and the queue filled.");
    for (const ReaderView& v : readers)
        m << "uhfd_queue_overflow_reads_total{reader=" << label(v.name) << "} " << v.queue_overflows << '\n';
}

void presence_metrics(std::ostream& m, const Presence& presence, const Hub& hub) {
    help(m, "uhfd_present_tags", "gauge", "Tags in the field, by reader.");
    std::map<std::string, size_t> by_name;  // a name a reload removed and added again has two indexes
    for (uint16_t i = 0; i < hub.readers(); i++) by_name[hub.name(i)] += presence.count(i);
    for (const auto& [name, n] : by_name) m << "uhfd_present_tags{reader=" << label(name) << "} " << n << '\n';
    help(m, "uhfd_presence_evictions_total", "counter", "Tags dropped from tracking to stay within max_tags.");
    m << "uhfd_presence_evictions_total " << presence.evictions() << '\n';
}

// Per reader and output: what waits in the outbox for it, and the reads it lost to the bound.
void outbox_metrics(std::ostream& m, Outbox& box, const Hub& hub) {
    struct Row {
        std::string output;
        std::vector<Outbox::Depth> depth;
        std::vector<uint64_t> dropped;
    };
    std::vector<std::pair<uint16_t, std::string>> readers;
    for (uint16_t i = 0; i < box.readers(); i++)
        if (std::string name = hub.name(i); !name.empty() && box.serves(i)) readers.emplace_back(i, name);
    std::vector<Row> rows;
    for (const char* output : {"mqtt", "webhook"}) {
        const int o = box.output(output);
        if (o < 0) continue;
        rows.push_back({output, {}, {}});
        for (const auto& [i, name] : readers) {
            rows.back().depth.push_back(box.depth(o, i));
            rows.back().dropped.push_back(box.reads_dropped(o, i));
        }
    }
    auto each = [&](const char* name, const char* type, const char* text, auto value) {
        help(m, name, type, text);
        for (const Row& row : rows)
            for (size_t k = 0; k < readers.size(); k++)
                m << name << "{reader=" << label(readers[k].second) << ",output=\"" << row.output << "\"} "
                  << value(row, k) << '\n';
    };
    each("uhfd_outbox_rows", "gauge", "Outbox rows the output has not delivered.",
         [](const Row& r, size_t k) { return r.depth[k].rows; });
    each("uhfd_outbox_reads", "gauge", "Reads in the outbox the output has not delivered.",
         [](const Row& r, size_t k) { return r.depth[k].reads; });
    each("uhfd_outbox_bytes", "gauge", "Bytes of JSON in the outbox the output has not delivered.",
         [](const Row& r, size_t k) { return r.depth[k].bytes; });
    each("uhfd_reads_dropped_total", "counter", "Reads the full outbox dropped before the output delivered them.",
         [](const Row& r, size_t k) { return r.dropped[k]; });
}

void mqtt_metrics(std::ostream& m, const MqttClients& mqtt) {
    help(m, "uhfd_mqtt_connected", "gauge", "1 while connected to the broker and acknowledged by it.");
    for (const auto& [name, connected] : mqtt.connected())
        m << "uhfd_mqtt_connected{reader=" << label(name) << "} " << connected << '\n';
}

void llrp_metrics(std::ostream& m, const LlrpServer& llrp) {
    const std::vector<LlrpServer::Stats> stats = llrp.stats();
    help(m, "uhfd_llrp_clients", "gauge", "1 while an LLRP client is connected to the reader's endpoint.");
    for (const auto& s : stats) m << "uhfd_llrp_clients{reader=" << label(s.reader) << "} " << s.client << '\n';
    help(m, "uhfd_llrp_reads_dropped_total", "counter", "Reads an LLRP client fell too far behind to be given.");
    for (const auto& s : stats)
        m << "uhfd_llrp_reads_dropped_total{reader=" << label(s.reader) << "} " << s.dropped << '\n';
}

void stream_metrics(std::ostream& m, const StreamClients& streams) {
    help(m, "uhfd_http_stream_clients", "gauge", "Clients connected to the event stream.");
    m << "uhfd_http_stream_clients " << streams.clients() << '\n';
    help(m, "uhfd_http_stream_dropped_total", "counter", "Stream clients dropped for falling behind.");
    m << "uhfd_http_stream_dropped_total " << streams.dropped() << '\n';
}

}  // namespace

std::string metrics_text(const MetricSources& s) {
    std::ostringstream m;
    help(m, "uhfd_build_info", "gauge", "The gateway's version and the commit it was built from.");
    m << "uhfd_build_info{version=\"" << UHFTOOLS_VERSION << "\",commit=\"" << UHFTOOLS_COMMIT << "\"} 1\n";
    link_metrics(m, s.sup.readers());
    presence_metrics(m, s.presence, s.hub);
    if (s.outputs.outbox) outbox_metrics(m, *s.outputs.outbox, s.hub);
    if (s.outputs.mqtt) mqtt_metrics(m, *s.outputs.mqtt);
    if (s.outputs.webhook) {
        help(m, "uhfd_webhook_failures_total", "counter", "Webhook requests that failed or were refused.");
        m << "uhfd_webhook_failures_total " << s.outputs.webhook->failures() << '\n';
    }
    if (s.outputs.llrp) llrp_metrics(m, *s.outputs.llrp);
    stream_metrics(m, s.streams);
    return m.str();
}

}  // namespace uhfd
