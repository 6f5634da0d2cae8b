#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "results/ResultGrids.h"

namespace mervasto {

// One pass of a repeat series as the result grid shows it for a channel.
struct SeriesPoint {
    int32_t pass = 0;
    double min = 0;
    double max = 0;
    double mean = 0;  // NaN where the result grid gives it in another unit
};

// Per channel, the Min, Max and Mean of every pass of a repeat series, in
// pass order. Adding a pass costs four appends, so that following a long
// series never slows it.
class SeriesTrend {
public:
    void clear();
    // The statistics of each channel that holds a measurement this pass.
    void add(int32_t pass, const ChannelResultTable& table, const ChannelDisplays& channels);
    std::span<const SeriesPoint> channel(int ch) const { return points_[static_cast<size_t>(ch)]; }
    // Passes added since the last clear, with or without measurements.
    int32_t passes() const { return passes_; }

private:
    std::array<std::vector<SeriesPoint>, kChannels> points_;
    int32_t passes_ = 0;
};

// "Pass,Min (unit),Max (unit),Mean (unit)" then one line per pass (an
// empty mean where it is not in that unit).
std::string SeriesTrendCsv(std::span<const SeriesPoint> points, const std::string& unit);

}  // namespace mervasto
