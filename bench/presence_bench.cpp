// Per-read cost in the supervisor: presence with n tags in the field, and the
// hub encoding a read for one JSON output. No step walks the tags: expire is
// flat in n, and add grows only as the table outgrows the caches.
#include <benchmark/benchmark.h>

#include <vector>

#include "events.h"
#include "presence.h"

namespace {

using uhfd::Read;

Read read_of(uint32_t tag, int64_t time_ms) {
    Read r;
    r.antenna = 1;
    r.epc_len = 12;
    r.epc = {0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67};
    for (int i = 0; i < 4; i++) r.epc[8 + i] = static_cast<uint8_t>(tag >> (8 * i));
    r.pc = 0x3000;
    r.rssi = -743;
    r.time_ms = time_ms;
    return r;
}

// Nothing is due to leave for a day.
uhfd::PresenceConfig config(uint32_t max_tags) {
    uhfd::PresenceConfig c;
    c.depart_after = 86400;
    c.max_tags = max_tags;
    return c;
}

void fill(uhfd::Presence& p, uint32_t n) {
    std::vector<uhfd::Event> arrived;
    for (uint32_t tag = 0; tag < n; tag++) p.add(read_of(tag, 0), arrived);
}

// Reads of known tags in a scattered order, each one later than the last.
void PresenceAddKnownTag(benchmark::State& state) {
    const auto n = static_cast<uint32_t>(state.range(0));
    uhfd::Presence p(config(n));
    fill(p, n);
    std::vector<uhfd::Event> arrived;
    int64_t now = 1;
    uint32_t tag = 0;
    for (auto _ : state) {
        tag = (tag + 7919) % n;
        benchmark::DoNotOptimize(p.add(read_of(tag, now++), arrived));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PresenceAddKnownTag)->Arg(10000)->Arg(100000);

void PresenceExpireNothingDue(benchmark::State& state) {
    const auto n = static_cast<uint32_t>(state.range(0));
    uhfd::Presence p(config(n));
    fill(p, n);
    std::vector<uhfd::Event> departed;
    int64_t now = 1;
    for (auto _ : state) p.expire(now++, departed);
    if (!departed.empty()) state.SkipWithError("a tag departed");
}
BENCHMARK(PresenceExpireNothingDue)->Arg(10000)->Arg(100000);

void HubPublishToOneJsonSink(benchmark::State& state) {
    uhfd::Hub hub({"dock-1"}, "0123456789abcdef");
    size_t bytes = 0;
    hub.on_read([&](const Read&, std::string_view json) { bytes += json.size(); });
    Read r = read_of(42, 1795504220714);
    for (auto _ : state) hub.publish(r);
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(HubPublishToOneJsonSink);

}  // namespace

BENCHMARK_MAIN();
