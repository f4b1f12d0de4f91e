#include "inventory.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>

#include "UHF.h"
#include "commands.h"
#include "format.h"
#include "reader_watch.h"
#include "tag_json.h"

namespace uhfctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kRedraw = std::chrono::milliseconds(250);
constexpr auto kIdlePoll = std::chrono::milliseconds(5);

// One report taken from the library's queue.
struct Read {
    int slot = -1;             // -1: the only reader
    std::vector<uint8_t> uii;  // PC + EPC
    std::vector<uint8_t> data;
    int rssi = 0;
    int antenna = 0;
};

// L, PC+EPC, d, data, RSSI hi, RSSI lo, antenna: the layout of
// UHF_GetReceived_EX and of the single-shot UHF_InventorySingleEPCTIDUSER.
bool parse_report(const uint8_t* out, size_t n, Read& r) {
    if (n < 6) return false;
    size_t l = out[0];
    if (l < 2 || l + 2 > n) return false;
    size_t d = out[l + 1];
    if (l + 2 + d + 3 > n) return false;
    r.uii.assign(out + 1, out + 1 + l);
    r.data.assign(out + l + 2, out + l + 2 + d);
    r.rssi = static_cast<int16_t>(out[n - 3] << 8 | out[n - 2]);
    r.antenna = out[n - 1];
    return true;
}

bool take_ex(Read& r) {
    uint8_t out[512];
    int len = 0;
    if (UHF_GetReceived_EX(&len, out) != 0 || len < 0 || len > static_cast<int>(sizeof out)) return false;
    return parse_report(out, static_cast<size_t>(len), r);
}

// One tag from one single-shot inventory of the selected reader.
bool take_single(Read& r) {
    static uint8_t out[4096];
    uint8_t len = 0;
    if (UHF_InventorySingleEPCTIDUSER(&len, out) != 0) return false;
    return parse_report(out, len, r);
}

// UHFGetTagData's item list carries the link each report came from, which
// several readers need; its data item lacks the last byte, so no TID then.
bool take_tlv(Read& r) {
    uint8_t out[512];
    int len = 0;
    if (UHFGetTagData(&len, out) != 0 || len < 2 || len > static_cast<int>(sizeof out)) return false;
    r = Read{};
    r.antenna = 1;
    for (int i = 0; i + 2 <= len;) {
        uint8_t type = out[i], n = out[i + 1];
        const uint8_t* v = out + i + 2;
        if (i + 2 + n > len) break;
        if (type == 0x01 && n == 2) r.slot = v[0] << 8 | v[1];
        if (type == 0x06) r.uii.assign(v, v + n);
        if (type == 0x04 && n == 2) r.rssi = static_cast<int16_t>(v[0] << 8 | v[1]);
        if (type == 0x05 && n == 1) r.antenna = v[0];
        i += 2 + n;
    }
    return r.uii.size() >= 2;
}

class Tally {
public:
    explicit Tally(const Session& s) : session_(s) {}

    TagSeen& add(const Read& r, double t) {
        std::string reader = label_of(r.slot);
        std::string epc = hex(r.uii.data() + 2, r.uii.size() - 2);
        auto [it, fresh] = index_.try_emplace(reader + "/" + epc, tags_.size());
        if (fresh) {
            TagSeen tag;
            tag.reader = reader;
            tag.epc = epc;
            tag.pc = hex(r.uii.data(), 2);
            tag.first = t;
            tags_.push_back(tag);
        }
        TagSeen& tag = tags_[it->second];
        if (!r.data.empty()) tag.data = hex(r.data);
        tag.reads++;
        tag.rssi_last = r.rssi;
        tag.rssi_max = std::max(tag.rssi_max, r.rssi);
        tag.rssi_sum += r.rssi;
        tag.antenna = r.antenna;
        tag.last = t;
        return tag;
    }
    std::vector<TagSeen>& tags() { return tags_; }

    std::string label_of(int slot) const {
        if (slot < 0) return session_.readers.front().label;
        for (const Reader& rd : session_.readers)
            if (rd.slot == slot) return rd.label;
        return "link " + std::to_string(slot);
    }

private:
    const Session& session_;
    std::vector<TagSeen> tags_;
    std::map<std::string, size_t> index_;
};

// Lines go out as they come, so a pipe reader sees reads live; a reader
// that went away (`| head`) ends the run like Ctrl-C.
void line_out(const std::string& line) {
    if (print("%s\n", line.c_str()) < 0 || std::fflush(out()) != 0) request_stop();
}

// `when` in Unix seconds.
void print_read(const Session& s, const Read& r, const std::string& reader, double when) {
    std::string epc = hex(r.uii.data() + 2, r.uii.size() - 2);
    std::string pc = hex(r.uii.data(), 2);
    if (s.format == Format::Json) {
        line_out(uhftools::tag_json({when, reader, epc, pc, hex(r.data), r.rssi, r.antenna}));
    } else {
        line_out(uhftools::iso8601(when) + "," + reader + "," + epc + "," + pc + "," + hex(r.data) + "," + dbm(r.rssi) +
                 "," + std::to_string(r.antenna));
    }
}

// Mean RSSI in 0.1 dBm, rounded half away from zero (RSSI is negative).
int mean_tenths(const TagSeen& t) {
    if (t.reads == 0) return 0;
    auto n = static_cast<int64_t>(t.reads);
    return static_cast<int>((t.rssi_sum - n / 2) / n);
}

std::string mean_dbm(const TagSeen& t) { return dbm(mean_tenths(t)); }

void print_unique(const Session& s, const InventoryResult& r) {
    for (const TagSeen& t : r.tags) {
        if (s.format == Format::Json) {
            Json j(cJSON_CreateObject());
            cJSON_AddStringToObject(j.get(), "reader", t.reader.c_str());
            cJSON_AddStringToObject(j.get(), "epc", t.epc.c_str());
            cJSON_AddStringToObject(j.get(), "pc", t.pc.c_str());
            if (!t.data.empty()) cJSON_AddStringToObject(j.get(), "data", t.data.c_str());
            cJSON_AddNumberToObject(j.get(), "reads", static_cast<double>(t.reads));
            cJSON_AddNumberToObject(j.get(), "rssi_last", t.rssi_last / 10.0);
            cJSON_AddNumberToObject(j.get(), "rssi_mean", mean_tenths(t) / 10.0);
            cJSON_AddNumberToObject(j.get(), "rssi_max", t.rssi_max / 10.0);
            cJSON_AddNumberToObject(j.get(), "antenna", t.antenna);
            cJSON_AddNumberToObject(j.get(), "first_seen", uhftools::to_ms(r.started + t.first));
            cJSON_AddNumberToObject(j.get(), "last_seen", uhftools::to_ms(r.started + t.last));
            print("%s\n", json_line(j.get()).c_str());
        } else {
            print("%s,%s,%s,%s,%llu,%s,%s,%s,%d,%s,%s\n", t.reader.c_str(), t.epc.c_str(), t.pc.c_str(), t.data.c_str(),
                  static_cast<unsigned long long>(t.reads), dbm(t.rssi_last).c_str(), mean_dbm(t).c_str(),
                  dbm(t.rssi_max).c_str(), t.antenna, uhftools::iso8601(r.started + t.first).c_str(),
                  uhftools::iso8601(r.started + t.last).c_str());
        }
    }
}

size_t terminal_rows() {
    winsize w{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &w) == 0 && w.ws_row > 0) return w.ws_row;
    return 24;
}

// Clear the screen and draw header and table from the top.
void redraw(const Session& s, const InventoryOptions& o, const InventoryResult& r) {
    print("\x1b[H\x1b[2J");
    print("uhfctl %s - Ctrl-C stops%s\n", o.title.c_str(),
          o.duration > 0 ? (", " + clock_text(o.duration - r.seconds) + " left").c_str() : "");
    print("%s\n\n", summary_line(r).c_str());
    size_t rows = terminal_rows();
    size_t used = 6 + r.down.size();
    print_tag_table(s, r, rows > used ? rows - used : 1);
    std::fflush(out());
}

// A gap in the run: a JSON line in JSON output, a note on stderr otherwise.
void print_event(const Session& s, const std::string& reader, const char* event, double when) {
    if (s.format == Format::Json) {
        Json j(cJSON_CreateObject());
        cJSON_AddNumberToObject(j.get(), "time", uhftools::to_ms(when));
        cJSON_AddStringToObject(j.get(), "reader", reader.c_str());
        cJSON_AddStringToObject(j.get(), "event", event);
        line_out(json_line(j.get()));
    } else {
        std::fprintf(stderr, "uhfctl: %s: %s\n", reader.c_str(),
                     std::strcmp(event, "lost") == 0 ? "lost the reader, reconnecting" : "reader back, reading again");
    }
}

}  // namespace

std::string summary_line(const InventoryResult& r) {
    char b[160];
    double rate = r.seconds > 0 ? static_cast<double>(r.reads) / r.seconds : 0;
    std::snprintf(b, sizeof b, "%llu reads, %zu unique tags in %.1f s (%.0f reads/s)",
                  static_cast<unsigned long long>(r.reads), r.tags.size(), r.seconds, rate);
    std::string line = b;
    if (r.overflowed > 0) line += ", " + std::to_string(r.overflowed) + " lost to a full queue";
    return line;
}

void print_tag_table(const Session& s, const InventoryResult& r, size_t max_rows) {
    size_t epc_w = 3, data_w = 0, reader_w = 0;
    for (const TagSeen& t : r.tags) {
        epc_w = std::max(epc_w, t.epc.size());
        data_w = std::max(data_w, t.data.size());
        reader_w = std::max(reader_w, t.reader.size());
    }
    if (data_w) data_w = std::max<size_t>(data_w, 3);
    auto line = [&](const std::string& reader, const std::string& epc, const std::string& data, const char* rest) {
        if (s.several()) print("%-*s  ", static_cast<int>(reader_w), reader.c_str());
        print("%-*s  ", static_cast<int>(epc_w), epc.c_str());
        if (data_w) print("%-*s  ", static_cast<int>(data_w), data.c_str());
        print("%s\n", rest);
    };
    reader_w = std::max<size_t>(reader_w, 6);
    line("READER", "EPC", "TID", "READS  RSSI LAST   MEAN    MAX  ANT   FIRST    LAST");
    size_t shown = 0;
    for (const TagSeen& t : r.tags) {
        if (shown + 1 >= max_rows && r.tags.size() > max_rows) {
            print("... %zu more\n", r.tags.size() - shown);
            break;
        }
        char rest[128];
        std::snprintf(rest, sizeof rest, "%5llu  %9s %6s %6s  %3d %7.1fs %6.1fs",
                      static_cast<unsigned long long>(t.reads), dbm(t.rssi_last).c_str(), mean_dbm(t).c_str(),
                      dbm(t.rssi_max).c_str(), t.antenna, t.first, t.last);
        line(t.reader, t.epc, t.data, rest);
        shown++;
    }
    // A reader that is not reading shows here too: a note on stderr is
    // drawn over by the next redraw.
    for (const auto& [reader, what] : r.down) print("-- %s: %s\n", reader.c_str(), what.c_str());
}

// What the run saw, once it is over.
void finish(const Session& s, const InventoryOptions& o, InventoryResult& result) {
    if (s.format != Format::Text && o.unique) print_unique(s, result);
    if (s.format != Format::Text && result.overflowed > 0)
        std::fprintf(stderr, "uhfctl: %llu reads lost: the library's queue filled up\n",
                     static_cast<unsigned long long>(result.overflowed));
    if (s.format == Format::Text) {
        if (o.live) {
            redraw(s, o, result);
        } else {
            print_tag_table(s, result, result.tags.size() + 1);
            print("\n%s\n", summary_line(result).c_str());
        }
    }
    std::fflush(out());
}

int run_single(const Session& s, const InventoryOptions& o, InventoryResult& result) {
    Tally tally(s);
    int rc = kOk;
    for (const Reader& rd : s.readers) {
        if (!rd.is_open()) {  // said on stderr when it failed to open
            rc = kConnection;
            continue;
        }
        LinkSelect(rd.slot);
        Read r;
        if (!take_single(r)) {
            rc = std::max(rc, fail(kReaderFailed, "no tag answered " + rd.label + " (or the reader did not answer)"));
            continue;
        }
        r.slot = s.several() ? rd.slot : -1;
        const TagSeen& tag = tally.add(r, 0);
        result.reads++;
        if (s.format != Format::Text && !o.unique) print_read(s, r, tag.reader, result.started);
    }
    result.tags = tally.tags();
    InventoryOptions plain = o;
    plain.live = false;
    finish(s, plain, result);
    return rc;
}

int run_inventory(const Session& s, const InventoryOptions& o, InventoryResult& result) {
    result = InventoryResult{};
    result.started = uhftools::unix_now();
    if (s.format == Format::Csv)
        print(o.unique ? "reader,epc,pc,data,reads,rssi_last,rssi_mean,rssi_max,antenna,first_seen,last_seen\n"
                       : "time,reader,epc,pc,data,rssi,antenna\n");
    if (o.once) return run_single(s, o, result);
    Tally tally(s);
    const bool text = s.format == Format::Text;

    ReaderWatch watch(s, o.reconnect, [&s](const std::string& reader, const char* event) {
        print_event(s, reader, event, uhftools::unix_now());
    });
    if (!watch.start()) return kReaderFailed;

    const uint64_t overflow_before = UHF_GetQueueOverflowCount();
    const auto start = Clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    auto next_draw = start;
    auto take = [&](Read& r) { return s.several() ? take_tlv(r) : take_ex(r); };
    auto limit_reached = [&] { return o.count > 0 && result.reads >= o.count; };
    auto consume = [&](const Read& r) {
        double t = elapsed();
        watch.heard(r.slot);
        const TagSeen& tag = tally.add(r, t);
        result.reads++;
        if (!text && !o.unique) print_read(s, r, tag.reader, result.started + t);
    };

    while (watch.any_left() && !stop_requested() && !limit_reached() && (o.duration <= 0 || elapsed() < o.duration)) {
        Read r;
        if (take(r)) {
            consume(r);
        } else {
            std::this_thread::sleep_for(kIdlePoll);
            watch.check();
        }
        if (o.live && Clock::now() >= next_draw) {
            result.seconds = elapsed();
            result.overflowed = UHF_GetQueueOverflowCount() - overflow_before;
            result.tags = tally.tags();
            result.down = watch.down();
            redraw(s, o, result);
            next_draw = Clock::now() + kRedraw;
        }
    }
    result.seconds = elapsed();
    int rc = watch.stop();
    result.stop_confirmed = rc == kOk;
    result.down = watch.down();
    const int lost_rc = watch.finish();
    // Reports that arrived before the stop are reads too.
    for (Read r; !limit_reached() && take(r);) consume(r);
    result.overflowed = UHF_GetQueueOverflowCount() - overflow_before;
    result.tags = tally.tags();
    finish(s, o, result);
    return lost_rc != kOk ? lost_rc : rc;
}

void add_inventory_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("inventory", "Continuous inventory: a live table, or JSON lines / CSV for scripts");
    cmd->footer(
        "Stops after --duration seconds, after --count reads, or on Ctrl-C; the reader is always told to stop.\n"
        "On a terminal the table is redrawn four times a second; with stdout not a terminal it is printed once at the "
        "end.\n"
        "With several readers the TID column stays empty: only the report form that names the link is available then,\n"
        "and it does not carry the whole data.\n"
        "A reader that sends nothing for a second is asked whether it is still there. One that does not answer,\n"
        "or cannot be opened at the start, is reported on stderr and listed under the table; the others read on\n"
        "and the run ends with exit code 3 (at once when no reader is left). With --reconnect it is opened again\n"
        "(after 1 s, doubling to 30 s) and the run goes on: JSON output marks the gap with {\"event\":\"lost\"}\n"
        "and {\"event\":\"reconnected\"} lines, the other formats with a note on stderr.\n"
        "Times are Unix seconds with milliseconds in JSON (time, first_seen, last_seen) and ISO 8601 UTC in CSV.\n\n"
        "Examples:\n"
        "  uhfctl --tcp 192.168.1.50 inventory\n"
        "  uhfctl --sim inventory --duration 5 --format json > reads.jsonl\n"
        "  uhfctl --serial /dev/ttyUSB0 inventory --count 100 --unique --format csv\n"
        "  uhfctl --tcp 192.168.1.50 inventory --once --format json");
    auto o = std::make_shared<InventoryOptions>();
    cmd->add_option("-d,--duration", o->duration, "Seconds to run (default: until Ctrl-C)")
        ->check(CLI::Validator(check_seconds, "SECONDS"));
    cmd->add_option("-n,--count", o->count, "Stop after N reads")->check(CLI::Range(1ul, 1000000000ul));
    cmd->add_flag("--once", o->once, "One single-shot inventory: the one tag each reader answers with");
    cmd->add_flag("-u,--unique", o->unique, "json/csv: one record per tag at the end instead of one per read");
    cmd->add_flag("--reconnect", o->reconnect, "Open a lost or unreachable reader again, and carry on");
    auto run = [&ctx, o] {
        InventoryOptions opts = *o;
        opts.live = ctx.session.format == Format::Text && stdout_is_terminal();
        InventoryResult r;
        return run_inventory(ctx.session, opts, r);
    };
    set_runner(cmd, ctx, run, {"table", "json", "csv"});
    cmd->preparse_callback([&ctx](size_t) { ctx.keep_going = true; });
}

}  // namespace uhfctl
