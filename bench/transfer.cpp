// Transfers from the local simulator: a 5,000,000-sample word-format channel
// of the legacy instrument, converted to volts (target: at most 0.3 s), and
// per family a whole fetch of 4 x 1,000,000 8-bit points (target: at most
// 0.5 s beyond the simulator's own time to make and hand over its replies,
// reported as "beyond_sim_s"); the same fetch over VXI-11 on loopback (the
// program's own RPC client; through liblxi too when the portmapper port can
// be had) and over the USBTMC stand-in (target for VXI-11: within twice the
// raw socket's time).
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <memory>

#include "dso/DsoLink.h"
#include "dso/DsoSetupReadout.h"
#include "dso/Instrument.h"
#include "dso/WaveTransfer.h"
#include "sim/DsoSimulator.h"

namespace {

using namespace mervasto;

class NullUi : public UiPort {
public:
    void setStatus(int, const std::string&) override {}
    MsgAnswer messageBox(const std::string&, MsgButtons, const std::string&) override { return MsgAnswer::Ok; }
    std::optional<std::string> chooseOpenFile(const std::string&, const std::string&, const std::string&,
                                              const std::string&) override {
        return std::nullopt;
    }
    std::optional<std::string> chooseSaveFile(const std::string&, const std::string&, const std::string&,
                                              const std::string&) override {
        return std::nullopt;
    }
    std::optional<uint32_t> chooseColor(uint32_t) override { return std::nullopt; }
};

QCoreApplication& App() {
    static int argc = 1;
    static char name[] = "bench_transfer";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

void BM_WordTransfer5M(benchmark::State& state) {
    App();
    SimOptions o;
    o.state.model = "DS-5354";
    o.state.recordLength = 5'000'000;
    o.state.acqMode = "HIGH_RES";
    DsoSimulator sim(o);
    if (!sim.start()) {
        state.SkipWithError("the simulator did not start");
        return;
    }
    DsoLink link;
    DsoSetup setup;
    NullUi ui;
    if (!ConnectAndIdentify(link, setup, ui, sim.address()) || !ReadDsoSetup(link, setup, ui, sim.address(), false)) {
        state.SkipWithError("no link to the simulator");
        return;
    }
    WaveRecord record;
    std::array<std::string, 4> vrate{"1", "1", "1", "1"};
    WaveTransferContext ctx{setup, record, vrate, "Period", nullptr};
    for (auto _ : state) {
        const WaveTransferResult r = TransferDsoChannel(link, 0, ctx, record);
        benchmark::DoNotOptimize(r);
        if (r.points != 10'000'000) state.SkipWithError("short block");
    }
    state.SetBytesProcessed(state.iterations() * int64_t{10'000'000});
    link.close();
    sim.stop();
}
BENCHMARK(BM_WordTransfer5M)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);

// The whole fetch of a family's instrument: setup, then four channels of
// 1,000,000 byte samples each, through the instrument interface, over the
// transport named ("raw", "vxi11", "usbtmc"; "liblxi": VXI-11 with the
// portmapper on its usual port).
void BM_Fetch4x1M(benchmark::State& state, const char* dialect, const char* transport) {
    App();
    SimOptions o;
    o.dialect = dialect;
    o.state.recordLength = 1'000'000;
    const bool liblxi = std::string(transport) == "liblxi";
    o.transport = liblxi ? "vxi11" : transport;
    if (liblxi) o.port = 111;
    DsoSimulator sim(o);
    if (!sim.start()) {
        state.SkipWithError("the simulator did not start");
        return;
    }
    const std::string address = liblxi ? "vxi11://127.0.0.1" : sim.address();
    Instrument instrument;
    DsoSetup setup;
    NullUi ui;
    if (!instrument.connect(setup, ui, address, "Auto")) {
        state.SkipWithError("no link to the simulator");
        return;
    }
    WaveRecord record;
    std::array<std::string, 4> vrate{"1", "1", "1", "1"};
    DsoTransferInputs in{address, false, vrate, "Period"};
    const double servedBefore = sim.servingSeconds();
    double wall = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        if (!instrument.fetch(setup, record, ui, in) || record.WaveLength != 1'000'000)
            state.SkipWithError("the fetch failed");
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["sim_s"] = (sim.servingSeconds() - servedBefore) / n;
    state.counters["beyond_sim_s"] = (wall - (sim.servingSeconds() - servedBefore)) / n;
    state.SetBytesProcessed(state.iterations() * int64_t{4'000'000});
    instrument.close();
    sim.stop();
}
BENCHMARK_CAPTURE(BM_Fetch4x1M, legacy, "legacy", "raw")->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, rigol, "rigol", "raw")->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, siglent, "siglent", "raw")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, keysight, "keysight", "raw")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, tektronix, "tektronix", "raw")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, legacy_vxi11, "legacy", "vxi11")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, rigol_vxi11, "rigol", "vxi11")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, rigol_liblxi, "rigol", "liblxi")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);
BENCHMARK_CAPTURE(BM_Fetch4x1M, rigol_usbtmc, "rigol", "usbtmc")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(10);

}  // namespace
