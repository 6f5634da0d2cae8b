#include "display/WaveNavigation.h"

#include <algorithm>
#include <cmath>

#include "results/SiFormat.h"

namespace mervasto {

double MaxMouseZoom(int32_t waveLength, double plotWidth) {
    if (waveLength <= 0 || plotWidth <= 0) return 1;
    return std::max(1.0, waveLength * kPixelsPerSampleAtMostZoom / plotWidth);
}

namespace {

int32_t clampFirst(int32_t waveLength, int32_t count, double first) {
    if (count <= 0) return 0;
    return static_cast<int32_t>(std::clamp(std::round(first), 0.0, static_cast<double>(waveLength - count)));
}

}  // namespace

TimeWindow ZoomAround(int32_t waveLength, double plotWidth, TimeWindow now, double fraction, double factor) {
    const int32_t oldCount = VisibleSamples(waveLength, now.zoom);
    if (oldCount == 0) return {1, 0};
    const double anchor = now.first + fraction * oldCount;
    TimeWindow next;
    next.zoom = std::clamp(now.zoom * factor, 1.0, MaxMouseZoom(waveLength, plotWidth));
    const int32_t count = VisibleSamples(waveLength, next.zoom);
    next.first = clampFirst(waveLength, count, anchor - fraction * count);
    return next;
}

int32_t PannedFirst(int32_t waveLength, double plotWidth, TimeWindow now, double dx) {
    const int32_t count = VisibleSamples(waveLength, now.zoom);
    if (count == 0 || plotWidth <= 0) return 0;
    return clampFirst(waveLength, count, now.first - dx * count / plotWidth);
}

int CycleAt(const std::vector<CycleRecord>& cycles, double sample) {
    // Records are in edge order; the one starting last at or before the
    // sample is the only candidate.
    auto it = std::upper_bound(cycles.begin(), cycles.end(), sample,
                               [](double s, const CycleRecord& r) { return s < r.FirstEdge; });
    while (it != cycles.begin()) {
        --it;
        if (it->LastEdge <= it->FirstEdge) continue;  // holds no stretch
        return sample <= it->LastEdge ? static_cast<int>(it - cycles.begin()) : -1;
    }
    return -1;
}

std::string CycleTip(int ch, int index, const CycleRecord& r, float sampleSec) {
    const double dt = sampleSec;
    std::string tip = "Ch" + std::to_string(ch + 1) + " cycle " + std::to_string(index + 1);
    auto line = [&tip](const char* name, const std::string& value) { tip += std::string("\n") + name + " " + value; };
    line("Period", SiText(r.Period * dt, "s"));
    line("Width", SiText(r.PulseWidth * dt, "s"));
    line("Duty", SiText(r.Duty, "%"));
    line("Frequency", SiText(r.Freq, "Hz"));
    line("Amplitude", SiText(r.Ample, "V"));
    line("Rms", SiText(r.Rms, "V"));
    return tip;
}

std::string CursorReadout(const WaveView& view) {
    const double c1 = view.cursor[0], c2 = view.cursor[1];
    if (!(c1 >= 0 && c2 >= 0) || view.WaveLength <= 0) return {};
    const double t1 = view.startTime + c1 * view.SampleSec, t2 = view.startTime + c2 * view.SampleSec;
    const double dt = (c2 - c1) * view.SampleSec;
    std::string text = "t1 " + SiText(t1, "s") + "   t2 " + SiText(t2, "s") + "   \xCE\x94t " + SiText(dt, "s");
    text += "   1/\xCE\x94t " + (dt != 0 ? SiText(1 / dt, "Hz") : std::string("-"));
    auto at = [&view](const WaveChannelView& c, double cursor) {
        const auto i = static_cast<size_t>(std::clamp(std::lround(cursor), 0L, static_cast<long>(view.WaveLength) - 1));
        return SiText(c.volts[i], "V");
    };
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!ChannelDrawn(view, ch)) continue;
        const WaveChannelView& c = view.channel[static_cast<size_t>(ch)];
        text += "\nCh" + std::to_string(ch + 1) + "  " + at(c, c1) + "   " + at(c, c2);
    }
    return text;
}

}  // namespace mervasto
