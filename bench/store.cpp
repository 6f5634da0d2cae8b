// The results store's targets: storing one pass of four channels in SQLite
// (at most 1 ms), and a line's store of 16,000 such passes (at most 60 MB)
// summarised by `mervasto-cli results summary` (at most 0.2 s).
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "cli/Cli.h"
#include "store/ResultStore.h"

namespace {

using namespace mervasto;

std::filesystem::path benchFolder() {
    static const std::filesystem::path dir = [] {
        auto d = std::filesystem::temp_directory_path() / ("mervasto-bench-store-" + std::to_string(::getpid()));
        std::filesystem::create_directories(d / "OutputData");
        return d;
    }();
    return dir;
}

// A run with as many settings as the program has (about seventy).
RunInfo lineRun() {
    RunInfo run;
    run.station = "line-1";
    run.sample = "Lot 7";
    run.program = "1.0.0";
    for (int i = 0; i < 70; ++i) run.settings.emplace_back("Setting" + std::to_string(i), std::to_string(i * 3));
    for (auto& c : run.channels) {
        c.typeIndex = kTypePeriod;
        c.typeText = "Period";
        c.name = "clock";
    }
    return run;
}

// Four channels, every kind measured, jitter on each, count and value limits set.
PassRecord linePass(int32_t n) {
    PassRecord p;
    p.passNumber = n;
    p.started = StoreTimeNow();
    p.sampleName = "Lot 7" + std::to_string(n);
    p.sampleIndex = std::to_string(n);
    p.source = "DS-5354 at 192.168.1.101:5198";
    p.inUse.fill(true);
    for (int ch = 0; ch < kChannels; ++ch) {
        for (Measure kind : kMeasures) {
            ChannelResult& r = p.table.at(ch, kind);
            r.Mean = 1e-3 * (1 + 1e-4 * std::sin(n * 0.01 + ch + static_cast<int>(kind)));
            r.Min = r.Mean * 0.999;
            r.Max = r.Mean * 1.001;
            r.Sigma = r.Mean * 1e-4;
            r.Counts = 500 + n % 7;
            r.Valid = true;
            r.LL = 400;
            r.UL = 600;
            r.ValueLimit1 = 0.9e-3f;
            r.ValueLimit2 = 1.1e-3f;
            r.Go = n % 50 != 0;
        }
        p.jitter[static_cast<size_t>(ch)] = {-1e-9, 1e-9, 0, 3e-10, 499, 2e-10, 1.5e-9, 498, 1, true, false};
    }
    return p;
}

void BM_StorePass(benchmark::State& state) {
    const auto file = benchFolder() / "pass.sqlite";
    std::filesystem::remove(file);
    ResultStore store;
    if (!store.open({false, file.string()}, true)) return state.SkipWithError("cannot open the store");
    const RunInfo run = lineRun();
    int32_t n = 0;
    for (auto _ : state) {
        const PassRecord pass = linePass(++n);
        if (!store.storePass(run, pass)) return state.SkipWithError("a pass was not stored");
    }
}
BENCHMARK(BM_StorePass)->Unit(benchmark::kMicrosecond);

// The line's store, built once as a series writes it: a transaction a pass.
const std::filesystem::path& lineStore() {
    static const std::filesystem::path folder = [] {
        auto data = benchFolder() / "line";
        std::filesystem::create_directories(data / "OutputData");
        ResultStore store;
        if (!store.open({false, (data / "OutputData" / kResultStoreFileName).string()}, true)) return data;
        const RunInfo run = lineRun();
        for (int32_t n = 1; n <= 16000; ++n) (void)store.storePass(run, linePass(n));
        return data;
    }();
    return folder;
}

void BM_Summary16000Passes(benchmark::State& state) {
    const auto file = lineStore() / "OutputData" / kResultStoreFileName;
    ResultStore store;
    if (!store.open({false, file.string()}, false)) return state.SkipWithError("no line store");
    std::vector<SummaryRow> rows;
    for (auto _ : state) {
        if (!store.summarise({}, rows)) return state.SkipWithError("summary failed");
        benchmark::DoNotOptimize(rows.data());
    }
    state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(file)) / 1e6;
    state.counters["groups"] = static_cast<double>(rows.size());
}
BENCHMARK(BM_Summary16000Passes)->Unit(benchmark::kMillisecond);

// The whole command, as a user runs it: start-up, the store opened, the
// summary read and printed.
void BM_ResultsSummaryCommand16000Passes(benchmark::State& state) {
    const std::vector<std::string> args = {"--data-folder", lineStore().string(), "results", "summary"};
    for (auto _ : state) {
        std::ostringstream out, err;
        if (RunCli(args, out, err) != 0) return state.SkipWithError(err.str().c_str());
        benchmark::DoNotOptimize(out.str().size());
    }
}
BENCHMARK(BM_ResultsSummaryCommand16000Passes)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);  // the command's run state has an instrument link
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ec;
    std::filesystem::remove_all(benchFolder(), ec);
}
