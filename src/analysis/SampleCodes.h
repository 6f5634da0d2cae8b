#pragma once

#include <cstdint>
#include <span>

// The two 16-bit forms of a channel's volts, made in one pass over the
// samples: a record of millions of samples is converted while the user waits
// for the load.
namespace mervasto {

// raw[k] = RawFromVolts(volts[k], voltsPerDiv, offset) and display[k] = the
// display code (offset + volts[k]) / voltsPerDiv x 32 + 128, rounded half to
// even: 32 codes per division around the screen centre 128. voltsPerDiv must
// not be 0. Converts min(sizes) samples. Returns false when a display code
// does not fit 16 bits or is no number (raw is complete even then).
bool RawAndDisplayCodes(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> raw,
                        std::span<int16_t> display);

// Display codes alone, as above: for a channel with no usable raw scale.
bool DisplayCodes(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> display);

}  // namespace mervasto
