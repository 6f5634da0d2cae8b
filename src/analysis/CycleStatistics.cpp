#include "analysis/CycleStatistics.h"

#include <array>

#include "analysis/CycleQuantity.h"
#include "analysis/RunningStatistic.h"

namespace mervasto {

void SummariseCycles(int ch, int32_t signalType, std::span<const CycleRecord> cycles, float SampleSec, double VRate,
                     ChannelResultTable& table) {
    const int32_t count = static_cast<int32_t>(cycles.size());
    for (Measure kind : kMeasures) table.at(ch, kind).Counts = count;
    if (count == 0) return;
    const double ss = SampleSec;
    // The seeds show in the results: a maximum starts at 0, the duty's
    // minimum at 100, the minimum of "Min" at 0.
    std::array<RunningStatistic, kKinds> row;
    row.fill(RunningStatistic{1e30, 0});
    row[static_cast<size_t>(Measure::Duty)] = RunningStatistic{100, 0};
    if (signalType == kTypeMin) row[static_cast<size_t>(Measure::OfType)] = RunningStatistic{0, -1e30};
    // Each kind's field and scale, found once rather than per cycle.
    std::array<double CycleRecord::*, kKinds> field{};
    std::array<double, kKinds> factor{};
    for (size_t k = 0; k < kMeasures.size(); ++k) {
        const CycleQuantity q = QuantityOf(kMeasures[k], signalType);
        field[k] = q.field;
        factor[k] = q.factor(ss, VRate);
    }
    // The true extremes beside the seeded ones. A record of a pulse type
    // whose period is 0 has no cycle before it: only its pulse width is a
    // measurement.
    std::array<double, kKinds> lowest{}, highest{};
    std::array<int32_t, kKinds> measured{};
    for (const CycleRecord& c : cycles)
        for (size_t k = 0; k < kKinds; ++k) {
            const double v = field[k] ? c.*field[k] * factor[k] : 0;
            row[k].add(v);
            if (!field[k] || (c.Period == 0 && field[k] != &CycleRecord::PulseWidth)) continue;
            lowest[k] = measured[k] && lowest[k] <= v ? lowest[k] : v;
            highest[k] = measured[k] && highest[k] >= v ? highest[k] : v;
            ++measured[k];
        }
    for (size_t k = 0; k < kKinds; ++k) {
        ChannelResult& r = table.at(ch, kMeasures[k]);
        row[k].storeInto(r);
        r.Valid = true;
        r.Measured = measured[k];
        r.Lowest = lowest[k];
        r.Highest = highest[k];
    }
}

void ClearChannelResult(ChannelResultTable& table, int ch) {
    for (Measure kind : kMeasures) {
        ChannelResult& r = table.at(ch, kind);
        r.Min = r.Max = r.Mean = r.Sigma = 0;
        r.Counts = r.Measured = 0;
        r.Lowest = r.Highest = 0;
        r.Go = false;
        r.Valid = false;
    }
}

}  // namespace mervasto
