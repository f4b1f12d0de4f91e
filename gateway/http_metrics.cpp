#include "http_metrics.h"

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
}

void presence_metrics(std::ostream& m, const Presence& presence, const Hub& hub) {
    help(m, "uhfd_present_tags", "gauge", "Tags in the field, by reader.");
    for (uint16_t i = 0; i < hub.readers(); i++)
        m << "uhfd_present_tags{reader=" << label(hub.name(i)) << "} " << presence.count(i) << '\n';
    help(m, "uhfd_presence_evictions_total", "counter", "Tags dropped from tracking to stay within max_tags.");
    m << "uhfd_presence_evictions_total " << presence.evictions() << '\n';
}

void mqtt_metrics(std::ostream& m, const std::vector<std::unique_ptr<MqttOut>>& mqtt, const Hub& hub) {
    if (mqtt.empty()) return;
    help(m, "uhfd_mqtt_queue_depth", "gauge", "Messages waiting for the broker.");
    for (size_t i = 0; i < mqtt.size(); i++)
        m << "uhfd_mqtt_queue_depth{reader=" << label(hub.name(i)) << "} " << mqtt[i]->queued() << '\n';
    help(m, "uhfd_mqtt_dropped_total", "counter", "Messages dropped because the queue was full.");
    for (size_t i = 0; i < mqtt.size(); i++)
        m << "uhfd_mqtt_dropped_total{reader=" << label(hub.name(i)) << "} " << mqtt[i]->dropped() << '\n';
    help(m, "uhfd_mqtt_connected", "gauge", "1 while connected to the broker.");
    for (size_t i = 0; i < mqtt.size(); i++)
        m << "uhfd_mqtt_connected{reader=" << label(hub.name(i)) << "} " << mqtt[i]->connected() << '\n';
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
    mqtt_metrics(m, s.mqtt, s.hub);
    stream_metrics(m, s.streams);
    return m.str();
}

}  // namespace uhfd
