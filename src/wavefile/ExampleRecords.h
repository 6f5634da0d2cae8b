#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// The bundled example records, made the same way every time:
//   "pulses"      4 channels of pulse trains with different periods and duties
//   "duty-sweep"  2 channels: a duty sweeping from 10 % to 90 %, and a steady 50 %
//   "gated"       pulses on Ch1..Ch3 and one gate pulse on Ch4 over the middle
// Samples are quantised to an 8-bit screen (32 steps per division) with a
// noise below one step, as a quiet instrument delivers them.
std::vector<std::string> ExampleNames();
// False for an unknown name.
bool MakeExampleRecord(std::string_view name, DsoSetup& setup, WaveRecord& record);

}  // namespace mervasto
