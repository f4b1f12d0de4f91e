// Debugging aids: `links` (the library's link table) and `raw` (any
// command frame, reply printed).
#include <CLI/CLI.hpp>
#include <cstdio>

#include "UHF.h"
#include "commands.h"
#include "format.h"

namespace uhfctl {

namespace {

int run_links(const Session& s) {
    static char text[8192];
    if (LinkGetInfo(text, sizeof text) < 1) return fail(kReaderFailed, "links: the library gave no list");
    Json list(cJSON_Parse(text));
    if (!cJSON_IsArray(list.get())) return fail(kReaderFailed, "links: the library's list is not a JSON array");
    const cJSON* link = nullptr;
    if (s.format == Format::Json) {
        cJSON_ArrayForEach(link, list.get()) print("%s\n", json_line(link).c_str());
        return kOk;
    }
    print("%-4s %-12s %-28s %s\n", "ID", "TYPE", "ADDRESS", "CONNECTED");
    cJSON_ArrayForEach(link, list.get()) {
        auto str = [&](const char* key) {
            const cJSON* v = cJSON_GetObjectItemCaseSensitive(link, key);
            return cJSON_IsString(v) ? std::string(v->valuestring) : std::string();
        };
        const cJSON* id = cJSON_GetObjectItemCaseSensitive(link, "id");
        const cJSON* port = cJSON_GetObjectItemCaseSensitive(link, "port");
        std::string addr =
            str("type") == "NETWORK" ? str("ip") + ":" + std::to_string(port ? port->valueint : 0) : str("serial_port");
        print("%-4d %-12s %-28s %s\n", id ? id->valueint : -1, str("type").c_str(), addr.c_str(),
              cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(link, "connected")) ? "yes" : "no");
    }
    return kOk;
}

struct RawOptions {
    std::string code;
    std::vector<std::string> data;
    unsigned timeout_ms = 1500;
    bool no_wait = false;
};

int run_raw(const Session& s, const RawOptions& o) {
    unsigned long code = 0;
    if (!parse_uint(o.code, 0, 255, code))
        return fail(kUsage, "raw " + o.code + ": the code must be 0..255 (0x.. for hex)");
    std::string joined;
    for (const auto& d : o.data) joined += d;
    std::vector<uint8_t> data;
    if (!parse_hex(joined, data)) return fail(kUsage, "raw: data must be hex bytes, e.g. 00 64 or 0064");
    if (data.size() > (o.no_wait ? 255u : 2040u))
        return fail(kUsage, "raw: at most " + std::to_string(o.no_wait ? 255 : 2040) + " data bytes");
    return s.each([&](const Reader& r) {
        const char* who = s.several() ? r.label.c_str() : "";
        const char* sep = s.several() ? ": " : "";
        if (o.no_wait) {
            if (Vexa_Send(static_cast<uint8_t>(code), data.data(), static_cast<uint8_t>(data.size()), r.slot) != 0)
                return reader_failed(r, "raw");
            print("%s%ssent 0x%02lX\n", who, sep, code);
            return static_cast<int>(kOk);
        }
        static uint8_t reply[2048];
        uint16_t len = 0;
        int rc = ExternalSend(static_cast<uint8_t>(code), data.data(), static_cast<uint16_t>(data.size()), reply, &len,
                              static_cast<uint16_t>(o.timeout_ms));
        if (rc == -4) return fail(kReaderFailed, "raw: " + r.label + " answered only with other codes");
        if (rc != 0) return fail(kReaderFailed, "raw: no reply from " + r.label);
        print("%s%s0x%02lX %s\n", who, sep, (code + 1) & 0xFF, hex(reply, len).c_str());
        return static_cast<int>(kOk);
    });
}

}  // namespace

void add_debug_commands(CLI::App& app, Context& ctx) {
    auto* links = app.add_subcommand("links", "Open the readers and show the library's link table");
    links->footer("Example:\n  uhfctl --sim --sim links --format json");
    set_runner(links, ctx, [&ctx] { return run_links(ctx.session); }, {"text", "json"});

    auto o = std::make_shared<RawOptions>();
    auto* raw = app.add_subcommand("raw", "Send one command frame and print the reply's code and data");
    raw->footer(
        "The reply is the frame with the request's code + 1; its data are printed in hex.\n\n"
        "Examples:\n  uhfctl --sim raw 0x02                 firmware version\n"
        "  uhfctl --sim raw 0x12                 power per antenna\n"
        "  uhfctl --sim raw 0x8C --no-wait       stop an inventory, expect nothing");
    raw->add_option("code", o->code, "Command code, e.g. 0x02")->required();
    raw->add_option("data", o->data, "Data bytes in hex");
    raw->add_option("--timeout", o->timeout_ms, "Milliseconds to wait for the reply")
        ->check(CLI::Range(1u, 60000u))
        ->capture_default_str();
    raw->add_flag("--no-wait", o->no_wait, "Send only; do not wait for a reply");
    set_runner(raw, ctx, [&ctx, o] { return run_raw(ctx.session, *o); });
}

}  // namespace uhfctl
