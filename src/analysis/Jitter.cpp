#include "analysis/Jitter.h"

#include "analysis/RunningStatistic.h"

#include <algorithm>
#include <cmath>

namespace mervasto {

namespace {

struct JitterRun {
    RunningStatistic c2c;
    RunningStatistic tie;
    int32_t runs = 0;
    double SampleSec;
    // When set: each edge's time (samples) and its error (seconds), in order.
    TieTrend* trend = nullptr;

    // One unbroken run of m rising edges, edge(i) in samples. The times are
    // taken relative to the first edge so that the fit keeps its precision
    // in records of millions of samples; the edges are read twice rather
    // than copied, so that a run allocates nothing.
    template <class Edge>
    void add(size_t m, Edge edge) {
        if (m == 0) return;
        ++runs;
        for (size_t i = 2; i < m; ++i) c2c.add(((edge(i) - edge(i - 1)) - (edge(i - 1) - edge(i - 2))) * SampleSec);
        if (m < 3) return;  // two edges always lie on their line
        const double t0 = edge(0);
        const double mi = (static_cast<double>(m) - 1) / 2;
        double sy = 0, sxy = 0, sxx = 0;
        for (size_t i = 0; i < m; ++i) {
            const double x = static_cast<double>(i) - mi;
            const double y = edge(i) - t0;
            sy += y;
            sxy += x * y;
            sxx += x * x;
        }
        const double slope = sxy / sxx;
        const double mean = sy / static_cast<double>(m);
        for (size_t i = 0; i < m; ++i) {
            const double x = static_cast<double>(i) - mi;
            const double error = (edge(i) - t0 - (mean + slope * x)) * SampleSec;
            tie.add(error);
            if (trend) {
                trend->at.push_back(edge(i));
                trend->error.push_back(error);
            }
        }
    }
};

}  // namespace

JitterResult MeasureJitter(int32_t signalType, std::span<const CycleRecord> cycles, double SampleSec, TieTrend* trend) {
    JitterRun acc{{}, {}, 0, SampleSec, trend};
    if (trend) ClearTieTrend(*trend);
    const bool pulse = IsPulseType(signalType);
    // Cycles first..last - 1 make one run: their rising edges, and for period
    // types the closing rising edge of the last one.
    auto addRun = [&](size_t first, size_t last) {
        if (first == last) return;
        const size_t m = last - first + (pulse ? 0 : 1);
        acc.add(m, [&](size_t i) {
            const size_t n = first + i;
            return n < last ? cycles[n].FirstCrossing : cycles[last - 1].LastCrossing;
        });
    };
    size_t first = 0;
    for (size_t n = 1; n < cycles.size(); ++n) {
        // A cycle that does not start where the last one ended follows a
        // break. A pulse's period belongs to the cycle that ends at its
        // rising edge, so after a break it is 0, or, when a rising edge came
        // between the last pulse and the reject range, the length of a
        // cycle that ended before it: either way not the gap between the
        // two pulses.
        const CycleRecord& c = cycles[n];
        const bool broken =
            pulse ? c.Period == 0 || std::fabs(c.FirstCrossing - cycles[n - 1].FirstCrossing - c.Period) > 0.5
                  : c.FirstEdge != cycles[n - 1].LastEdge;
        if (broken) {
            addRun(first, n);
            first = n;
        }
    }
    addRun(first, cycles.size());

    JitterResult r;
    r.Runs = acc.runs;
    if (acc.c2c.count > 0) {
        acc.c2c.storeInto(r);
        r.Valid = true;
    }
    if (acc.tie.count > 0) {
        r.TieRms = std::sqrt(acc.tie.squares / acc.tie.count);
        r.TiePeakToPeak = acc.tie.max - acc.tie.min;
        r.TieCounts = acc.tie.count;
    }
    return r;
}

}  // namespace mervasto
