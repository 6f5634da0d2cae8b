#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "app/core/Settings.h"

namespace mervasto {

inline constexpr int64_t kMaxTotalRepeats = 16000;
inline constexpr int64_t kMaxMaxCycles = 500000;

// A moving average shorter than one sample means none: below 1 becomes "1",
// anything else is kept as typed.
std::string CheckSmoothingNo(std::string_view text);

// The smoothing length the analysis uses for a SmoothingNo text.
int32_t SmoothingCountOf(std::string_view smoothingNo);

// The start-up steps that need no window, applied after the resume file was
// loaded: a channel type for every channel, TotalRepeats and MaxCycles
// clamped, SmoothingNo checked, and the output folder and base names built
// when the resume file had none. Returns the smoothing length.
int32_t ApplyStartupSettings(Settings& settings, std::string_view dataFolder);

}  // namespace mervasto
