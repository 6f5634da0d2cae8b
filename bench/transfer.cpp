// A 5,000,000-sample word-format transfer of one channel from the local
// simulator, converted to volts (target: at most 0.3 s).
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <memory>

#include "dso/DsoLink.h"
#include "dso/DsoSetupReadout.h"
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

void BM_WordTransfer5M(benchmark::State& state) {
    static int argc = 1;
    static char name[] = "bench_transfer";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);

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

}  // namespace
