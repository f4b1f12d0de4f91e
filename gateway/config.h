// uhfd's configuration: one JSON file, command-line overrides on top, and a
// check that says what is wrong before anything starts.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace uhfd {

// Applied at every connect; unset fields keep what the reader holds. The
// names, meanings and ranges are the shared table's (settings_table.h):
// target is the Gen2 inventoried flag G, q the initial Q.
struct ReaderSettings {
    std::optional<int> power;
    std::optional<std::vector<int>> antennas;
    std::optional<std::string> region;
    std::optional<int> session, target, q;
    std::optional<std::string> mode;
};

struct ReaderConfig {
    std::string name;
    std::string uri;  // tcp:HOST[:PORT], serial:PATH[@BAUD], usb, sim[:TAGS]
    ReaderSettings settings;
    int llrp_port = 0;  // this reader's LLRP endpoint; 0: the base port's turn, if any
    // The antennas the module has, as LLRP tells clients (the library cannot ask it).
    int llrp_antennas = 4;
};

// LLRP endpoints: a reader's own port, else the base port plus the reader's
// place in the list; 0 and no own port: no endpoint.
struct LlrpConfig {
    std::string bind = "127.0.0.1";  // LLRP has no authentication: the LAN is a choice
    int port = 0;
};

struct MqttConfig {
    std::string host;  // empty: no MQTT output
    int port = 1883;
    std::string prefix = "uhfd";
    int qos = 0;
    std::string user, password;
    std::string cafile;  // TLS when set
    size_t batch_size = 50;
    int batch_ms = 100;
};

// Batches of reads and events POSTed as a JSON array, from the outbox.
struct WebhookConfig {
    std::string url;     // http:// or https://; empty: no webhook
    std::string secret;  // when set, X-Uhfd-Signature: sha256=HMAC of the body
    size_t batch_size = 500;
    int batch_ms = 1000;
    int timeout_ms = 5000;
};

struct PresenceConfig {
    double depart_after = 5.0;
    std::optional<double> rssi_floor;  // dBm
    std::string epc_prefix;
    size_t max_tags = 10000;
};

// Readers a file may list. Each is a worker process; the outbox has room for
// four times as many, for the readers that reloads add.
constexpr size_t kMaxReaders = 64;

struct Config {
    std::vector<ReaderConfig> readers;  // at most kMaxReaders
    MqttConfig mqtt;
    std::string http_bind = "127.0.0.1";
    int http_port = 8080;  // 0: no HTTP
    std::string token;     // guards every write when set
    // Host names the HTTP API answers to besides localhost, loopback
    // addresses and the bind address (what a browser puts in Host).
    std::vector<std::string> http_names;
    std::string jsonl;  // "-" for standard output, a path, or empty
    PresenceConfig presence;
    // The outbox (MQTT and the webhook deliver from it) lives in state_dir.
    std::string state_dir = "/var/lib/uhfd";
    double outbox_max_mb = 100;
    WebhookConfig webhook;
    LlrpConfig llrp;
};

// The LLRP port of each reader, by index (0: none); false with err when two
// readers would share one.
bool llrp_ports(const Config& c, std::vector<int>& ports, std::string& err);

// Parses a configuration document; false with err naming the JSON path at
// fault ("mqtt.port: must be 1..65535") or the line and column of a syntax
// error. with_sim: --sim adds its reader "sim" after the file's, so the file
// may then have none.
bool parse_config(const std::string& json_text, Config& out, std::string& err, bool with_sim = false);
// The same, err led by the path of the file: what --check-config and
// start-up both print.
bool load_config(const std::string& path, Config& out, std::string& err, bool with_sim = false);
// The first line of a file, trimmed: a token kept out of the command line.
bool read_token_file(const std::string& path, std::string& token, std::string& err);
// Settings from a JSON object, as strict as the file's (the REST API's body
// and the worker's start message use it).
bool parse_settings(const std::string& json_text, ReaderSettings& out, std::string& err);
// The JSON object of settings, as parse_settings reads it back.
std::string settings_to_json(const ReaderSettings& s);
// An MQTT topic prefix that publishes can use: no wildcards, empty levels or
// NUL, at most 256 bytes. false with err saying which.
bool check_topic_prefix(const std::string& prefix, std::string& err);
// The settings uhfd takes with their meanings and ranges, for --help.
std::string settings_help();

}  // namespace uhfd
