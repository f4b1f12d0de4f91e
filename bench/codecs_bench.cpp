// Per-frame costs on the receive path: frame search and the tag queue.
#include <benchmark/benchmark.h>

#include <vector>

#include "UHF.h"

namespace {

std::vector<uint8_t> report_frame() {
    std::vector<uint8_t> data = {0x30, 0x00, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45,
                                 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFD, 0x7A, 0x01};
    size_t total = data.size() + 8;
    std::vector<uint8_t> f(total);
    f[0] = 0xA5;
    f[1] = 0x5A;
    f[2] = uint8_t(total >> 8);
    f[3] = uint8_t(total);
    f[4] = 0x83;
    for (size_t i = 0; i < data.size(); i++) f[5 + i] = data[i];
    uint8_t x = 0;
    for (size_t i = 2; i < 5 + data.size(); i++) x ^= f[i];
    f[total - 3] = x;
    f[total - 2] = 0x0D;
    f[total - 1] = 0x0A;
    return f;
}

void SearchPackOneReport(benchmark::State& state) {
    auto f = report_frame();
    for (auto _ : state) benchmark::DoNotOptimize(searchPack(f.data(), int(f.size())));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SearchPackOneReport);

void QueueAddAndFetch(benchmark::State& state) {
    auto f = report_frame();
    flushTagBuf();
    uint8_t out[512];
    int len = 0;
    for (auto _ : state) {
        addTagData(NORMAL_INVENTORY, f.data() + 5, uint16_t(f.size() - 8), 0);
        benchmark::DoNotOptimize(UHF_GetReceived_EX(&len, out));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(QueueAddAndFetch);

}  // namespace
