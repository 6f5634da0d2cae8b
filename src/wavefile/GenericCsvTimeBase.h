#pragma once

#include <string>

#include "wavefile/DsoSetup.h"
#include "wavefile/GenericCsvLayout.h"
#include "wavefile/GenericCsvRows.h"

// The time base of an imported capture and the scales it is shown with.
namespace mervasto {

// The fewest rows a capture of another program may have: fewer give no
// cycle worth a statistic, and are more likely a mistaken file.
inline constexpr size_t kMinImportRows = 10;

// The sample interval: from a time column (last − first) / (rows − 1), every
// row checked against its place; otherwise givenInterval or the head's own.
// Refuses (TypeMismatch) a time column whose time goes backwards or repeats,
// one not evenly spaced, and one that a line of the head contradicts.
double ImportInterval(const Rows& rows, const CsvLayout& layout, double givenInterval, const std::string& name);

// The setup of a record of `rows` samples in `signals` channels whose values
// span lo[c] .. hi[c]: 2 or 4 channels, the interval, the record length in
// tens, a delay that puts the file's time 0 at the trigger (t0 is the first
// row's time), and per channel a volts per division and offset that fit the
// samples on the screen.
DsoSetup ImportedSetup(size_t rows, size_t signals, const float* lo, const float* hi, double interval, double t0,
                       std::string dateTime, const std::string& name);

}  // namespace mervasto
