#include "results/SeriesTrend.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>

#include "results/ResultGrids.h"

namespace mervasto {

void SeriesTrend::clear() {
    for (auto& p : points_) p.clear();
    passes_ = 0;
}

void SeriesTrend::add(int32_t pass, const ChannelResultTable& table, const ChannelDisplays& channels) {
    ++passes_;
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelResult& r = table.at(ch, Measure::OfType);
        if (!r.Valid) continue;
        // "P.W.(%)" gives Min and Max in percent but the Mean in seconds.
        const UnitPair units = ResultUnits(channels[static_cast<size_t>(ch)].typeIndex);
        const double mean =
            std::string_view(units.first) == units.second ? r.Mean : std::numeric_limits<double>::quiet_NaN();
        points_[static_cast<size_t>(ch)].push_back({pass, r.Min, r.Max, mean});
    }
}

std::string SeriesTrendCsv(std::span<const SeriesPoint> points, const std::string& unit) {
    std::string out = "Pass,Min (" + unit + "),Max (" + unit + "),Mean (" + unit + ")\r\n";
    char buf[96];
    for (const SeriesPoint& p : points) {
        std::snprintf(buf, sizeof buf, "%d,%.9g,%.9g,", p.pass, p.min, p.max);
        out += buf;
        if (std::isfinite(p.mean)) {
            std::snprintf(buf, sizeof buf, "%.9g", p.mean);
            out += buf;
        }
        out += "\r\n";
    }
    return out;
}

}  // namespace mervasto
