#include "display/ChannelPlots.h"

#include <algorithm>

#include "analysis/CycleQuantity.h"
#include "app/RunState.h"
#include "common/Numeric.h"
#include "display/WavePainter.h"

namespace mervasto {

std::vector<double> RunCycleValues(const RunState& state, int ch) {
    const auto& s = state.settings().channels[static_cast<size_t>(ch)];
    if (!QuantityOfType(s.ChInputSignal).field) return {};
    return CycleValues(s.ChInputSignal, state.results().cycles.channel[static_cast<size_t>(ch)],
                       state.record().SampleSec, Val(s.VRate));
}

PlotSeries RunEncoderPositions(const RunState& state) {
    const EncoderResult& encoder = state.results().encoder;
    return {SampleTimes(encoder.stepAt, state.record().SampleSec, RecordStartTime(state.setup())),
            encoder.stepPosition};
}

ChannelPlots RunChannelPlots(const RunState& state, int ch, int32_t bins) {
    const auto& s = state.settings().channels[static_cast<size_t>(ch)];
    const auto& cycles = state.results().cycles.channel[static_cast<size_t>(ch)];
    const double sampleSec = state.record().SampleSec;
    // On the wave windows' time axis: from the trigger, or the imported file's own times.
    const double start = RecordStartTime(state.setup());
    ChannelPlots p;
    p.unit = QuantityOfType(s.ChInputSignal).unit;
    p.cycles.values = RunCycleValues(state, ch);
    p.cycles.times = CycleTimes(cycles, sampleSec);
    for (double& t : p.cycles.times) t += start;
    p.cycles.times.resize(p.cycles.values.size());
    // The analysis measured the jitter, and kept each edge's error for this.
    const TieTrend& tie = state.results().tie[static_cast<size_t>(ch)];
    p.tie = {SampleTimes(tie.at, sampleSec, start), tie.error};
    p.encoder = RunEncoderPositions(state);
    p.numbers = CycleNumbers(std::max({p.cycles.values.size(), p.tie.values.size(), p.encoder.values.size()}));
    p.histogram = MakeHistogram(p.cycles.values, bins, ValueQuantum(p.unit, cycles, sampleSec));
    return p;
}

}  // namespace mervasto
