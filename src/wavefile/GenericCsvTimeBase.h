#pragma once

#include <string>

#include "wavefile/DsoSetup.h"
#include "wavefile/GenericCsvLayout.h"
#include "wavefile/GenericCsvRows.h"

// The time base of an imported capture and the scales it is shown with.
namespace mervasto {

// The sample interval: from a time column (last − first) / (rows − 1), every
// row checked against its place; otherwise givenInterval or the file's own
// metadata line. Refuses (TypeMismatch) a capture without one, and a time
// column of one row, one that does not increase or one not evenly spaced.
double ImportInterval(const Rows& rows, const CsvLayout& layout, double givenInterval, const std::string& name);

// The setup of the record the rows become: 2 or 4 channels, the interval,
// the record length in tens, a delay that puts the file's time 0 at the
// trigger (t0 is the first row's time), and per channel a volts per division
// and offset that fit the samples on the screen.
DsoSetup ImportedSetup(const Rows& rows, size_t signals, double interval, double t0, std::string dateTime,
                       const std::string& name);

}  // namespace mervasto
