// `uhfctl sensor`: temperature-logging tags (log start|stop|status|read,
// voltage) and the temperature code of sensor tags, with timestamps.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "UHF.h"
#include "commands.h"
#include "format.h"
#include "tag_json.h"
#include "tag_select.h"

namespace uhfctl {

namespace {

struct LogRun {
    float min_c = -20, max_c = 60;
    unsigned delay_s = 0, interval_s = 60;
    unsigned start = 0, count = 0;  // readings to fetch; 0: all the tag holds
};

std::string who(const Session& s, const Reader& r) { return s.several() ? r.label + ": " : ""; }

// Start and stop give the reader's own error code (> 0) or -1.
int logging_result(const Reader& r, const std::string& what, int rc) {
    if (rc == 0) return kOk;
    if (rc > 0) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%02X", rc);
        return fail(kReaderFailed, what + ": " + r.label + " refused it with error " + code);
    }
    return fail(kReaderFailed, what + ": " + r.label + " did not answer, or no tag matched");
}

int run_start(const Session& s, TagSelect t, const LogRun& run) {
    std::string err;
    if (!t.resolve(err)) return fail(kUsage, "sensor log start: " + err);
    if (run.min_c > run.max_c) return fail(kUsage, "sensor log start: --min is above --max");
    return s.each([&](const Reader& r) {
        int rc = UHFStartLogging(t.bank, static_cast<unsigned short>(t.bit_addr),
                                 static_cast<unsigned short>(t.bit_len), t.mask_data(), run.min_c, run.max_c,
                                 static_cast<unsigned short>(run.delay_s), static_cast<unsigned short>(run.interval_s));
        if (rc != 0) return logging_result(r, "sensor log start", rc);
        print("%slogging: first reading after %u s, then every %u s; limits %.2f .. %.2f C\n", who(s, r).c_str(),
              run.delay_s, run.interval_s, run.min_c, run.max_c);
        return static_cast<int>(kOk);
    });
}

int run_stop(const Session& s, TagSelect t) {
    std::string err;
    if (!t.resolve(err)) return fail(kUsage, "sensor log stop: " + err);
    return s.each([&](const Reader& r) {
        int rc = UHFStopLogging(t.bank, static_cast<unsigned short>(t.bit_addr), static_cast<unsigned short>(t.bit_len),
                                t.mask_data(), 0);
        if (rc != 0) return logging_result(r, "sensor log stop", rc);
        print("%slogging stopped\n", who(s, r).c_str());
        return static_cast<int>(kOk);
    });
}

int run_status(const Session& s, TagSelect t) {
    std::string err;
    if (!t.resolve(err)) return fail(kUsage, "sensor log status: " + err);
    return s.each([&](const Reader& r) {
        int word = UHFCheckOpMode(t.bank, static_cast<unsigned short>(t.bit_addr),
                                  static_cast<unsigned short>(t.bit_len), t.mask_data());
        if (word < 0) return reader_failed(r, "sensor log status");
        // What the bits mean belongs to the tag; show the word whole.
        print("%soperating mode word 0x%04X\n", who(s, r).c_str(), static_cast<unsigned>(word));
        return static_cast<int>(kOk);
    });
}

// Reading i was taken delay + i x interval seconds after the run started.
int run_read(const Session& s, TagSelect t, const LogRun& run) {
    std::string err;
    if (!t.resolve(err)) return fail(kUsage, "sensor log read: " + err);
    return s.each([&](const Reader& r) {
        unsigned next = run.start, wanted = run.count, got = 0;
        if (s.format == Format::Text) print("%s%6s  %12s  %8s\n", who(s, r).c_str(), "INDEX", "AFTER START", "DEG C");
        while (true) {
            unsigned short total = 0;
            unsigned char returned = 0;
            float temps[255];
            unsigned ask = wanted ? std::min(255u, wanted - got) : 255u;
            int rc = UHFReadMultiTemp(
                t.bank, static_cast<unsigned short>(t.bit_addr), static_cast<unsigned short>(t.bit_len), t.mask_data(),
                static_cast<unsigned short>(next), static_cast<unsigned char>(ask), &total, &returned, temps);
            if (rc != 0) return reader_failed(r, "sensor log read");
            for (unsigned i = 0; i < returned; i++) {
                unsigned index = next + i;
                unsigned long after = run.delay_s + static_cast<unsigned long>(index) * run.interval_s;
                if (s.format == Format::Json) {
                    Json j(cJSON_CreateObject());
                    cJSON_AddStringToObject(j.get(), "reader", r.label.c_str());
                    cJSON_AddNumberToObject(j.get(), "index", index);
                    cJSON_AddNumberToObject(j.get(), "after_s", static_cast<double>(after));
                    cJSON_AddNumberToObject(j.get(), "celsius", temps[i]);
                    print("%s\n", json_line(j.get()).c_str());
                } else {
                    print("%s%6u  %12s  %8.2f\n", who(s, r).c_str(), index,
                          clock_text(static_cast<double>(after)).c_str(), temps[i]);
                }
            }
            got += returned;
            next += returned;
            if (returned == 0 || next >= total || (wanted && got >= wanted)) break;
        }
        if (s.format == Format::Text) print("%s%u readings\n", who(s, r).c_str(), got);
        return static_cast<int>(kOk);
    });
}

int run_voltage(const Session& s, TagSelect t) {
    std::string err;
    if (!t.resolve(err)) return fail(kUsage, "sensor voltage: " + err);
    return s.each([&](const Reader& r) {
        float v = 0;
        if (UHFReadTagVoltage(t.bank, static_cast<unsigned short>(t.bit_addr), static_cast<unsigned short>(t.bit_len),
                              t.mask_data(), &v) != 0)
            return reader_failed(r, "sensor voltage");
        print("%s%.3f V\n", who(s, r).c_str(), v);
        return static_cast<int>(kOk);
    });
}

struct TempOptions {
    std::string epc;
    unsigned antenna = 1;
    std::string power = "0BB8";  // the reader's own encoding, sent as given
    unsigned count = 1;
    double every = 1;
};

std::string now_text() {
    auto now = std::chrono::system_clock::now();
    std::time_t t = std::chrono::system_clock::to_time_t(now);
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm tm{};
    localtime_r(&t, &tm);
    char b[64];
    std::snprintf(b, sizeof b, "%04d-%02d-%02d %02d:%02d:%02d.%03d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                  tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(ms));
    return b;
}

// The temperature code of a sensor tag found by its EPC, taken count times.
int run_temp(const Session& s, const TempOptions& o) {
    std::vector<uint8_t> epc, power;
    if (!parse_hex(o.epc, epc) || epc.empty() || epc.size() > 16)
        return fail(kUsage, "sensor temp: --epc takes 1..16 bytes of hex");
    if (!parse_hex(o.power, power) || power.size() != 2) return fail(kUsage, "sensor temp: --power takes 4 hex digits");
    epc.resize(16, 0);  // the command always carries 16 EPC bytes
    for (unsigned n = 0; n < o.count && !stop_requested(); n++) {
        if (n > 0) std::this_thread::sleep_for(std::chrono::duration<double>(o.every));
        int rc = s.each([&](const Reader& r) {
            uint8_t data[128];
            int len = UHFGetTempertureCode(epc.data(), static_cast<unsigned char>(o.antenna), power.data(), data);
            if (len < 2) return reader_failed(r, "sensor temp");
            unsigned code = data[0] << 8 | data[1];
            if (s.format == Format::Json) {
                Json j(cJSON_CreateObject());
                cJSON_AddNumberToObject(j.get(), "time", uhftools::to_ms(uhftools::unix_now()));
                cJSON_AddStringToObject(j.get(), "reader", r.label.c_str());
                cJSON_AddNumberToObject(j.get(), "code", code);
                print("%s\n", json_line(j.get()).c_str());
            } else {
                print("%s  %stemperature code %u (0x%04X)\n", now_text().c_str(), who(s, r).c_str(), code, code);
            }
            std::fflush(out());
            return static_cast<int>(kOk);
        });
        if (rc != kOk) return rc;
    }
    return kOk;
}

}  // namespace

void add_sensor_commands(CLI::App& app, Context& ctx) {
    auto* sensor = app.add_subcommand("sensor", "Sensor tags: temperature logging, battery voltage, temperature code");
    sensor->require_subcommand(1);
    sensor->footer(
        std::string(kSelectHelp) +
        "\nExamples:\n  uhfctl --sim sensor log start --epc E2003412 --delay 0 --interval 60 --min 2 --max 8\n"
        "  uhfctl --sim sensor log read --epc E2003412 --interval 60\n"
        "  uhfctl --sim sensor voltage --epc E2003412\n"
        "  uhfctl --sim sensor temp --epc E20034120123456789ABCDEF --count 5 --every 2");
    auto* log = sensor->add_subcommand("log", "Logging runs of temperature-logging tags");
    log->require_subcommand(1);
    log->footer(
        "Examples:\n  uhfctl --sim sensor log start --interval 30\n  uhfctl --sim sensor log read --format json");

    auto st = std::make_shared<TagSelect>();
    auto run = std::make_shared<LogRun>();
    auto* start = log->add_subcommand("start", "Start a logging run on the tag");
    start->footer("Example:\n  uhfctl --sim sensor log start --epc E2003412 --interval 60 --min 2 --max 8");
    add_select_options(start, *st, false);
    start->add_option("--min", run->min_c, "Lower limit, deg C (-128..127.75)")
        ->check(CLI::Range(-128.0, 127.75))
        ->capture_default_str();
    start->add_option("--max", run->max_c, "Upper limit, deg C (-128..127.75)")
        ->check(CLI::Range(-128.0, 127.75))
        ->capture_default_str();
    start->add_option("--delay", run->delay_s, "Seconds before the first reading")
        ->check(CLI::Range(0u, 65535u))
        ->capture_default_str();
    start->add_option("--interval", run->interval_s, "Seconds between readings")
        ->check(CLI::Range(1u, 65535u))
        ->capture_default_str();
    set_runner(start, ctx, [&ctx, st, run] { return run_start(ctx.session, *st, *run); });

    auto pt = std::make_shared<TagSelect>();
    auto* stop = log->add_subcommand("stop", "Stop the tag's logging run");
    stop->footer(
        "Example:\n  uhfctl --sim sensor log stop --epc E2003412    exit 1 on a fresh virtual reader: no run to stop");
    add_select_options(stop, *pt, false);
    set_runner(stop, ctx, [&ctx, pt] { return run_stop(ctx.session, *pt); });

    auto at = std::make_shared<TagSelect>();
    auto* status = log->add_subcommand("status", "The tag's operating-mode word");
    status->footer("Example:\n  uhfctl --sim sensor log status --epc E2003412");
    add_select_options(status, *at, false);
    set_runner(status, ctx, [&ctx, at] { return run_status(ctx.session, *at); });

    auto rt = std::make_shared<TagSelect>();
    auto rrun = std::make_shared<LogRun>();
    auto* read = log->add_subcommand("read", "Read the logged temperatures, with their time after the start");
    read->footer(
        "Give the run's --delay and --interval so the times are right.\n\n"
        "Example:\n  uhfctl --sim sensor log read --epc E2003412 --interval 60 --format json");
    add_select_options(read, *rt, false);
    read->add_option("--start", rrun->start, "First reading")->check(CLI::Range(0u, 65535u));
    read->add_option("--count", rrun->count, "Readings (default: all the tag holds)")->check(CLI::Range(1u, 65535u));
    read->add_option("--delay", rrun->delay_s, "The run's delay, s")->capture_default_str();
    read->add_option("--interval", rrun->interval_s, "The run's interval, s")->capture_default_str();
    set_runner(read, ctx, [&ctx, rt, rrun] { return run_read(ctx.session, *rt, *rrun); }, {"text", "json"});

    auto vt = std::make_shared<TagSelect>();
    auto* voltage = sensor->add_subcommand("voltage", "The tag's battery or supply voltage");
    voltage->footer("Example:\n  uhfctl --sim sensor voltage --epc E2003412");
    add_select_options(voltage, *vt, false);
    set_runner(voltage, ctx, [&ctx, vt] { return run_voltage(ctx.session, *vt); });

    auto to = std::make_shared<TempOptions>();
    auto* temp = sensor->add_subcommand("temp", "The temperature code of a sensor tag, with timestamps");
    temp->footer(
        "The code is the tag's own; its calibration turns it into degrees.\n\n"
        "Example:\n  uhfctl --sim sensor temp --epc E20034120123456789ABCDEF --count 3 --every 1 --format json");
    temp->add_option("--epc", to->epc, "The tag's EPC (hex, up to 16 bytes)")->required();
    temp->add_option("--antenna", to->antenna, "Antenna")->check(CLI::Range(1u, 255u))->capture_default_str();
    temp->add_option("--power", to->power, "Power for the read, 2 bytes hex in the reader's encoding")
        ->capture_default_str();
    temp->add_option("--count", to->count, "Readings to take")->check(CLI::Range(1u, 100000u))->capture_default_str();
    temp->add_option("--every", to->every, "Seconds between readings")
        ->check(CLI::Range(0.0, 3600.0))
        ->capture_default_str();
    set_runner(temp, ctx, [&ctx, to] { return run_temp(ctx.session, *to); }, {"text", "json"});
}

}  // namespace uhfctl
