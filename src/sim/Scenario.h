#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mervasto {

// Signals the simulated instrument records, in volts per channel:
//   "pulses"     pulse trains with edge jitter and noise, a different
//                frequency and duty on each channel
//   "duty-sweep" pulse trains whose duty runs from 10 % to 90 % over the record
//   "encoder"    quadrature A (Ch1) and B (Ch2), an index pulse (Ch3), Ch4 quiet
//   "gate"       pulses on Ch1-3 and one gate pulse on Ch4 over the middle half
//   "flat"       Ch1 a flat 1 V line without noise, pulses on the others
//   "hand-turned" an encoder turned back and forth by hand: A, B with contact
//                bounce, index Z (Ch3); its truth in sim/HandTurned.h
//   "clock"      clocks of 100.37 samples per period whose edges jitter by
//                0, 0.1, 0.5 and 2 samples on Ch1..Ch4 (see ClockWave.h)
// The same seed gives the same record. Throws std::invalid_argument for an
// unknown name.
std::vector<std::vector<float>> GenerateScenario(const std::string& name, int channels, int32_t length,
                                                 uint32_t seed = 1);

const std::vector<std::string>& ScenarioNames();

// The samples per period of a channel's pulse train in a record of `length`.
double ScenarioPeriod(int channel, int32_t length);

}  // namespace mervasto
