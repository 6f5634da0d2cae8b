#pragma once

#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// The 16-bit forms of a record loaded from a file: display codes for the
// channels the setup records (2 or 4) and the record holds, and the raw
// samples the levels are found from for those of them with a volts-per-
// division above 0 (the others get none, so they give no levels and no
// cycles). WaveLength samples of each. A long record is converted two
// channels beside two, by a job of the work pool. Throws a RuntimeError when
// a channel held has no volts per division or a display code does not fit
// 16 bits.
void FillSampleCodes(const DsoSetup& setup, WaveRecord& record);

}  // namespace mervasto
