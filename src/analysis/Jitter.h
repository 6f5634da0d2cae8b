#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/AnalysisTypes.h"

// Jitter of one channel, from its cycle records: how much successive periods
// differ (cycle-to-cycle) and how far each rising edge strays from an ideal
// clock (time interval error).
namespace mervasto {

struct JitterResult {
    // Cycle-to-cycle: the difference of each two successive periods, seconds.
    double Min = 0;
    double Max = 0;
    double Mean = 0;
    double Sigma = 0;
    int32_t Counts = 0;
    // Time interval error of each rising edge against the straight line
    // fitted to edge time over edge number, seconds.
    double TieRms = 0;
    double TiePeakToPeak = 0;
    int32_t TieCounts = 0;  // edges in runs of three or more
    int32_t Runs = 0;       // unbroken runs of edges
    bool Valid = false;     // at least one difference of periods
    // Whole-sample edges and a cycle-to-cycle σ of at most one sample: the
    // spread may be no more than the rounding of the edges (the run sets it).
    bool withinOneSample = false;
};

inline constexpr const char* kJitterWholeSampleHint =
    "cycle-to-cycle jitter within one sample: whole-sample edges hide it; choose Edge Timing Interpolated";

// Runs are broken where the cycles do not share an edge (a reject range) and
// end with the records (the cycle limit). Pulse types take each pulse's
// rising edge.
//
// With a trend, also each edge's time interval error against its time, for a
// plot: what users look at first to see drift or a wobble in a clock.
struct TieTrend {
    std::vector<double> at;     // rising edges, record samples
    std::vector<double> error;  // seconds
};
// Empties a trend but keeps its memory for the next run.
inline void ClearTieTrend(TieTrend& t) {
    t.at.clear();
    t.error.clear();
}
JitterResult MeasureJitter(int32_t signalType, std::span<const CycleRecord> cycles, double SampleSec,
                           TieTrend* trend = nullptr);

}  // namespace mervasto
