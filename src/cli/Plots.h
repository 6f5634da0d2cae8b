#pragma once

#include <string>
#include <vector>

#include "common/Outcome.h"

namespace mervasto {

class RunState;
class SeriesTrend;

// The pictures of --plots, drawn without any window: per analysed channel
// the wave overview (that channel alone, its narrowest and widest cycle
// marked), the histogram and the trend of its per-cycle values, as
// DIR/BASE_ChN_Wave.png, _Histogram.png and _Trend.png; with a series, its
// per-pass Min, Max and Mean as _Series.png. The files written are appended
// to written; the first failure ends the writing.
Outcome WriteChannelPlots(const RunState& state, const std::string& dir, const std::string& base,
                          std::vector<std::string>& written, const SeriesTrend* series = nullptr);

}  // namespace mervasto
