// The outbox write per read in the supervisor: reads staged as the hub hands
// them over, one transaction per batch, and the rows an output delivered
// removed in the next. At 10,000 reads/s a commit every 10 ms carries about
// 100 reads; the target is at most 1 µs of CPU per read.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "events.h"
#include "outbox.h"

namespace {

uhfd::Read a_read() {
    uhfd::Read r;
    r.antenna = 1;
    r.epc_len = 12;
    r.epc = {0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    r.pc = 0x3000;
    r.rssi = -743;
    r.time_ms = 1795504220714;
    return r;
}

void OutboxWritePerRead(benchmark::State& state) {
    const auto batch = static_cast<uint64_t>(state.range(0));
    char name[] = "/tmp/uhfd-outbox-bench-XXXXXX";
    const std::string dir = mkdtemp(name);
    std::string err;
    auto box = uhfd::Outbox::open({dir, 200u << 20, {"dock-1"}, {"mqtt"}, "0123456789abcdef"}, err);
    if (!box) {
        state.SkipWithError(err.c_str());
        return;
    }
    uhfd::Read r = a_read();
    for (auto _ : state) {
        for (uint64_t i = 0; i < batch; i++) {
            r.seq++;
            box->add(r);
        }
        box->commit(true);
        box->delivered(0, 0, r.seq);  // removed by the next commit, as an output that keeps up
    }
    state.counters["cpu_per_read"] = benchmark::Counter(static_cast<double>(state.iterations() * batch),
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    box.reset();
    std::filesystem::remove_all(dir);
}
BENCHMARK(OutboxWritePerRead)->Arg(10)->Arg(100)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();
