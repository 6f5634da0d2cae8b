// Whole analysis runs over long records: 4 channels x 5,000,000 samples of
// pulses, one channel with 500,000 cycles, and an encoder pair of 2 x
// 5,000,000 samples with and without the encoder analysis (the difference is
// what the encoder adds). The edge rules: "Auto" against "Legacy" on pulses
// where the legacy scan passes over nothing (what Auto costs on every
// record) and on pulses where it passes over every fall (Auto scans again).
#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include "analysis/Analysis.h"
#include "common/WorkPool.h"

namespace {

std::atomic<long> gAllocations{0};

// Out of line so that the compiler does not pair a free with a new it sees.
[[gnu::noinline]] void release(void* p) noexcept { std::free(p); }

}  // namespace

// Counting only: these replace the global allocation functions.
void* operator new(std::size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }

namespace {

using namespace mervasto;

constexpr int32_t kSamples = 5000000;

// Sample t of a cycle whose pulse is `width` samples long, with a
// four-sample rise and fall and a little noise (from the running seed), as an
// 8-bit instrument records it at 1 V/div and -2.5 V offset: 32 codes per
// division, 256 counts per code.
float codedPulse(int32_t t, int32_t width, uint32_t& seed) {
    float level = t < width ? 5.0f : 0.0f;
    if (t < 4) level = 5.0f * static_cast<float>(t) / 4.0f;
    if (t >= width && t < width + 4) level = 5.0f * static_cast<float>(width + 4 - t) / 4.0f;
    seed = seed * 1664525u + 1013904223u;
    const float noise = (static_cast<float>(seed >> 8) / 16777216.0f - 0.5f) * 0.02f;
    const float code = std::nearbyint((level + noise - 2.5f) * 32.0f);
    return code / 32.0f + 2.5f;
}

struct PulseRecord {
    std::array<std::vector<float>, 4> volts;
    std::array<std::vector<int16_t>, 4> raw;
    AnalysisInput in;

    // sample(ch, i): volts of sample i of channel ch, asked for in order.
    template <class Sample>
    PulseRecord(int channels, Sample sample) {
        in.WaveLength = kSamples;
        in.SampleSec = 1e-8f;
        for (int ch = 0; ch < 4; ++ch) {
            in.VoltsPerDiv[ch] = 1.0f;
            in.Offset[ch] = -2.5f;
            if (ch >= channels) continue;
            auto& v = volts[ch];
            v.resize(kSamples);
            for (int32_t i = 0; i < kSamples; ++i) v[static_cast<size_t>(i)] = sample(ch, i);
            raw[ch].resize(kSamples);
            RawFromVolts(v, in.VoltsPerDiv[ch], in.Offset[ch], raw[ch]);
            in.volts[ch] = volts[ch];
            in.raw[ch] = raw[ch];
        }
    }

    // Pulses of about `period` samples; the channels differ a little.
    PulseRecord(int channels, int32_t period)
        : PulseRecord(channels, [period, seed = uint32_t{12345}](int ch, int32_t i) mutable {
              const int32_t p = period + ch * 3;
              return codedPulse(i % p, p * (30 + 10 * ch) / 100, seed);
          }) {}
};

// The same pulses with a sharp rise that leaves one sample at the middle and
// a fall straight across: unsmoothed, the legacy scan passes over the fall.
float midRisePulse(int32_t t, int32_t width, uint32_t& seed) {
    seed = seed * 1664525u + 1013904223u;
    const float noise = (static_cast<float>(seed >> 8) / 16777216.0f - 0.5f) * 0.02f;
    const float level = t == 0 ? 2.5f : t < width ? 5.0f : 0.0f;
    return std::nearbyint((level + noise - 2.5f) * 32.0f) / 32.0f + 2.5f;
}

AnalysisParams benchParams(int channels, LevelMethod method, int threads, EdgeTiming timing = EdgeTiming::Samples) {
    AnalysisParams p;
    p.edgeTiming = timing;
    p.Histerisis = 10;
    p.PLevel = 50;
    p.MaxCycles = 500000;
    p.SmoothingNo = 5;
    p.levelMethod = method;
    SetJobs(static_cast<unsigned>(threads));  // the work pool's cap for the benchmark that asks
    for (int ch = 0; ch < 4; ++ch) {
        p.channel[ch].DispOff = ch >= channels;
        p.channel[ch].SignalType = kTypePeriod;
    }
    return p;
}

void runAndReport(benchmark::State& state, const PulseRecord& rec, const AnalysisParams& p) {
    AnalysisResults res;
    RunAnalysis(rec.in, p, res);  // sizes the scratch and the cycle tables
    const long before = gAllocations.load();
    for (auto _ : state) {
        AnalysisOutcome out = RunAnalysis(rec.in, p, res);
        benchmark::DoNotOptimize(out);
    }
    state.counters["cycles_ch1"] = res.table.at(0, Measure::OfType).Counts;
    state.counters["allocs_per_run"] =
        static_cast<double>(gAllocations.load() - before) / static_cast<double>(state.iterations());
}

const PulseRecord& fourChannels() {
    static const PulseRecord rec(4, 500);
    return rec;
}

void BM_FourChannelsPeaks(benchmark::State& state) {
    runAndReport(state, fourChannels(), benchParams(4, LevelMethod::Peaks, static_cast<int>(state.range(0))));
}
BENCHMARK(BM_FourChannelsPeaks)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FourChannelsHalves(benchmark::State& state) {
    runAndReport(state, fourChannels(), benchParams(4, LevelMethod::Halves, static_cast<int>(state.range(0))));
}
BENCHMARK(BM_FourChannelsHalves)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same record with interpolated edges: set against BM_FourChannelsPeaks.
void BM_FourChannelsInterpolated(benchmark::State& state) {
    runAndReport(state, fourChannels(),
                 benchParams(4, LevelMethod::Peaks, static_cast<int>(state.range(0)), EdgeTiming::Interpolated));
}
BENCHMARK(BM_FourChannelsInterpolated)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Arg 0: "Legacy", arg 1: "Auto", one thread: on these pulses the legacy
// scan passes over nothing, so Auto only watches for it.
void BM_FourChannelsEdgeRule(benchmark::State& state) {
    AnalysisParams p = benchParams(4, LevelMethod::Peaks, 1);
    p.edgeRule = state.range(0) != 0 ? EdgeRule::Auto : EdgeRule::Legacy;
    runAndReport(state, fourChannels(), p);
}
BENCHMARK(BM_FourChannelsEdgeRule)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same on pulses whose every fall the legacy scan passes over: Auto
// scans each channel a second time with the Schmitt rule.
void BM_FourChannelsEdgeRulePassedOver(benchmark::State& state) {
    static const PulseRecord rec(4, [seed = uint32_t{4321}](int ch, int32_t i) mutable {
        const int32_t p = 500 + ch * 3;
        return midRisePulse(i % p, p * (30 + 10 * ch) / 100, seed);
    });
    AnalysisParams p = benchParams(4, LevelMethod::Peaks, 1);
    p.SmoothingNo = 1;
    p.edgeRule = state.range(0) != 0 ? EdgeRule::Auto : EdgeRule::Legacy;
    runAndReport(state, rec, p);
}
BENCHMARK(BM_FourChannelsEdgeRulePassedOver)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// 500,000 cycles of 10 samples on one channel: the cycle limit, and no
// allocation inside the scan once the table has its size.
void BM_OneChannelMaxCycles(benchmark::State& state) {
    static const PulseRecord rec(1, 10);
    runAndReport(state, rec, benchParams(1, LevelMethod::Peaks, 1));
}
BENCHMARK(BM_OneChannelMaxCycles)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same with interpolated edges: an edge every five samples is where
// the crossings cost most.
void BM_OneChannelMaxCyclesInterpolated(benchmark::State& state) {
    static const PulseRecord rec(1, 10);
    runAndReport(state, rec, benchParams(1, LevelMethod::Peaks, 1, EdgeTiming::Interpolated));
}
BENCHMARK(BM_OneChannelMaxCyclesInterpolated)->Unit(benchmark::kMillisecond)->UseRealTime();

// A and B in quadrature, 500 samples per cycle (20,000 counts), recorded like
// the pulses above: four-sample edges, noise, 8-bit codes.
const PulseRecord& encoderPair() {
    static const PulseRecord rec(2, [seeds = std::array<uint32_t, 2>{777u, 778u}](int ch, int32_t i) mutable {
        // B a quarter cycle behind A.
        return codedPulse((i + 500 - 125 * ch) % 500, 250, seeds[static_cast<size_t>(ch)]);
    });
    return rec;
}

void BM_EncoderPair(benchmark::State& state) {
    AnalysisParams p = benchParams(2, LevelMethod::Peaks, 1);
    p.MaxCycles = 1000;
    p.encoder.on = state.range(0) != 0;
    p.encoder.minStateWidth = 1e-7;
    runAndReport(state, encoderPair(), p);
}
// Arg 0: the two channels alone; arg 1: with the encoder analysis.
BENCHMARK(BM_EncoderPair)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
