// Wave CSV reader and writer on a 4-channel record of 5,000,000 samples.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "wavefile/WaveCsv.h"

namespace {

using namespace mervasto;

constexpr int32_t kRows = 5000000;

std::string benchFile() {
    return (std::filesystem::temp_directory_path() / "mervasto_bench_wave.csv").string();
}

DsoSetup benchSetup() {
    DsoSetup s;
    s.Model = "DS-5354";
    s.ChannelCount = 4;
    s.TimePerDiv = 0.001f;
    s.SampleInterval = 2e-9f;
    s.RecordLength = kRows;
    for (int i = 1; i <= 4; ++i) {
        s.TraceOn[i] = "ON";
        s.VoltsPerDiv[i] = 1.0f;
    }
    return s;
}

// Samples as the instrument gives them: 8192 counts per division.
WaveRecord benchRecord() {
    WaveRecord r;
    r.ensureLength(kRows);
    for (int c = 0; c < 4; ++c)
        for (int32_t k = 0; k < kRows; ++k) {
            int code = static_cast<int>(std::lround(20000.0 * std::sin(k * 0.001 * (c + 1)))) + (k % 7);
            r.wave[c][k] = static_cast<float>(code) / 8192.0f * 0.5f - 0.25f;
        }
    return r;
}

long peakRssKiB() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

void BM_SaveWaveCsv(benchmark::State& state) {
    const DsoSetup setup = benchSetup();
    const WaveRecord record = benchRecord();
    for (auto _ : state) SaveWaveCsv(benchFile(), setup, record);
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(benchFile()));
}
BENCHMARK(BM_SaveWaveCsv)->Unit(benchmark::kMillisecond)->Iterations(3);

// Run after the save above, which leaves the file in place. Peak memory is
// read in a fresh process only when this benchmark runs alone
// (--benchmark_filter=Load).
void BM_LoadWaveCsv(benchmark::State& state) {
    if (!std::filesystem::exists(benchFile())) SaveWaveCsv(benchFile(), benchSetup(), benchRecord());
    const long before = peakRssKiB();
    for (auto _ : state) {
        state.PauseTiming();
        WaveRecord record;
        DsoSetup setup;
        WaveFieldTable table;
        state.ResumeTiming();
        auto r = LoadWaveCsv(benchFile(), setup, record, table);
        if (r.status != 0 || setup.RecordLength != kRows) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(record.wave[3][kRows - 1]);
    }
    state.counters["peak_rss_MiB"] = peakRssKiB() / 1024.0;
    state.counters["peak_rss_before_MiB"] = before / 1024.0;
    state.counters["arrays_MiB"] = 4.0 * kRows * sizeof(float) / (1024.0 * 1024.0);
}
BENCHMARK(BM_LoadWaveCsv)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
