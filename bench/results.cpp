#include <benchmark/benchmark.h>

#include <cmath>

#include "results/ResultGrids.h"
#include "results/SiFormat.h"

namespace {

using namespace mervasto;

void BM_FormatSiValue(benchmark::State& state) {
    float x = 1.234567e-9f;
    for (auto _ : state) {
        benchmark::DoNotOptimize(FormatSiValue(x));
        x = x * 1.7f > 1e7f ? 1.234567e-9f : x * 1.7f;
    }
}
BENCHMARK(BM_FormatSiValue);

// The largest detail grid: 4 channels of 500,000 cycles. Second argument 1:
// periods from interpolated edges, which seldom repeat.
void BM_DispDetailDataFull(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const bool interpolated = state.range(1) != 0;
    ChannelDisplays chs;
    const int32_t types[] = {kTypePeriod, kTypeDuty, kTypeFreq, kTypeAmple};
    CycleTable cycles;
    for (int ch = 0; ch < kChannels; ++ch) {
        chs[ch].typeIndex = types[ch];
        chs[ch].typeText = kSignalTypeText[static_cast<size_t>(types[ch])];
        cycles.channel[ch].resize(n);
        for (size_t i = 0; i < n; ++i) {
            CycleRecord& c = cycles.channel[ch][i];
            c.Period = 200 + static_cast<double>(i % 7);
            if (interpolated) c.Period += static_cast<double>(i % 9973) / 9973.0;
            c.Duty = 50 + static_cast<double>(i % 5) * 0.1;
            c.Freq = 1e5 / c.Period;
            c.Ample = 3.3 + static_cast<double>(i % 3) * 0.01;
        }
    }
    Grid g;
    SetupDetailDataGrid(g, static_cast<int32_t>(n));
    for (auto _ : state) {
        DispDetailData(g, chs, cycles, 1e-8f);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n) * kChannels);
}
BENCHMARK(BM_DispDetailDataFull)->Args({500000, 0})->Args({500000, 1})->Unit(benchmark::kMillisecond);

}  // namespace
