#include "display/RunWaveView.h"

#include "app/RunState.h"
#include "common/Numeric.h"

namespace mervasto {

WaveView RunWaveView(const RunState& state) {
    WaveView v;
    SetViewData(v, state.record(), state.results().table, state.results().cycles);
    for (int ch = 0; ch < kChannels; ++ch) {
        auto& c = v.channel[static_cast<size_t>(ch)];
        const auto& s = state.settings().channels[static_cast<size_t>(ch)];
        c.VoltsPerDiv = state.setup().voltsPerDiv(ch);
        c.Offset = state.setup().offset(ch);
        c.colour = static_cast<uint32_t>(s.BackColor);
        c.name = s.SigName;
    }
    v.Histerisis = static_cast<float>(Val(state.settings().analysis.Histerisis));
    v.startTime = RecordStartTime(state.setup());
    return v;
}

}  // namespace mervasto
