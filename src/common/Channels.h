#pragma once

namespace mervasto {

// The input channels the program measures, Ch1..Ch4, counted from 0 in the
// code. The instrument's own per-channel tables count from 1 (DsoSetup).
inline constexpr int kChannels = 4;

}  // namespace mervasto
