#include "analysis/EdgeScan.h"

#include <algorithm>
#include <cmath>

#include "analysis/SampleSources.h"
#include "analysis/Smoothing.h"

namespace mervasto {

using samples::MeanSamples;
using samples::PlainSamples;
using samples::RingSamples;
using samples::SpanMeasure;

int32_t CycleLimit(int32_t MaxCycles) { return std::clamp(MaxCycles, int32_t{1}, kCycleLimitMax); }

bool RejectRangeInForce(const ScanSettings& s, int32_t windowLength) {
    auto inside = [windowLength](int32_t i) { return i >= 1 && i <= windowLength - 1; };
    return s.OmitRangeEffect && s.rejectFlag && inside(s.rejectStart) && inside(s.rejectEnd);
}

namespace {

// Room for `limit` cycles, so that the scan itself never allocates.
void ReserveCycles(std::vector<CycleRecord>& cycles, int32_t limit) {
    if (cycles.capacity() < static_cast<size_t>(limit)) cycles.reserve(static_cast<size_t>(limit));
}

// How far back from the scan position a crossing is looked for: the ring
// of smoothed samples always holds at least this many behind it.
constexpr int32_t kCrossingReach = 16384;

// The edge scan over n samples of src; window sample 0 is sample `start`.
// `more` tells whether the window holds a further whole cycle (or pulse)
// after the cycle limit was reached: the scan goes on, recording nothing,
// until it finds one or reaches the end. Interp: the time fields come from
// the interpolated crossings; without it the scan is the whole-sample one,
// untouched. schmitt: the Schmitt edge rule, otherwise the legacy one, which
// counts in `passed` the crossings it passes over and the walks through the
// band that the window ends; with onlyCount, once it has passed one over
// its cycles are not measured any more (Auto will scan again).
template <bool Interp, class Src>
int32_t scanCyclesTimed(Src& src, int32_t n, int32_t start, const ScanSettings& s, const ChannelResult& levels,
                        std::vector<CycleRecord>& cycles, bool& more, bool schmitt, int32_t& passed, bool onlyCount) {
    const int32_t limit = CycleLimit(s.MaxCycles);
    ReserveCycles(cycles, limit);
    cycles.clear();
    more = false;
    if (n <= 0) return 0;
    const float level = levels.Level;
    const float h = (levels.HighLevel - level) * s.Histerisis / 100.0f;
    samples::BandWalk<Src> walk(src, n, level, h, n - s.halfSmooth - 2);
    const bool pulse = IsPulseType(s.signalType);
    const double sampleSec = s.SampleSec;

    // Local (window) indices from here on; the reject range is in sample
    // numbers and must lie within 1..window length - 1.
    samples::RejectSplit reject(RejectRangeInForce(s, n), s.rejectStart, s.rejectEnd, start);

    int32_t edge[3] = {0, 0, 0};
    double fine[3] = {0, 0, 0};  // the crossings, window-relative
    int32_t lowest = 0;          // no sample before this one belongs to the scan (a restart)
    int k = 0;
    int32_t cycle = 0;
    cycles.emplace_back();

    bool full = false;  // the cycle limit is reached; only looking for one more
    // Appends an edge; true when the scan is over.
    auto recordEdge = [&](int32_t e, double f) -> bool {
        fine[k] = f;
        edge[k++] = e;
        if (k == 2 && pulse) {
            if (full) return more = true;
            CycleRecord& c = cycles[static_cast<size_t>(cycle)];
            if constexpr (Interp)
                c.PulseWidth = fine[1] - fine[0];
            else
                c.PulseWidth = edge[1] - edge[0];
            c.FirstEdge = start + edge[0];
            c.LastEdge = start + edge[1];
            c.FirstCrossing = start + fine[0];
            c.LastCrossing = start + fine[1];
            if (++cycle >= limit)
                full = true;
            else
                cycles.emplace_back();
        }
        if (k == 3 && full) {
            if (!pulse) return more = true;
            k = 1;
            edge[0] = edge[2];
            fine[0] = fine[2];
        }
        if (k == 3) {
            if (edge[2] == edge[0]) edge[2] = edge[0] + 1;
            if (fine[2] <= fine[0]) fine[2] = fine[0] + 1;
            const int32_t e0 = edge[0], e1 = edge[1], e2 = edge[2];
            const double period = e2 - e0;
            const SpanMeasure m = onlyCount && passed > 0 ? SpanMeasure{0, 0, 0} : src.measure(e0, std::min(e2, n - 1));
            CycleRecord& c = cycles[static_cast<size_t>(cycle)];
            double timePeriod = period;
            if constexpr (Interp) {
                timePeriod = fine[2] - fine[0];
                c.Duty = (fine[1] - fine[0]) * 100.0 / timePeriod;
            } else {
                c.Duty = (e1 - e0) * 100.0 / period;
            }
            c.Period = timePeriod;
            c.MaxValue = m.maxValue;
            c.MinValue = m.minValue;
            c.Ample = m.maxValue - m.minValue;
            c.MidEdge = start + e1;
            c.MidCrossing = start + fine[1];
            if (!pulse) {
                c.FirstEdge = start + e0;
                c.LastEdge = start + e2;
                c.FirstCrossing = start + fine[0];
                c.LastCrossing = start + fine[2];
            }
            const double seconds = sampleSec * timePeriod;
            c.Freq = seconds != 0 ? 1.0 / seconds : 0.0;
            c.Rms = std::sqrt(m.sumSquares / period);
            if (!pulse) {
                if constexpr (Interp)
                    c.PulseWidth = fine[1] - fine[0];
                else
                    c.PulseWidth = e1 - e0;
                if (++cycle >= limit)
                    full = true;
                else
                    cycles.emplace_back();
            }
            k = 1;
            edge[0] = edge[2];
            fine[0] = fine[2];
        }
        return false;
    };

    bool stopped = false;
    while (!stopped) {
        // Up to the sample after which the reject range starts (or the end).
        const int32_t segEnd = reject.segmentEnd(n);
        while (walk.j < segEnd) {
            if (!walk.advance(segEnd)) break;
            const int32_t j = walk.j;
            const float v = src.at(j);
            if (v > walk.lowT && v < walk.highT) {
                // Inside the band: the edge is the middle of the traversal.
                const float w = walk.crossBand(v);
                const bool finished = std::fabs(w - v) >= walk.exitDistance;
                if (finished || !schmitt) {
                    const int32_t e = walk.bandEdge(start, j);
                    double f = e;
                    if constexpr (Interp)
                        if (!(onlyCount && passed > 0))
                            f = samples::crossingNear(src, std::max({j - 1, lowest, walk.j - kCrossingReach}), walk.j,
                                                      level, e);
                    if (recordEdge(e, f)) {
                        stopped = true;
                        break;
                    }
                }
                if (schmitt) {
                    walk.settleThenLook(w);
                } else {
                    walk.settle(w);
                    passed += finished ? walk.passedOver(w, segEnd) : 1;
                }
            } else if (v <= walk.lowT || v >= walk.highT) {
                if ((v - level) * (walk.p - level) >= 0.0f) {
                    walk.p = v;
                    walk.prev = j;
                } else {
                    // Jumped across the level between two samples.
                    const int32_t e = walk.jumpEdge(start, j);
                    double f = e;
                    if constexpr (Interp) f = walk.jumpCrossing(j, v);
                    if (recordEdge(e, f)) {
                        stopped = true;
                        break;
                    }
                    walk.p = v;
                    walk.prev = j;
                }
            }
            ++walk.j;
        }
        if (stopped || !reject.pending) break;
        // One reject range per run: drop the edges so far, restart unarmed.
        reject.pending = false;
        walk.j = reject.to;
        lowest = reject.to;
        src.restart(reject.to);
        walk.armed = false;
        k = 0;
    }

    cycles.resize(static_cast<size_t>(cycle));
    return cycle;
}

template <class Src>
int32_t scanCyclesRule(Src& src, int32_t n, int32_t start, const ScanSettings& s, const ChannelResult& levels,
                       std::vector<CycleRecord>& cycles, bool& more, bool schmitt, int32_t& passed,
                       bool onlyCount = false) {
    if (s.edgeTiming == EdgeTiming::Interpolated)
        return scanCyclesTimed<true>(src, n, start, s, levels, cycles, more, schmitt, passed, onlyCount);
    return scanCyclesTimed<false>(src, n, start, s, levels, cycles, more, schmitt, passed, onlyCount);
}

// Auto scans again only a channel on which the legacy rule passed something
// over; `passed` keeps what the legacy scan counted.
template <class Src>
int32_t scanCycles(Src& src, int32_t n, int32_t start, const ScanSettings& s, const ChannelResult& levels,
                   std::vector<CycleRecord>& cycles, bool& more, int32_t& passed) {
    passed = 0;
    if (s.edgeRule == EdgeRule::Schmitt) return scanCyclesRule(src, n, start, s, levels, cycles, more, true, passed);
    const bool automatic = s.edgeRule == EdgeRule::Auto;
    const int32_t found = scanCyclesRule(src, n, start, s, levels, cycles, more, false, passed, automatic);
    if (!automatic || passed == 0) return found;
    src.restart(0);
    int32_t again = 0;
    return scanCyclesRule(src, n, start, s, levels, cycles, more, true, again);
}

template <int HS>
int32_t scanMeans(std::span<const float> record, int32_t start, int32_t count, const ScanSettings& s,
                  const ChannelResult& levels, std::vector<CycleRecord>& cycles, std::vector<float>& scratch,
                  bool& more, int32_t& passed) {
    const MeanSamples<HS> mean(record.data(), static_cast<int32_t>(record.size()), start, count);
    if (scratch.size() < RingSamples<HS>::kFloats) scratch.resize(RingSamples<HS>::kFloats);
    RingSamples<HS> src(mean, scratch.data());
    return scanCycles(src, count, start, s, levels, cycles, more, passed);
}

}  // namespace

int32_t ExtractCycles(int ch, std::span<const float> window, int32_t start, const ScanSettings& s,
                      ChannelResultTable& table, std::vector<CycleRecord>& cycles, bool* moreCycles,
                      int32_t* passedOver) {
    ClearChannelResult(table, ch);
    const int32_t n = static_cast<int32_t>(window.size());
    PlainSamples src(window.data(), n);
    bool more = false;
    int32_t passed = 0;
    const int32_t count = scanCycles(src, n, start, s, table.levels(ch), cycles, more, passed);
    if (moreCycles) *moreCycles = more;
    if (passedOver) *passedOver = passed;
    SummariseCycles(ch, s.signalType, cycles, s.SampleSec, s.VRate, table);
    return count;
}

int32_t ExtractCyclesFromRecord(int ch, std::span<const float> record, int32_t start, int32_t count,
                                int32_t SmoothingNo, const ScanSettings& settings, ChannelResultTable& table,
                                std::vector<CycleRecord>& cycles, std::vector<float>& scratch, bool* moreCycles,
                                int32_t* passedOver) {
    ClearChannelResult(table, ch);
    bool more = false;
    int32_t passed = 0;
    ScanSettings s = settings;
    s.halfSmooth = HalfSmooth(SmoothingNo);
    const ChannelResult& levels = table.levels(ch);
    int32_t found = 0;
    if (count <= 0 || start < 0 || static_cast<size_t>(start) + static_cast<size_t>(count) > record.size()) {
        cycles.clear();
    } else {
        switch (s.halfSmooth) {
        case 0: {
            PlainSamples src(record.data() + start, count);
            found = scanCycles(src, count, start, s, levels, cycles, more, passed);
            break;
        }
        case 1: found = scanMeans<1>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        case 2: found = scanMeans<2>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        case 3: found = scanMeans<3>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        case 4: found = scanMeans<4>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        case 5: found = scanMeans<5>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        case 6: found = scanMeans<6>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        case 7: found = scanMeans<7>(record, start, count, s, levels, cycles, scratch, more, passed); break;
        default: {
            if (scratch.size() < static_cast<size_t>(count)) scratch.resize(static_cast<size_t>(count));
            const std::span<float> smoothed(scratch.data(), static_cast<size_t>(count));
            SmoothSamples(record, start, count, SmoothingNo, smoothed);
            PlainSamples src(smoothed.data(), count);
            found = scanCycles(src, count, start, s, levels, cycles, more, passed);
            break;
        }
        }
    }
    SummariseCycles(ch, s.signalType, cycles, s.SampleSec, s.VRate, table);
    if (moreCycles) *moreCycles = more;
    if (passedOver) *passedOver = passed;
    return found;
}

}  // namespace mervasto
