// The plain publisher: JSON arrays of tag reads, shaped as uhfd's, published
// to a broker at a given rate with nothing else in the way. What it gets
// through to a subscriber is the ceiling uhfd's MQTT output is compared with.
//
//   mqtt_ceiling --port 1883 --topic b/c/reads --rate 50000 --seconds 5 --batch 200 --qos 1
//
// It prints one line: "published N reads in T s, acked M messages of K".
#include <mosquitto.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string host = "127.0.0.1", topic = "bench/ceiling/reads", reader = "r1";
    int port = 1883, qos = 1;
    double rate = 10000, seconds = 5;
    size_t batch = 200, tags = 500;
};

// A tag's EPC as uhfsim's random tags have it: 12 bytes, upper-case hex.
std::string epc_of(size_t tag) {
    char hex[32];
    std::snprintf(hex, sizeof hex, "E2000000%08X%08X", static_cast<uint32_t>(tag * 2654435761u),
                  static_cast<uint32_t>(tag));
    return hex;
}

// One read, as uhfd writes it: time in seconds with milliseconds, rssi in
// dBm, then the gateway's seq (1, 2, 3, ...) and boot (16 hex digits).
void append_read(std::string& out, const std::string& reader, const std::string& epc, uint64_t seq) {
    const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    const int n = static_cast<int>(seq % 1000);
    char text[320];
    const int len = std::snprintf(text, sizeof text,
                                  "{\"time\":%.3f,\"reader\":\"%s\",\"epc\":\"%s\",\"pc\":\"3000\",\"rssi\":-%d.%d,"
                                  "\"antenna\":%d,\"seq\":%llu,\"boot\":\"3f9c0a7d1e52b864\"}",
                                  now, reader.c_str(), epc.c_str(), 50 + n % 30, n % 10, 1 + n % 4,
                                  static_cast<unsigned long long>(seq));
    out.append(text, static_cast<size_t>(len));
}

std::string make_batch(const Options& o, const std::vector<std::string>& epcs, uint64_t& seq, size_t count) {
    std::string payload = "[";
    for (size_t i = 0; i < count; i++) {
        if (i) payload += ',';
        ++seq;
        append_read(payload, o.reader, epcs[seq % epcs.size()], seq);
    }
    payload += ']';
    return payload;
}

std::atomic<uint64_t> g_acked{0};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"mqtt_ceiling - publishes batches of JSON tag reads at a fixed rate, as a plain MQTT client"};
    Options o;
    app.add_option("--host", o.host)->capture_default_str();
    app.add_option("--port", o.port)->capture_default_str();
    app.add_option("--topic", o.topic)->capture_default_str();
    app.add_option("--reader", o.reader, "Reader name inside each read")->capture_default_str();
    app.add_option("--rate", o.rate, "Reads per second")->capture_default_str();
    app.add_option("--seconds", o.seconds)->capture_default_str();
    app.add_option("--batch", o.batch, "Reads per message")->capture_default_str()->check(CLI::Range(1, 100000));
    app.add_option("--qos", o.qos)->capture_default_str()->check(CLI::Range(0, 1));
    app.add_option("--tags", o.tags, "Distinct EPCs the reads cycle through")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    mosquitto_lib_init();
    mosquitto* m = mosquitto_new(nullptr, true, nullptr);
    mosquitto_publish_callback_set(m, [](mosquitto*, void*, int) { g_acked++; });
    if (!m || mosquitto_connect(m, o.host.c_str(), o.port, 30) != MOSQ_ERR_SUCCESS ||
        mosquitto_loop_start(m) != MOSQ_ERR_SUCCESS) {
        std::fprintf(stderr, "mqtt_ceiling: cannot connect to %s:%d\n", o.host.c_str(), o.port);
        return 1;
    }
    std::vector<std::string> epcs;
    for (size_t i = 0; i < o.tags; i++) epcs.push_back(epc_of(i));

    // Reads are due at the rate from the start; a batch goes when it is full,
    // so the publisher keeps to the schedule however late a wake comes.
    const auto start = Clock::now();
    const auto total = static_cast<uint64_t>(o.rate * o.seconds);
    uint64_t sent = 0, messages = 0;
    uint64_t seq = 0;
    while (sent < total) {
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        const uint64_t due = std::min<uint64_t>(total, static_cast<uint64_t>(elapsed * o.rate));
        if (due < sent + o.batch && due < total) {
            std::this_thread::sleep_for(std::chrono::microseconds(500));
            continue;
        }
        const size_t count = std::min<uint64_t>(o.batch, total - sent);
        const std::string payload = make_batch(o, epcs, seq, count);
        if (mosquitto_publish(m, nullptr, o.topic.c_str(), static_cast<int>(payload.size()), payload.data(), o.qos,
                              false) != MOSQ_ERR_SUCCESS)
            break;
        sent += count;
        messages++;
    }
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    // What is still in the client's queue goes out before the disconnect.
    for (int i = 0; i < 1000 && g_acked < messages; i++) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::printf("published %llu reads in %.3f s, acked %llu messages of %llu\n", static_cast<unsigned long long>(sent),
                took, static_cast<unsigned long long>(g_acked.load()), static_cast<unsigned long long>(messages));
    mosquitto_disconnect(m);
    mosquitto_loop_stop(m, false);
    mosquitto_destroy(m);
    mosquitto_lib_cleanup();
    return 0;
}
