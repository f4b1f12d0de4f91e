#include "events.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <random>

#include "tag_json.h"

namespace uhfd {

using uhftools::append_json_number;
using uhftools::append_json_string;

namespace {

void append_uint(uint64_t v, std::string& out) {
    char b[24];
    out.append(b, std::to_chars(b, b + sizeof b, v).ptr);
}

// The worker is another process: a length past the array is clamped, not trusted.
size_t used(uint8_t len, size_t capacity) { return std::min<size_t>(len, capacity); }

void append_hex_field(const char* key, const uint8_t* p, size_t n, std::string& out) {
    out.append(key);
    out += '"';
    append_hex(p, n, out);
    out += '"';
}

// Times travel as Unix milliseconds and print as seconds with their milliseconds.
void append_time(int64_t time_ms, std::string& out) { append_json_number(static_cast<double>(time_ms) / 1000.0, out); }

// An index the configuration does not know gets no name rather than a read past the end.
std::string_view name_of(const std::deque<std::string>& names, uint16_t reader) {
    return reader < names.size() ? std::string_view(names[reader]) : std::string_view();
}

// Every object ends with the gateway's own fields.
void append_seq_boot(uint64_t seq, std::string_view boot, std::string& out) {
    out.append(",\"seq\":");
    append_uint(seq, out);
    out.append(",\"boot\":\"");
    out.append(boot);
    out.append("\"}");
}

}  // namespace

void append_hex(const uint8_t* p, size_t n, std::string& out) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    size_t at = out.size();
    out.resize(at + 2 * n);
    for (size_t i = 0; i < n; i++) {
        out[at++] = kDigits[p[i] >> 4];
        out[at++] = kDigits[p[i] & 0xF];
    }
}

void append_read_json(const Read& r, std::string_view reader, std::string_view boot, std::string& out) {
    const uint8_t pc[2] = {static_cast<uint8_t>(r.pc >> 8), static_cast<uint8_t>(r.pc)};
    out.append("{\"time\":");
    append_time(r.time_ms, out);
    out.append(",\"reader\":");
    append_json_string(reader, out);
    append_hex_field(",\"epc\":", r.epc.data(), used(r.epc_len, r.epc.size()), out);
    append_hex_field(",\"pc\":", pc, sizeof pc, out);
    if (r.data_len) append_hex_field(",\"data\":", r.data.data(), used(r.data_len, r.data.size()), out);
    out.append(",\"rssi\":");
    append_json_number(r.rssi / 10.0, out);
    out.append(",\"antenna\":");
    append_uint(r.antenna, out);
    append_seq_boot(r.seq, boot, out);
}

void append_event_json(const Event& e, std::string_view reader, std::string_view boot, std::string& out) {
    out.append(e.kind == Event::Arrive ? "{\"event\":\"arrive\",\"time\":" : "{\"event\":\"depart\",\"time\":");
    append_time(e.time_ms, out);
    out.append(",\"reader\":");
    append_json_string(reader, out);
    append_hex_field(",\"epc\":", e.epc.data(), used(e.epc_len, e.epc.size()), out);
    out.append(",\"antenna\":");
    append_uint(e.antenna, out);
    out.append(",\"reads\":");
    append_uint(e.reads, out);
    out.append(",\"rssi_peak\":");
    append_json_number(e.rssi_peak / 10.0, out);
    out.append(",\"rssi_mean\":");
    append_json_number(std::round(e.rssi_mean * 10) / 10, out);
    append_seq_boot(e.seq, boot, out);
}

std::string make_boot_id() {
    std::random_device entropy;
    const uint64_t id = (static_cast<uint64_t>(entropy()) << 32) | entropy();
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(id));
    return text;
}

Hub::Hub(std::vector<std::string> reader_names, std::string boot)
    : names_(reader_names.begin(), reader_names.end()), boot_(std::move(boot)), last_seq_(names_.size(), 0) {}

std::string Hub::name(uint16_t reader) const {
    std::lock_guard<std::mutex> lock(names_mu_);
    return reader < names_.size() ? names_[reader] : std::string();
}

size_t Hub::readers() const {
    std::lock_guard<std::mutex> lock(names_mu_);
    return names_.size();
}

void Hub::add_reader(const std::string& name, uint64_t last_seq) {
    std::lock_guard<std::mutex> lock(names_mu_);
    names_.push_back(name);
    last_seq_.push_back(last_seq);
}

void Hub::continue_seq(uint16_t reader, uint64_t last) {
    if (reader < last_seq_.size()) last_seq_[reader] = last;
}

// A reader the configuration does not know has no counter: its seq stays 0.
uint64_t Hub::next_seq(uint16_t reader) { return reader < last_seq_.size() ? ++last_seq_[reader] : 0; }

void Hub::publish(Read& r) {
    r.seq = next_seq(r.reader);
    for (auto& sink : binary_sinks_) sink(r);
    if (read_sinks_.empty()) return;
    buf_.clear();
    append_read_json(r, name_of(names_, r.reader), boot_, buf_);
    for (auto& sink : read_sinks_) sink(r, buf_);
}

void Hub::publish(Event& e) {
    e.seq = next_seq(e.reader);
    if (event_sinks_.empty()) return;
    buf_.clear();
    append_event_json(e, name_of(names_, e.reader), boot_, buf_);
    for (auto& sink : event_sinks_) sink(e, buf_);
}

bool Hub::end_batch() {
    bool again = false;
    for (auto& sink : batch_end_sinks_) again = sink() || again;
    return again;
}

}  // namespace uhfd
