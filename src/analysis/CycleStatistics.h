#pragma once

#include <cstdint>
#include <span>

#include "analysis/AnalysisTypes.h"

// The statistics of one channel's cycles in the rows of the result table.
namespace mervasto {

// Statistics of cycles into the rows of channel ch (see docs/analysis.md for
// what each row measures). Counts of every row = cycles.size(); rows are
// marked Valid when there is at least one cycle.
void SummariseCycles(int ch, int32_t signalType, std::span<const CycleRecord> cycles, float SampleSec, double VRate,
                     ChannelResultTable& table);

// Zeroes the statistics, counts and flags of every row of the channel;
// levels, window and limits stay.
void ClearChannelResult(ChannelResultTable& table, int ch);

}  // namespace mervasto
