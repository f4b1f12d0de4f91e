#include "config.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "reader_link.h"
#include "settings_table.h"

namespace uhfd {

using nlohmann::json;

namespace {

// The settings uhfd applies; names, meanings and ranges are the shared table's.
const char* const kSettingKeys[] = {"power", "antennas", "region", "session", "target", "q", "mode"};

// Reads j[key] into out when present; false with err when it has the wrong type.
template <typename T>
bool field(const json& j, const char* key, T& out, std::string& err, const std::string& where) {
    if (!j.contains(key)) return true;
    try {
        out = j.at(key).get<T>();
        return true;
    } catch (const json::exception&) {
        err = where + key + ": wrong type";
        return false;
    }
}

template <typename T>
bool optional_field(const json& j, const char* key, std::optional<T>& out, std::string& err, const std::string& where) {
    if (!j.contains(key)) return true;
    T v{};
    if (!field(j, key, v, err, where)) return false;
    out = v;
    return true;
}

bool settings_from(const json& j, ReaderSettings& s, std::string& err, const std::string& where) {
    if (!j.is_object()) {
        err = where + "settings must be an object";
        return false;
    }
    for (auto& [k, v] : j.items())
        if (std::find(std::begin(kSettingKeys), std::end(kSettingKeys), k) == std::end(kSettingKeys)) {
            std::string keys;
            for (const char* n : kSettingKeys) keys += (keys.empty() ? "" : ", ") + std::string(n);
            err = where + k + ": unknown setting (known: " + keys + ")";
            return false;
        }
    return optional_field(j, "power", s.power, err, where) && optional_field(j, "antennas", s.antennas, err, where) &&
           optional_field(j, "region", s.region, err, where) && optional_field(j, "session", s.session, err, where) &&
           optional_field(j, "target", s.target, err, where) && optional_field(j, "q", s.q, err, where) &&
           optional_field(j, "mode", s.mode, err, where) && (check_settings(s, err) || (err = where + err, false));
}

// Names as a browser sends them in Host: letters, digits, dots and dashes.
bool host_names_ok(const std::vector<std::string>& names, std::string& err) {
    for (const std::string& n : names)
        if (n.empty() || n.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-") !=
                             std::string::npos)
            return (err = "http.names: \"" + n + "\" is not a host name", false);
    return true;
}

// The outbox and the webhook that delivers from it: state_dir, outbox_max_mb
// and webhook.{url, secret, batch_size, batch_ms, timeout_ms}.
bool outbox_keys(const json& j, Config& c, std::string& err) {
    if (!field(j, "state_dir", c.state_dir, err, "") || !field(j, "outbox_max_mb", c.outbox_max_mb, err, ""))
        return false;
    if (c.state_dir.empty()) return (err = "state_dir: give a directory", false);
    if (!(c.outbox_max_mb > 0)) return (err = "outbox_max_mb must be above 0", false);
    if (!j.contains("webhook")) return true;
    const json& h = j["webhook"];
    WebhookConfig& w = c.webhook;
    int batch_size = 500;
    if (!h.is_object()) return (err = "webhook must be an object", false);
    if (!field(h, "url", w.url, err, "webhook.") || !field(h, "secret", w.secret, err, "webhook.") ||
        !field(h, "batch_size", batch_size, err, "webhook.") || !field(h, "batch_ms", w.batch_ms, err, "webhook.") ||
        !field(h, "timeout_ms", w.timeout_ms, err, "webhook."))
        return false;
    if (w.url.rfind("http://", 0) != 0 && w.url.rfind("https://", 0) != 0)
        return (err = "webhook.url: give an http:// or https:// URL", false);
    if (batch_size < 1 || w.batch_ms < 0 || w.timeout_ms < 1)
        return (err = "webhook.batch_size and webhook.timeout_ms must be above 0, webhook.batch_ms not negative", false);
    w.batch_size = static_cast<size_t>(batch_size);
    return true;
}

}  // namespace

bool check_settings(const ReaderSettings& s, std::string& err) {
    using uhftools::setting_row;
    auto bad = [&](const char* name) {
        err = uhftools::range_error(setting_row(name));
        return false;
    };
    auto number_ok = [](const char* name, const std::optional<int>& v) {
        return !v || uhftools::in_range(setting_row(name), *v);
    };
    auto word_ok = [](const char* name, const std::optional<std::string>& v) {
        int code = 0;
        return !v || uhftools::choice_code(setting_row(name), *v, code);
    };
    if (s.antennas) {
        if (s.antennas->empty()) return (err = "antennas: give at least one", false);
        for (int a : *s.antennas)
            if (!uhftools::in_range(setting_row("antennas"), a)) return bad("antennas");
    }
    for (auto [name, v] : {std::pair{"power", &s.power}, {"session", &s.session}, {"target", &s.target}, {"q", &s.q}})
        if (!number_ok(name, *v)) return bad(name);
    for (auto [name, v] : {std::pair{"region", &s.region}, {"mode", &s.mode}})
        if (!word_ok(name, *v)) return bad(name);
    return true;
}

std::string settings_help() {
    std::string s = "Reader settings (a reader's \"settings\" in the file, the body of PUT .../settings):\n";
    for (const char* k : kSettingKeys) {
        const uhftools::SettingRow& row = uhftools::setting_row(k);
        s += "  " + std::string(k) + std::string(10 - std::strlen(k), ' ') + row.meaning + " (" +
             uhftools::range_text(row) + ")\n";
    }
    return s + "The same names, meanings and ranges as uhfctl's: uhfctl settings lists them all.";
}

bool parse_settings(const std::string& text, ReaderSettings& out, std::string& err) {
    json j = json::parse(text, nullptr, false);
    if (j.is_discarded()) {
        err = "the body is not JSON";
        return false;
    }
    ReaderSettings s;
    if (!settings_from(j, s, err, "")) return false;
    out = s;
    return true;
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

bool parse_config(const std::string& text, Config& out, std::string& err) {
    json j = json::parse(text, nullptr, false, true);
    if (j.is_discarded() || !j.is_object()) {
        err = "not a JSON object";
        return false;
    }
    Config c;
    const json readers = j.value("readers", json::array());
    if (!readers.is_array()) {
        err = "readers must be an array";
        return false;
    }
    std::set<std::string> names;
    for (size_t i = 0; i < readers.size(); i++) {
        const json& r = readers[i];
        std::string where = "readers[" + std::to_string(i) + "].";
        ReaderConfig rc;
        if (!r.is_object() || !field(r, "name", rc.name, err, where) || !field(r, "uri", rc.uri, err, where))
            return err.empty() ? (err = where + " must be an object", false) : false;
        if (rc.name.empty() || rc.name.find_first_of("/+#\" ") != std::string::npos) {
            err = where + "name: give a name without spaces, quotes, '/', '+' or '#'";
            return false;
        }
        if (!names.insert(rc.name).second) {
            err = where + "name: " + rc.name + " is used twice";
            return false;
        }
        uhftools::Target t;
        std::string uri_err;
        const bool sim = rc.uri == "sim" || rc.uri.rfind("sim:", 0) == 0;
        const std::string tags = sim && rc.uri.size() > 4 ? rc.uri.substr(4) : "30";
        if (sim && (tags.empty() || tags.size() > 4 || tags.find_first_not_of("0123456789") != std::string::npos ||
                    std::stoi(tags) < 1)) {
            err = where + "uri: sim[:TAGS] takes 1..9999 tags";
            return false;
        }
        if (!sim && !uhftools::parse_target(rc.uri, t, uri_err)) {
            err = where + "uri: " + uri_err;
            return false;
        }
        if (r.contains("settings") && !settings_from(r["settings"], rc.settings, err, where + "settings."))
            return false;
        c.readers.push_back(rc);
    }
    if (j.contains("mqtt")) {
        const json& m = j["mqtt"];
        const std::string w = "mqtt.";
        int batch_size = 50;
        if (!field(m, "host", c.mqtt.host, err, w) || !field(m, "port", c.mqtt.port, err, w) ||
            !field(m, "prefix", c.mqtt.prefix, err, w) || !field(m, "qos", c.mqtt.qos, err, w) ||
            !field(m, "user", c.mqtt.user, err, w) || !field(m, "password", c.mqtt.password, err, w) ||
            !field(m, "cafile", c.mqtt.cafile, err, w) || !field(m, "batch_size", batch_size, err, w) ||
            !field(m, "batch_ms", c.mqtt.batch_ms, err, w))
            return false;
        if (c.mqtt.qos < 0 || c.mqtt.qos > 1) return (err = "mqtt.qos must be 0 or 1", false);
        if (batch_size < 1 || c.mqtt.batch_ms < 0)
            return (err = "mqtt.batch_size must be above 0, mqtt.batch_ms not negative", false);
        c.mqtt.batch_size = static_cast<size_t>(batch_size);
    }
    if (j.contains("http")) {
        const json& h = j["http"];
        if (!field(h, "bind", c.http_bind, err, "http.") || !field(h, "port", c.http_port, err, "http.") ||
            !field(h, "token", c.token, err, "http.") || !field(h, "names", c.http_names, err, "http.") ||
            !host_names_ok(c.http_names, err))
            return false;
    }
    if (!field(j, "jsonl", c.jsonl, err, "")) return false;
    if (j.contains("presence")) {
        const json& p = j["presence"];
        int max_tags = 10000;
        if (!field(p, "depart_after", c.presence.depart_after, err, "presence.") ||
            !optional_field(p, "rssi_floor", c.presence.rssi_floor, err, "presence.") ||
            !field(p, "epc_prefix", c.presence.epc_prefix, err, "presence.") ||
            !field(p, "max_tags", max_tags, err, "presence."))
            return false;
        if (c.presence.depart_after <= 0 || max_tags < 1)
            return (err = "presence.depart_after and presence.max_tags must be above 0", false);
        if (!std::all_of(c.presence.epc_prefix.begin(), c.presence.epc_prefix.end(),
                         [](unsigned char ch) { return std::isxdigit(ch); }))
            return (err = "presence.epc_prefix must be hex digits", false);
        c.presence.max_tags = static_cast<size_t>(max_tags);
    }
    if (!outbox_keys(j, c, err)) return false;
    if (c.http_port < 0 || c.http_port > 65535 || c.mqtt.port < 1 || c.mqtt.port > 65535)
        return (err = "ports must be 1..65535 (http.port 0: no HTTP)", false);
    out = c;
    return true;
}

bool load_config(const std::string& path, Config& out, std::string& err) {
    std::ifstream in(path);
    if (!in) {
        err = path + ": cannot read it";
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    if (!parse_config(text.str(), out, err)) {
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
