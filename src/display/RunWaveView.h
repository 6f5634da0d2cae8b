#pragma once

#include "display/WavePainter.h"

namespace mervasto {

class RunState;

// The run's record and results in a view, with each channel's scale, colour
// and name and the hysteresis and time axis of the run; visibility, zoom and
// what else a picture shows are the caller's.
WaveView RunWaveView(const RunState& state);

}  // namespace mervasto
