// uhfd: a gateway for UHF RFID reader modules. It keeps each configured
// reader inventorying (reconnecting the ones it loses), tracks which tags
// are in the field, and hands reads and arrive/depart events to MQTT, an
// HTTP API with a live stream and a web page, and JSON lines. Each reader
// is served by a worker process: uhfd started again with --worker.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "config.h"
#include "events.h"
#include "http_api.h"
#include "llrp_server.h"
#include "jsonl_out.h"
#include "mqtt_out.h"
#include "oplog.h"
#include "outputs.h"
#include "supervisor.h"
#include "version.h"
#include "watchdog.h"
#include "worker.h"

using namespace uhfd;

static_assert(kMaxReaders * 4 <= Outbox::kSlots);

namespace {

bool split_host_port(const std::string& text, std::string& host, int& port) {
    auto colon = text.rfind(':');
    if (colon == std::string::npos) {
        host = text;
        return !host.empty();
    }
    host = text.substr(0, colon);
    try {
        port = std::stoi(text.substr(colon + 1));
    } catch (const std::exception&) {
        return false;
    }
    return port >= 0 && port <= 65535;
}

int usage(const std::string& what) {
    std::cerr << "uhfd: " << what << " (uhfd --help)\n";
    return 2;
}

// A reader added by a reload: its slot in the outbox and its MQTT client, as
// at start-up. The seq it goes on from.
uint64_t add_outputs(Outputs& out, uint16_t index, const std::string& name) {
    if (!out.outbox) return 0;
    std::string err;
    if (!out.outbox->add_reader(index, name, err)) {
        oplog(Level::Error, name, "reload", {{"error", err}, {"outputs", "none until uhfd restarts"}});
        return 0;
    }
    if (out.mqtt && !out.mqtt->add(name, index, err))
        oplog(Level::Error, name, "reload", {{"error", err}, {"mqtt", "none until uhfd restarts"}});
    return out.outbox->last_seq(index);
}

// SIGHUP: the readers of the configuration file again. A file that does not
// pass the checks is refused and the readers stay as they are.
void reload(const std::string& path, bool sim, Supervisor& sup, Hub& hub, Outputs& out) {
    Config c;
    std::string err;
    if (!path.empty() && !load_config(path, c, err, sim)) {
        oplog(Level::Error, "", "reload", {{"error", err}, {"kept", "the running configuration"}});
        return;
    }
    if (sim) c.readers.push_back({"sim", "sim", {}});
    const size_t n = c.readers.size();
    sup.reconfigure(std::move(c.readers), [&hub, &out](uint16_t index, const std::string& name) {
        hub.add_reader(name, add_outputs(out, index, name));
    });
    oplog(Level::Info, "", "reload", {{"readers", std::to_string(n)}});
}

// The program a worker runs: this one, wherever it was started from.
std::string self_path(const char* argv0) {
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string(argv0);
}

// The outbox and the outputs that deliver from it; the hub's seqs go on from
// what the outbox kept. Nothing when neither MQTT nor a webhook is configured.
bool open_outputs(const Config& c, const std::vector<std::string>& names, Hub& hub, Outputs& out, std::string& err) {
    Outbox::Options o{c.state_dir, static_cast<uint64_t>(c.outbox_max_mb * 1024 * 1024), names, {}, hub.boot()};
    if (!c.mqtt.host.empty()) o.outputs.push_back("mqtt");
    if (!c.webhook.url.empty()) o.outputs.push_back("webhook");
    if (o.outputs.empty()) return true;
    out.outbox = Outbox::open(o, err);
    if (!out.outbox)
        return (err = "the outbox needs a writable state directory: " + err + " (give --state-dir DIR or state_dir)",
                false);
    Outbox& box = *out.outbox;
    for (uint16_t i = 0; i < names.size(); i++) hub.continue_seq(i, box.last_seq(i));
    hub.on_binary_read([&box](const Read& r) { box.add(r); });
    hub.on_event([&box](const Event& e, std::string_view json) { box.add(e.reader, e.seq, true, json); });
    hub.on_batch_end([&box] { return box.commit(); });
    if (!c.mqtt.host.empty()) {
        out.mqtt = std::make_unique<MqttClients>(c.mqtt, box);
        for (uint16_t i = 0; i < names.size(); i++)
            if (!out.mqtt->add(names[i], i, err)) return false;
    }
    if (!c.webhook.url.empty()) {
        out.webhook = std::make_unique<Webhook>(c.webhook, box);
        if (!out.webhook->start(err)) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    // uhfd --worker FD NAME: one reader's worker, started by the supervisor.
    if (argc >= 3 && std::string(argv[1]) == "--worker") return worker_main(std::atoi(argv[2]));
    CLI::App app{
        "uhfd - a gateway for UHF RFID reader modules: tag reads and arrive/depart events to MQTT, a REST "
        "API with a live stream and a web page, and JSON lines; readers reconnect by themselves.\n\n"
        "Examples:\n"
        "  uhfd --sim                                   # one virtual reader, web page on http://127.0.0.1:8080\n"
        "  uhfd -c /etc/uhfd.json                       # the readers and outputs of a file\n"
        "  uhfd -c /etc/uhfd.json --mqtt broker:1883 --jsonl -\n"
        "  uhfd --check-config /etc/uhfd.json\n"};
    std::string config_file, check_file, http, mqtt, prefix, token_file, jsonl, state_dir;
    int llrp_port = 0;
    bool sim = false;
    double depart_after = 0;
    app.add_option("-c,--config", config_file, "Configuration file (JSON; see docs/GATEWAY.md)");
    app.add_option("--check-config", check_file, "Check a configuration file and exit: 0 when good, 2 with the reason");
    app.add_flag("--sim", sim, "Add an in-process virtual reader named sim");
    app.add_option("--http", http, "Serve HTTP on ADDR:PORT (default 127.0.0.1:8080; port 0: no HTTP)");
    app.add_option("--mqtt", mqtt, "Publish to the broker at HOST[:PORT]");
    app.add_option("--prefix", prefix, "MQTT topic prefix (default uhfd)");
    app.add_option("--token-file", token_file,
                   "File whose first line is the bearer token every HTTP write must carry (else UHFD_TOKEN, else "
                   "http.token); needed to serve HTTP beyond loopback");
    app.add_option("--jsonl", jsonl, "Write reads and events as JSON lines to a file, or - for standard output");
    app.add_option("--depart-after", depart_after, "Seconds unseen before a tag departs (default 5)")
        ->check(CLI::Range(0.001, 86400.0));  // presence.depart_after's range
    app.add_option("--state-dir", state_dir,
                   "Directory of the outbox that MQTT and the webhook deliver from (default /var/lib/uhfd)");
    app.add_option("--llrp", llrp_port,
                   "Serve LLRP: the first reader on PORT, the next on PORT+1, ... (llrp.bind, default 127.0.0.1)")
        ->check(CLI::Range(1, 65535));
    app.set_version_flag("--version", uhftools::version_text("uhfd"));
    app.footer(settings_help());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }

    Config c;
    std::string err;
    // --check-config and start-up read a file the same way, --sim included.
    if (!check_file.empty()) {
        if (!load_config(check_file, c, err, sim)) return usage(err);
        std::printf("%s: %zu readers, good\n", check_file.c_str(), c.readers.size());
        return 0;
    }
    if (!config_file.empty()) {
        if (!load_config(config_file, c, err, sim)) return usage(err);
    } else if (sim) {
        c.readers.push_back({"sim", "sim", {}});
    } else {
        return usage("no readers: give --config FILE or --sim");
    }
    if (!http.empty() && !split_host_port(http, c.http_bind, c.http_port)) return usage("--http takes ADDR:PORT");
    if (!mqtt.empty() && !split_host_port(mqtt, c.mqtt.host, c.mqtt.port)) return usage("--mqtt takes HOST[:PORT]");
    if (!prefix.empty() && !check_topic_prefix(prefix, err)) return usage("--prefix: " + err);
    if (!prefix.empty()) c.mqtt.prefix = prefix;
    if (!token_file.empty() && !read_token_file(token_file, c.token, err)) return usage(err);
    if (const char* env = std::getenv("UHFD_TOKEN"); token_file.empty() && env && *env) c.token = env;
    if (!jsonl.empty()) c.jsonl = jsonl;
    if (depart_after > 0) c.presence.depart_after = depart_after;
    if (!state_dir.empty()) c.state_dir = state_dir;
    if (llrp_port) c.llrp.port = llrp_port;
    std::vector<int> llrp_at;
    if (!llrp_ports(c, llrp_at, err)) return usage("--llrp: " + err);

    // The stop signals are taken here, by sigwait; every thread starts with them blocked.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGHUP);  // reopen the JSON-lines file
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    std::vector<std::string> names;
    for (const ReaderConfig& r : c.readers) names.push_back(r.name);
    Hub hub(names, make_boot_id());
    Presence presence(c.presence);
    Supervisor sup(c, hub, presence, self_path(argv[0]));
    Outputs outputs;
    if (!open_outputs(c, names, hub, outputs, err)) return usage(err);
    JsonLines lines;
    if (!c.jsonl.empty()) {
        if (!lines.open(c.jsonl, err)) return usage(err);
        hub.on_read([&lines](const Read&, std::string_view json) { lines.write(json); });
        hub.on_event([&lines](const Event&, std::string_view json) { lines.write(json); });
    }
    if (std::any_of(llrp_at.begin(), llrp_at.end(), [](int p) { return p != 0; })) {
        outputs.llrp = std::make_unique<LlrpServer>(sup);
        std::vector<int> antennas;
        for (const ReaderConfig& r : c.readers) antennas.push_back(r.llrp_antennas);
        if (!outputs.llrp->start(c.llrp.bind, llrp_at, names, antennas, err)) {
            std::fprintf(stderr, "uhfd: %s\n", err.c_str());
            return 2;
        }
        hub.on_binary_read([llrp = outputs.llrp.get()](const Read& r) { llrp->read(r); });
        for (size_t i = 0; i < llrp_at.size(); i++)
            if (llrp_at[i])
                oplog(Level::Info, names[i], "llrp", {{"address", c.llrp.bind + ":" + std::to_string(llrp_at[i])}});
    }
    sup.on_state = [&](const std::string& reader, LinkState s, const std::string& why) {
        if (outputs.llrp) outputs.llrp->state(reader, s, why);
        const bool trouble = s == LinkState::Reconnecting;
        if (trouble && !why.empty())
            oplog(Level::Warn, reader, "state", {{"state", state_name(s)}, {"reason", why}});
        else
            oplog(trouble ? Level::Warn : Level::Info, reader, "state", {{"state", state_name(s)}});
        if (outputs.mqtt) outputs.mqtt->status(reader, state_name(s));
    };
    sup.on_removed = [&outputs](const std::string& reader) {
        if (outputs.mqtt) outputs.mqtt->remove(reader);  // "offline" on its status topic
    };
    HttpApi api(c, sup, hub, presence, outputs);
    if (c.http_port != 0) {
        if (!api.start(err)) {
            std::fprintf(stderr, "uhfd: %s\n", err.c_str());
            return 2;
        }
        oplog(Level::Info, "", "http", {{"url", "http://" + c.http_bind + ":" + std::to_string(c.http_port) + "/"}});
    }
    sup.start();

    oplog(Level::Info, "", "started", {{"readers", std::to_string(c.readers.size())}});
    Watchdog dog(sup);
    dog.ready();
    for (;;) {
        const int sig = dog.wait(stop_signals);
        if (sig == SIGHUP) {
            if (!lines.reopen(err)) oplog(Level::Error, "", "jsonl", {{"error", err}});
            reload(config_file, sim, sup, hub, outputs);
            continue;
        }
        if (sig == SIGINT || sig == SIGTERM) break;
    }
    dog.stopping();
    oplog(Level::Info, "", "stopping");
    if (outputs.llrp) outputs.llrp->stop();            // every LLRP client closed
    sup.stop();                                        // every inventory stopped, every link closed
    if (outputs.outbox) outputs.outbox->commit(true);  // the last batch kept for the next start
    if (outputs.mqtt) outputs.mqtt->stop();            // "offline" on every status topic
    if (outputs.webhook) outputs.webhook->stop();
    api.stop();
    return 0;
}
