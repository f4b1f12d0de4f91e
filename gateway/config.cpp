#include "config.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "config_check.h"
#include "reader_link.h"
#include "settings_table.h"

namespace uhfd {

using nlohmann::json;

namespace {

// The settings uhfd applies; names, meanings and ranges are the shared table's.
const std::vector<std::string_view> kSettingKeys = {"power", "antennas", "region", "session", "target", "q", "mode"};

void number_setting(const Fields& f, const char* name, std::optional<int>& out) {
    const uhftools::SettingRow& row = uhftools::setting_row(name);
    f.get(name, out, row.min, row.max, row.unit);
}

// Kept as written (a word, or its code as a string): the worker maps it.
void word_setting(const Fields& f, const char* name, std::optional<std::string>& out) {
    if (!f.has(name)) return;
    const uhftools::SettingRow& row = uhftools::setting_row(name);
    std::string word = text(f[name], f.path(name));
    int code = 0;
    if (!uhftools::choice_code(row, word, code)) fault(f.path(name), "must be one of " + uhftools::range_text(row));
    out = word;
}

std::vector<int> antennas_from(const json& v, const std::string& path) {
    const uhftools::SettingRow& row = uhftools::setting_row("antennas");
    const json& items = array(v, path);
    if (items.empty()) fault(path, "give at least one");
    std::vector<int> out;
    for (size_t i = 0; i < items.size(); i++)
        out.push_back(static_cast<int>(whole_number(items[i], item_path(path, i), row.min, row.max, row.unit)));
    return out;
}

ReaderSettings settings_from(const json& j, const std::string& path) {
    Fields f(j, path, kSettingKeys);
    ReaderSettings s;
    number_setting(f, "power", s.power);
    if (f.has("antennas")) s.antennas = antennas_from(f["antennas"], f.path("antennas"));
    word_setting(f, "region", s.region);
    number_setting(f, "session", s.session);
    number_setting(f, "target", s.target);
    number_setting(f, "q", s.q);
    word_setting(f, "mode", s.mode);
    return s;
}

// Visible characters only: a name is a topic level and a URL path segment.
void check_reader_name(const std::string& name, const std::string& path) {
    const bool visible = std::all_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) > ' ' && c != '\x7f' && !std::strchr("/+#\"", c);
    });
    if (name.empty() || !visible) fault(path, "give a name without spaces, quotes, '/', '+' or '#'");
}

void check_uri(const std::string& uri, const std::string& path) {
    const bool sim = uri == "sim" || uri.rfind("sim:", 0) == 0;
    const std::string tags = sim && uri.size() > 4 ? uri.substr(4) : "30";
    if (sim && (tags.empty() || tags.size() > 4 || tags.find_first_not_of("0123456789") != std::string::npos ||
                std::stoi(tags) < 1))
        fault(path, "sim[:TAGS] takes 1..9999 tags");
    uhftools::Target target;
    std::string err;
    if (!sim && !uhftools::parse_target(uri, target, err)) fault(path, err);
}

ReaderConfig reader_from(const json& j, const std::string& path) {
    Fields f(j, path, {"name", "uri", "settings", "llrp"});
    ReaderConfig r;
    r.name = text(f["name"], f.path("name"));
    check_reader_name(r.name, f.path("name"));
    r.uri = text(f["uri"], f.path("uri"));
    check_uri(r.uri, f.path("uri"));
    if (f.has("settings")) r.settings = settings_from(f["settings"], f.path("settings"));
    if (f.has("llrp")) {
        Fields l(f["llrp"], f.path("llrp"), {"port", "antennas"});
        l.get("port", r.llrp_port, 1, 65535);
        l.get("antennas", r.llrp_antennas, 1, 16);
    }
    return r;
}

// --sim's reader comes after the file's, under a name they must leave free.
std::vector<ReaderConfig> readers_from(const Fields& top, bool with_sim) {
    std::vector<ReaderConfig> readers;
    std::set<std::string> names;
    const json& list = top.has("readers") ? array(top["readers"], "readers") : json::array();
    for (size_t i = 0; i < list.size(); i++) {
        const std::string path = item_path("readers", i);
        readers.push_back(reader_from(list[i], path));
        const std::string& name = readers.back().name;
        if (!names.insert(name).second) fault(path + ".name", name + " is used twice");
        if (with_sim && name == "sim") fault(path + ".name", "sim is the name of --sim's reader");
    }
    if (with_sim) readers.push_back({"sim", "sim", {}});
    if (readers.empty()) fault("readers", "give at least one reader");
    if (readers.size() > kMaxReaders) fault("readers", "at most " + std::to_string(kMaxReaders) + " readers");
    return readers;
}

MqttConfig mqtt_from(const json& j) {
    Fields f(j, "mqtt", {"host", "port", "prefix", "qos", "user", "password", "cafile", "batch_size", "batch_ms"});
    MqttConfig m;
    f.get("host", m.host);
    f.get("port", m.port, 1, 65535);
    f.get("prefix", m.prefix);
    if (std::string err; !check_topic_prefix(m.prefix, err)) fault(f.path("prefix"), err);
    f.get("qos", m.qos, 0, 1);
    f.get("user", m.user);
    f.get("password", m.password);
    f.get("cafile", m.cafile);
    f.get("batch_size", m.batch_size, 1, 10000);
    f.get("batch_ms", m.batch_ms, 0, 60000, "ms");
    return m;
}

bool visible_ascii(const std::string& s) {
    return std::all_of(s.begin(), s.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

// Names as a browser sends them in Host: letters, digits, dots and dashes.
void check_host_name(const std::string& name, const std::string& path) {
    if (name.empty() || name.size() > 253 ||
        name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-") != std::string::npos)
        fault(path, "\"" + name + "\" is not a host name (letters, digits, '.' and '-')");
}

void http_from(const json& j, Config& c) {
    Fields f(j, "http", {"bind", "port", "token", "names"});
    f.get("bind", c.http_bind);
    // An empty bind would mean every address, which deserves to be said.
    if (c.http_bind.empty() || !visible_ascii(c.http_bind))
        fault(f.path("bind"), "give an address without spaces (0.0.0.0 or :: for every one)");
    f.get("port", c.http_port, 0, 65535);
    f.get("token", c.token);
    // It has to fit in an Authorization header as a bearer token; empty: none.
    if (!visible_ascii(c.token)) fault(f.path("token"), "use visible ASCII characters, no spaces");
    f.get("names", c.http_names);
    for (size_t i = 0; i < c.http_names.size(); i++) check_host_name(c.http_names[i], item_path(f.path("names"), i));
}

PresenceConfig presence_from(const json& j) {
    Fields f(j, "presence", {"depart_after", "rssi_floor", "epc_prefix", "max_tags"});
    PresenceConfig p;
    // Presence counts whole milliseconds: below one, every tag would depart at once.
    f.get("depart_after", p.depart_after, 0.001, 86400, "s");
    f.get("rssi_floor", p.rssi_floor, -120, 0, "dBm");
    f.get("epc_prefix", p.epc_prefix);
    if (!std::all_of(p.epc_prefix.begin(), p.epc_prefix.end(), [](unsigned char ch) { return std::isxdigit(ch); }))
        fault(f.path("epc_prefix"), "must be hex digits");
    f.get("max_tags", p.max_tags, 1, 10000000);
    return p;
}

// The webhook that delivers from the outbox.
WebhookConfig webhook_from(const json& j) {
    Fields f(j, "webhook", {"url", "secret", "batch_size", "batch_ms", "timeout_ms"});
    WebhookConfig w;
    f.get("url", w.url);
    if (w.url.rfind("http://", 0) != 0 && w.url.rfind("https://", 0) != 0)
        fault(f.path("url"), "give an http:// or https:// URL");
    f.get("secret", w.secret);
    f.get("batch_size", w.batch_size, 1, 100000);
    f.get("batch_ms", w.batch_ms, 0, 60000, "ms");
    f.get("timeout_ms", w.timeout_ms, 1, 600000, "ms");
    return w;
}

Config config_from(const json& j, bool with_sim) {
    std::string err_of_ports;
    Fields f(j, "",
             {"readers", "mqtt", "http", "presence", "jsonl", "state_dir", "outbox_max_mb", "webhook", "llrp"});
    Config c;
    c.readers = readers_from(f, with_sim);
    if (f.has("mqtt")) c.mqtt = mqtt_from(f["mqtt"]);
    if (f.has("http")) http_from(f["http"], c);
    if (f.has("presence")) c.presence = presence_from(f["presence"]);
    f.get("jsonl", c.jsonl);
    f.get("state_dir", c.state_dir);
    if (c.state_dir.empty()) fault(f.path("state_dir"), "give a directory");
    // The outbox MQTT and the webhook deliver from; what it holds past this goes, oldest reads first.
    f.get("outbox_max_mb", c.outbox_max_mb, 0.001, 100000, "MB");
    if (f.has("webhook")) c.webhook = webhook_from(f["webhook"]);
    if (f.has("llrp")) {
        Fields l(f["llrp"], "llrp", {"bind", "port"});
        l.get("bind", c.llrp.bind);
        if (c.llrp.bind.empty() || !visible_ascii(c.llrp.bind))
            fault(l.path("bind"), "give an address without spaces (0.0.0.0 or :: for every one)");
        l.get("port", c.llrp.port, 1, 65535);
    }
    if (std::vector<int> ports; !llrp_ports(c, ports, err_of_ports)) fault("llrp", err_of_ports);
    return c;
}

}  // namespace

bool llrp_ports(const Config& c, std::vector<int>& ports, std::string& err) {
    ports.assign(c.readers.size(), 0);
    std::map<int, std::string> taken;
    for (size_t i = 0; i < c.readers.size(); i++) {
        const int port = c.readers[i].llrp_port ? c.readers[i].llrp_port
                         : c.llrp.port        ? c.llrp.port + static_cast<int>(i)
                                              : 0;
        if (port == 0) continue;
        if (port > 65535) return (err = c.readers[i].name + "'s LLRP port would be " + std::to_string(port), false);
        if (auto [it, fresh] = taken.emplace(port, c.readers[i].name); !fresh)
            return (err = "port " + std::to_string(port) + " is both " + it->second + "'s and " + c.readers[i].name +
                          "'s LLRP port",
                    false);
        ports[i] = port;
    }
    return true;
}

bool check_topic_prefix(const std::string& prefix, std::string& err) {
    if (prefix.size() > 256) return (err = "at most 256 bytes", false);
    if (prefix.find_first_of("+#") != std::string::npos) return (err = "no '+' or '#' (MQTT wildcards)", false);
    if (prefix.find('\0') != std::string::npos) return (err = "no NUL characters", false);
    if (prefix.empty() || prefix.front() == '/' || prefix.back() == '/' || prefix.find("//") != std::string::npos)
        return (err = "no empty levels (give \"a/b\", not \"\", \"a//b\" or a leading or trailing '/')", false);
    return true;
}

std::string settings_help() {
    std::string s = "Reader settings (a reader's \"settings\" in the file, the body of PUT .../settings):\n";
    for (std::string_view k : kSettingKeys) {
        const uhftools::SettingRow& row = uhftools::setting_row(std::string(k));
        s += "  " + std::string(k) + std::string(10 - k.size(), ' ') + row.meaning + " (" + uhftools::range_text(row) +
             ")\n";
    }
    return s + "The same names, meanings and ranges as uhfctl's: uhfctl settings lists them all.";
}

bool parse_settings(const std::string& text, ReaderSettings& out, std::string& err) {
    try {
        out = settings_from(parse_strict(text), "");
        return true;
    } catch (const json::parse_error& e) {
        err = "the body is not JSON: " + parse_error_text(text, e);
    } catch (const json::out_of_range& e) {
        err = "the body is not JSON: " + overflow_text(text, e);
    } catch (const ConfigFault& e) {
        err = e.what();
    }
    return false;
}

std::string settings_to_json(const ReaderSettings& s) {
    json j = json::object();
    auto put = [&](const char* key, const auto& v) {
        if (v) j[key] = *v;
    };
    put("power", s.power);
    put("antennas", s.antennas);
    put("region", s.region);
    put("session", s.session);
    put("target", s.target);
    put("q", s.q);
    put("mode", s.mode);
    return j.dump();
}

bool parse_config(const std::string& text, Config& out, std::string& err, bool with_sim) {
    try {
        out = config_from(parse_strict(text), with_sim);
        return true;
    } catch (const json::parse_error& e) {
        err = parse_error_text(text, e);
    } catch (const json::out_of_range& e) {
        err = overflow_text(text, e);
    } catch (const ConfigFault& e) {
        err = e.what();
    }
    return false;
}

bool load_config(const std::string& path, Config& out, std::string& err, bool with_sim) {
    std::ifstream in(path);
    if (!in) {
        err = path + ": cannot read it";
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    if (!parse_config(text.str(), out, err, with_sim)) {
        err = path + ": " + err;
        return false;
    }
    return true;
}

bool read_token_file(const std::string& path, std::string& token, std::string& err) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) return (err = path + ": cannot read a token from it", false);
    const char* space = " \t\r\n";
    size_t first = line.find_first_not_of(space);
    if (first == std::string::npos) return (err = path + ": the first line holds no token", false);
    token = line.substr(first, line.find_last_not_of(space) - first + 1);
    return true;
}

}  // namespace uhfd
