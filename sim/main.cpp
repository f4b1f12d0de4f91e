// uhfsim: a UHF RFID reader module in software, on TCP and/or a pseudo-terminal.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>

#include "transport/servers.h"
#include "version.h"

using namespace uhfsim;

namespace {

bool parse_endpoint(const std::string& text, std::string& host, uint16_t& port) {
    const auto colon = text.rfind(':');
    const std::string p = colon == std::string::npos ? text : text.substr(colon + 1);
    if (colon != std::string::npos) host = text.substr(0, colon);
    try {
        size_t used = 0;
        const unsigned long v = std::stoul(p, &used, 10);
        if (used != p.size() || v > 65535) return false;
        port = static_cast<uint16_t>(v);
        return true;
    } catch (...) {
        return false;
    }
}

bool parse_code(const std::string& text, uint8_t& code) {
    try {
        size_t used = 0;
        const unsigned long v = std::stoul(text, &used, 0);
        if (used != text.size() || v > 0xFF) return false;
        code = static_cast<uint8_t>(v);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "uhfsim - a virtual UHF RFID reader module.\n"
        "Answers A5 5A command frames (power, antennas, region, work time, versions,\n"
        "device id, temperature, single/batch/continuous inventory) over TCP and/or a\n"
        "pseudo-terminal. It is one reader: every connection, on either, sees the same\n"
        "settings and tags (start another uhfsim for a fresh one). Ctrl-C stops it;\n"
        "SIGHUP reloads --tags.\n\n"
        "Examples:\n"
        "  uhfsim --tcp 127.0.0.1:4001 --random-tags 20 --seed 7\n"
        "  uhfsim --pty --tags sim/examples/tags.json --rate 300 --verbose\n"
        "  uhfsim --tcp 0 --ignore 0x8C            # a reader that never answers the stop\n"};
    app.set_version_flag("--version", uhftools::tool_version("uhfsim"));

    std::string tcp, tags_file, mode = "epc", delivery = "stream", escaped;
    bool pty = false, verbose = false, sensor = false;
    size_t random_tags = 0;
    uint64_t seed = 1;
    int antennas = 4;
    uint32_t rate = 300, baud = 115200, chunk = 0;
    unsigned user_addr = 0, user_words = 0;
    std::vector<std::string> ignore;
    FaultOptions faults;

    app.add_option("--tcp", tcp, "Listen on [HOST:]PORT (default host 127.0.0.1; port 0 = any free port)");
    app.add_flag("--pty", pty, "Open a pseudo-terminal and print its path (the host opens it as a serial port)");
    app.add_option("--baud", baud, "Line rate the pty output is paced to (bytes/s = baud/10)")->capture_default_str();
    app.add_option("--chunk", chunk,
                   "Write the pty output in pieces of N bytes, as a UART or USB-serial adapter delivers it")
        ->check(CLI::Range(1u, 4096u));
    auto* tags_opt = app.add_option("--tags", tags_file, "Load the tag field from a JSON file (format: sim/README.md)");
    app.add_option("--random-tags", random_tags, "Generate N random tags instead")->excludes(tags_opt);
    app.add_option("--seed", seed, "Seed for random tags, RSSI jitter and faults")->capture_default_str();
    app.add_option("--antennas", antennas, "Antenna ports of the module (1..16)")
        ->check(CLI::Range(1, 16))
        ->capture_default_str();
    app.add_option("--rate", rate, "Tag reads per second in continuous inventory (1..100000)")
        ->check(CLI::Range(1u, 100000u))
        ->capture_default_str();
    app.add_option("--inventory-mode", mode, "What reports carry: epc, epc-tid or epc-tid-user")
        ->check(CLI::IsMember({"epc", "epc-tid", "epc-tid-user"}))
        ->capture_default_str();
    app.add_option("--user-addr", user_addr, "USER word address for epc-tid-user")->check(CLI::Range(0u, 255u));
    app.add_option("--user-words", user_words, "USER word count for epc-tid-user")->check(CLI::Range(0u, 32u));
    app.add_flag("--sensor", sensor,
                 "Sensor inventory: reports are 0x7F frames with a 2-byte sensor word after the EPC");
    app.add_option("--delivery", delivery,
                   "stream: one 0x83 frame per read; buffered: reads wait for 0xEB batches (USB habit)")
        ->check(CLI::IsMember({"stream", "buffered"}))
        ->capture_default_str();
    app.add_option("--escaped-stream", escaped,
                   "Continuous inventory sends escaped AA..55 tag frames instead: crc (0x91/0xA6) or plain (0x11/0x26)")
        ->check(CLI::IsMember({"crc", "plain"}));

    auto* fg = app.add_option_group("Faults", "Misbehave on purpose (for testing hosts)");
    fg->add_option("--delay-ms", faults.delay_ms, "Send every reply this many ms late");
    fg->add_option("--drop", faults.drop_ratio, "Fraction of replies never sent (0..1)")->check(CLI::Range(0.0, 1.0));
    fg->add_option("--corrupt", faults.corrupt_ratio, "Fraction of replies with a wrong check byte (0..1)")
        ->check(CLI::Range(0.0, 1.0));
    fg->add_flag("--split", faults.split_bytes, "Write replies one byte at a time");
    fg->add_option("--garbage", faults.garbage_bytes, "Junk bytes written before each reply");
    fg->add_option("--close-after", faults.close_after, "Hang up after N replies (pty: fall silent)");
    fg->add_option("--ignore", ignore, "Never answer this command code, e.g. 0x8C (repeatable)");
    app.add_flag("-v,--verbose", verbose, "One line per request: code, meaning, result");

    CLI11_PARSE(app, argc, argv);

    if (tcp.empty() && !pty) {
        std::cerr << "uhfsim: give --tcp [HOST:]PORT and/or --pty (see --help)\n";
        return 2;
    }
    for (const auto& c : ignore) {
        uint8_t code = 0;
        if (!parse_code(c, code)) {
            std::cerr << "uhfsim: --ignore " << c << ": not a command code 0..0xFF\n";
            return 2;
        }
        faults.ignore_codes.insert(code);
    }
    faults.seed = seed;

    SimOptions opts;
    opts.baud = baud;
    opts.chunk = chunk;
    opts.faults = faults;
    if (!tcp.empty() && !parse_endpoint(tcp, opts.host, opts.port)) {
        std::cerr << "uhfsim: --tcp " << tcp << ": expected [HOST:]PORT\n";
        return 2;
    }
    if (!tags_file.empty()) {
        std::string err;
        auto field = TagField::load_file(tags_file, &err);
        if (!field) {
            std::cerr << "uhfsim: " << tags_file << ": " << err << "\n";
            return 1;
        }
        opts.tags = std::move(*field);
    } else {
        opts.tags = TagField::random(random_tags ? random_tags : 5, seed, antennas);
    }

    auto& e = opts.engine;
    e.read_rate = rate;
    e.seed = seed;
    e.delivery = delivery == "buffered" ? ReportDelivery::Buffered : ReportDelivery::Stream;
    Settings s;
    s.inventory_mode = mode == "epc"       ? InventoryMode::Epc
                       : mode == "epc-tid" ? InventoryMode::EpcTid
                                           : InventoryMode::EpcTidUser;
    s.user_addr = static_cast<uint8_t>(user_addr);
    s.user_words = static_cast<uint8_t>(user_words);
    s.sensor_inventory = sensor;
    s.escaped_reports = {!escaped.empty(), escaped != "plain"};
    e.state.current = e.state.saved = s;
    e.state.identity.antenna_count = static_cast<uint8_t>(antennas);
    std::mutex out_mu;
    if (verbose)
        e.trace = [&out_mu](const std::string& line) {
            std::lock_guard<std::mutex> lock(out_mu);
            std::printf("%s\n", line.c_str());
            std::fflush(stdout);
        };

    // Block the stop signals before any thread starts, then wait for one here.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGHUP);  // reloads --tags: tags enter and leave the field
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    std::unique_ptr<TcpServer> tcp_server;
    std::unique_ptr<PtyServer> pty_server;
    if (!tcp.empty()) {
        tcp_server = std::make_unique<TcpServer>(opts);
        if (!tcp_server->start()) {
            std::cerr << "uhfsim: " << tcp_server->error() << "\n";
            return 1;
        }
        std::printf("tcp %s:%u\n", opts.host.c_str(), tcp_server->port());
    }
    if (pty) {
        pty_server = std::make_unique<PtyServer>(opts, tcp_server ? tcp_server->radio() : nullptr);
        if (!pty_server->start()) {
            std::cerr << "uhfsim: " << pty_server->error() << "\n";
            return 1;
        }
        std::printf("pty %s\n", pty_server->slave_path().c_str());
    }
    std::printf("%zu tags, %u reads/s; Ctrl-C to stop\n", opts.tags.size(), rate);
    std::fflush(stdout);

    int sig = 0;
    while (sigwait(&stop_signals, &sig) == 0 && sig == SIGHUP) {
        if (tags_file.empty()) continue;
        std::string err;
        auto field = TagField::load_file(tags_file, &err);
        if (!field) {
            std::cerr << "uhfsim: " << tags_file << ": " << err << " (field unchanged)\n";
            continue;
        }
        (tcp_server ? static_cast<ServerBase&>(*tcp_server) : *pty_server).set_tags(*field);
        std::printf("reloaded %zu tags\n", field->size());
        std::fflush(stdout);
    }

    EngineStats total;
    if (tcp_server) {
        tcp_server->stop();
        total.merge(tcp_server->stats());
    }
    if (pty_server) {
        pty_server->stop();
        total.merge(pty_server->stats());
    }
    std::printf("stopped: %llu requests, %llu frames sent, %llu tag reports, %llu unknown codes, %llu reads missed\n",
                static_cast<unsigned long long>(total.total_requests()),
                static_cast<unsigned long long>(total.frames_sent), static_cast<unsigned long long>(total.tag_reports),
                static_cast<unsigned long long>(total.unknown_codes),
                static_cast<unsigned long long>(total.missed_reads));
    return 0;
}
