#pragma once

#include <string>

#include "analysis/AnalysisTypes.h"
#include "results/ResultGrids.h"

namespace mervasto {

// The result grid for a spreadsheet: a column per channel with results (not
// off, not the gate), headed by its label, signal name, type and unit; then
// the rows Min, Max, Mean, σ and Counts as plain numbers in SI base units
// that read back exactly. Cells split by tabs, lines end in CR LF.
std::string ResultNumbersText(const ChannelDisplays& channels, const ChannelResultTable& table);

}  // namespace mervasto
