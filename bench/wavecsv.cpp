// Wave CSV reader and writer on a 4-channel record of 5,000,000 samples.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>
#include <cstdio>
#include <filesystem>
#include <string>

#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"

namespace {

using namespace mervasto;

constexpr int32_t kRows = 5000000;

std::string benchFile() { return (std::filesystem::temp_directory_path() / "mervasto_bench_wave.csv").string(); }

DsoSetup benchSetup() {
    DsoSetup s;
    s.Model = "DS-5354";
    s.ChannelCount = 4;
    s.TimePerDiv = 0.001f;
    s.SampleInterval = 2e-9f;
    s.RecordLength = kRows;
    for (int i = 1; i <= 4; ++i) {
        s.trace(i - 1).TraceOn = "ON";
        s.trace(i - 1).VoltsPerDiv = 1.0f;
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
    for (auto _ : state)
        if (!SaveWaveCsv(benchFile(), setup, record)) state.SkipWithError("save failed");
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(benchFile()));
}
BENCHMARK(BM_SaveWaveCsv)->Unit(benchmark::kMillisecond)->Iterations(3);

// Run after the save above, which leaves the file in place. Peak memory is
// read in a fresh process only when this benchmark runs alone
// (--benchmark_filter=Load).
void BM_LoadWaveCsv(benchmark::State& state) {
    if (!std::filesystem::exists(benchFile())) (void)SaveWaveCsv(benchFile(), benchSetup(), benchRecord());
    const long before = peakRssKiB();
    for (auto _ : state) {
        state.PauseTiming();
        WaveRecord record;
        DsoSetup setup;
        state.ResumeTiming();
        auto r = LoadWaveCsv(benchFile(), setup, record);
        if (!r.ok() || setup.RecordLength != kRows) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(record.wave[3][kRows - 1]);
    }
    state.counters["peak_rss_MiB"] = peakRssKiB() / 1024.0;
    state.counters["peak_rss_before_MiB"] = before / 1024.0;
    state.counters["arrays_MiB"] = 4.0 * kRows * sizeof(float) / (1024.0 * 1024.0);
}
BENCHMARK(BM_LoadWaveCsv)->Unit(benchmark::kMillisecond)->Iterations(3);

// The same record exported by another program: "Time(s),CH1(V),..." with a
// time column, read by the generic reader (which also checks the spacing of
// every row). Compare with BM_LoadWaveCsv: the import should stay within 1.25
// times the own layout's load.
std::string genericFile() { return (std::filesystem::temp_directory_path() / "mervasto_bench_generic.csv").string(); }

void BM_ImportGenericCsv(benchmark::State& state) {
    if (!std::filesystem::exists(genericFile())) {
        DsoSetup setup = benchSetup();
        setup.TimePerDiv = static_cast<float>(kRows * 2e-9 / 10);
        (void)SaveGenericCsv(genericFile(), setup, benchRecord());
    }
    for (auto _ : state) {
        state.PauseTiming();
        WaveRecord record;
        DsoSetup setup;
        state.ResumeTiming();
        auto r = LoadGenericCsv(genericFile(), setup, record);
        if (!r.ok() || setup.RecordLength != kRows) state.SkipWithError(r.outcome.text().c_str());
        benchmark::DoNotOptimize(record.wave[3][kRows - 1]);
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(genericFile()));
    state.counters["peak_rss_MiB"] = peakRssKiB() / 1024.0;
}
BENCHMARK(BM_ImportGenericCsv)->Unit(benchmark::kMillisecond)->Iterations(3);

// The yardstick for the reader: the same file through a plain
// single-threaded std::from_chars loop (fread, memchr per line, four floats
// per row, nothing else). This machine's speed varies from run to run; the
// ratio of the two benchmarks does not.
void BM_FromCharsReference(benchmark::State& state) {
    if (!std::filesystem::exists(benchFile())) (void)SaveWaveCsv(benchFile(), benchSetup(), benchRecord());
    for (auto _ : state) {
        state.PauseTiming();
        std::array<std::vector<float>, 4> out;
        for (auto& o : out) o.resize(kRows);
        state.ResumeTiming();
        std::FILE* f = std::fopen(benchFile().c_str(), "rb");
        std::vector<char> buf(size_t{4} << 20);
        size_t have = 0;
        size_t rows = 0;
        bool data = false;
        while (f) {
            const size_t got = std::fread(buf.data() + have, 1, buf.size() - have, f);
            if (got == 0) break;
            have += got;
            const char* p = buf.data();
            const char* end = p + have;
            while (const char* nl = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)))) {
                if (!data) {
                    data = std::memcmp(p, "Ch1 V", 5) == 0;
                } else if (rows < static_cast<size_t>(kRows)) {
                    const char* q = p;
                    for (auto& o : out) {
                        while (q < nl && *q == ' ') ++q;
                        float v = 0;
                        q = std::from_chars(q, nl, v).ptr;
                        o[rows] = v;
                        while (q < nl && *q != ',') ++q;
                        if (q < nl) ++q;
                    }
                    ++rows;
                }
                p = nl + 1;
            }
            have = static_cast<size_t>(end - p);
            std::memmove(buf.data(), p, have);
        }
        if (f) std::fclose(f);
        if (rows != static_cast<size_t>(kRows)) state.SkipWithError("reference read failed");
        benchmark::DoNotOptimize(out[3][kRows - 1]);
    }
}
BENCHMARK(BM_FromCharsReference)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
