#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "display/WavePainter.h"

// What the mouse does to a wave view: zoom around the pointer, pan, the time
// cursors' readout and the cycle under the pointer. Pure arithmetic on the
// view, so the windows stay thin and this is tested without one.
namespace mervasto {

// The stretch of the record a window shows.
struct TimeWindow {
    double zoom = 1;
    int32_t first = 0;
};

// The mouse zooms in no further than one sample per this many pixels.
constexpr double kPixelsPerSampleAtMostZoom = 10;

double MaxMouseZoom(int32_t waveLength, double plotWidth);

// Zooms by factor (> 1 in, < 1 out) keeping the sample under the pointer at
// the same place; fraction is the pointer's position across the plot, 0..1.
TimeWindow ZoomAround(int32_t waveLength, double plotWidth, TimeWindow now, double fraction, double factor);

// The first sample after the picture was dragged dx pixels to the right.
int32_t PannedFirst(int32_t waveLength, double plotWidth, TimeWindow now, double dx);

// The cycle record whose stretch FirstEdge..LastEdge holds the sample, -1 for
// none. For the pulse types that stretch is the record's own pulse.
int CycleAt(const std::vector<CycleRecord>& cycles, double sample);

// "Ch1 cycle 12" and the record's values, one per line.
std::string CycleTip(int ch, int index, const CycleRecord& r, float sampleSec);

// t1, t2, Δt and 1/Δt, then each drawn channel's values at both cursors.
std::string CursorReadout(const WaveView& view);

}  // namespace mervasto
