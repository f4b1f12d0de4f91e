#include "config_check.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <set>

namespace uhfd {

using nlohmann::json;

namespace {

// What was given instead, as the user wrote it: "true", "20.5", "an array".
std::string given(const json& v) {
    if (v.is_object()) return "an object";
    if (v.is_array()) return "an array";
    std::string s = v.dump(-1, ' ', true);  // ASCII: safe to cut short
    return s.size() > 40 ? s.substr(0, 37) + "..." : s;
}

std::string number_text(double d) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", d);
    return buf;
}

std::string range(const std::string& min, const std::string& max, std::string_view unit) {
    return "must be " + min + ".." + max + (unit.empty() ? "" : " ") + std::string(unit);
}

// Compared in the type nlohmann holds, so a huge number is out of range
// instead of wrapped into it.
bool within(const json& v, long long min, long long max) {
    if (v.is_number_unsigned()) {
        const uint64_t n = v.get<uint64_t>();
        return max >= 0 && n <= static_cast<uint64_t>(max) && (min <= 0 || n >= static_cast<uint64_t>(min));
    }
    if (v.is_number_integer()) return v.get<int64_t>() >= min && v.get<int64_t>() <= max;
    const double d = v.get<double>();
    return d >= static_cast<double>(min) && d <= static_cast<double>(max);
}

// "line L, column C" of the byte at; columns count characters, not UTF-8 bytes.
std::string line_column(const std::string& text, size_t at) {
    const std::string_view before = std::string_view(text).substr(0, at);
    const size_t newline = before.rfind('\n');
    const std::string_view line = newline == std::string_view::npos ? before : before.substr(newline + 1);
    const auto starts_char = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    return "line " + std::to_string(1 + std::count(before.begin(), before.end(), '\n')) + ", column " +
           std::to_string(1 + std::count_if(line.begin(), line.end(), starts_char));
}

// nlohmann's own words without its lead: "[json.exception.parse_error.101]
// parse error at line 1, column 2: WHY" or "[json.exception.out_of_range.406] WHY".
std::string reason(const json::exception& e) {
    std::string what = e.what();
    if (what.starts_with("[json.exception.")) what = what.substr(what.find("] ") + 2);
    if (what.starts_with("parse error")) what = what.substr(what.find(": ") + 2);
    return what;
}

}  // namespace

void fault(const std::string& path, const std::string& what) {
    throw ConfigFault(path.empty() ? what : path + ": " + what);
}

std::string item_path(const std::string& path, size_t i) { return path + "[" + std::to_string(i) + "]"; }

json parse_strict(const std::string& text) {
    // Where the parser is: per open object or array, its path, and the keys
    // seen (object) or the index of the next item (array).
    struct Level {
        std::string path;
        bool array = false;
        size_t index = 0;
        std::set<std::string> keys;
        std::string key;
    };
    std::vector<Level> at;
    auto child_path = [&]() -> std::string {
        if (at.empty()) return "";
        const Level& l = at.back();
        return l.array ? item_path(l.path, l.index) : l.path.empty() ? l.key : l.path + "." + l.key;
    };
    auto item_done = [&] {
        if (!at.empty() && at.back().array) at.back().index++;
    };
    json::parser_callback_t check = [&](int, json::parse_event_t event, json& value) {
        switch (event) {
            case json::parse_event_t::object_start:
            case json::parse_event_t::array_start:
                at.push_back({child_path(), event == json::parse_event_t::array_start, 0, {}, ""});
                break;
            case json::parse_event_t::key:
                if (!at.back().keys.insert(value.get<std::string>()).second) {
                    at.back().key = value.get<std::string>();
                    fault(child_path(), "given twice");
                }
                at.back().key = value.get<std::string>();
                break;
            case json::parse_event_t::object_end:
            case json::parse_event_t::array_end:
                at.pop_back();
                item_done();
                break;
            case json::parse_event_t::value: item_done(); break;
        }
        return true;
    };
    return json::parse(text, check, true, true);
}

std::string parse_error_text(const std::string& text, const json::parse_error& e) {
    // e.byte counts from 1 and is one past the end when the input ran out.
    return line_column(text, std::min<size_t>(e.byte > 0 ? e.byte - 1 : 0, text.size())) + ": " + reason(e);
}

std::string overflow_text(const std::string& text, const json::out_of_range& e) {
    // nlohmann quotes the literal but not where it is: its first appearance.
    const std::string why = reason(e);
    const size_t quote = why.find('\'');
    const size_t at = quote == std::string::npos ? quote : text.find(why.substr(quote + 1, why.size() - quote - 2));
    return (at == std::string::npos ? "" : line_column(text, at) + ": ") + why;
}

long long whole_number(const json& v, const std::string& path, long long min, long long max, std::string_view unit) {
    if (!v.is_number()) fault(path, "must be a whole number, not " + given(v));
    if (!within(v, min, max)) fault(path, range(std::to_string(min), std::to_string(max), unit));
    if (v.is_number_float()) fault(path, "must be a whole number, not " + given(v));
    return v.is_number_unsigned() ? static_cast<long long>(v.get<uint64_t>()) : v.get<int64_t>();
}

double real_number(const json& v, const std::string& path, double min, double max, std::string_view unit) {
    if (!v.is_number()) fault(path, "must be a number, not " + given(v));
    const double d = v.get<double>();
    if (d < min || d > max) fault(path, range(number_text(min), number_text(max), unit));
    return d;
}

std::string text(const json& v, const std::string& path) {
    if (!v.is_string()) fault(path, "must be a string, not " + given(v));
    return v.get<std::string>();
}

const json& array(const json& v, const std::string& path) {
    if (!v.is_array()) fault(path, "must be an array, not " + given(v));
    return v;
}

Fields::Fields(const json& j, std::string path, const std::vector<std::string_view>& known)
    : j_(j), path_(std::move(path)) {
    if (!j.is_object()) fault(path_, "must be a JSON object, not " + given(j));
    for (const auto& [key, value] : j.items()) {
        if (std::find(known.begin(), known.end(), key) != known.end()) continue;
        std::string names;
        for (std::string_view k : known) names += (names.empty() ? "" : ", ") + std::string(k);
        fault(this->path(key), "unknown key (known: " + names + ")");
    }
}

const json& Fields::operator[](std::string_view key) const {
    if (!has(key)) fault(path(key), "missing");
    return j_.find(key).value();
}

std::string Fields::path(std::string_view key) const {
    return path_.empty() ? std::string(key) : path_ + "." + std::string(key);
}

void Fields::get(std::string_view key, std::string& out) const {
    if (has(key)) out = text((*this)[key], path(key));
}

void Fields::get(std::string_view key, std::vector<std::string>& out) const {
    if (!has(key)) return;
    const json& items = array((*this)[key], path(key));
    out.clear();
    for (size_t i = 0; i < items.size(); i++) out.push_back(text(items[i], item_path(path(key), i)));
}

void Fields::get(std::string_view key, double& out, double min, double max, std::string_view unit) const {
    if (has(key)) out = real_number((*this)[key], path(key), min, max, unit);
}

void Fields::get(std::string_view key, std::optional<double>& out, double min, double max,
                 std::string_view unit) const {
    if (has(key)) out = real_number((*this)[key], path(key), min, max, unit);
}

}  // namespace uhfd
