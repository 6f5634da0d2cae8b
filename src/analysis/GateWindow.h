#pragma once

#include <cstdint>
#include <span>

// The stretch of the record that the channels are analysed over: the first
// pulse of the gate channel (or the whole record), less the margin.
namespace mervasto {

struct SampleRange {
    int32_t start = 0;
    int32_t end = -1;  // last index, included
};

// FindGateRange: walks samples from..to of the gate channel and writes
// GateStart (the sample before the first rise through the centre that came
// from below centre - h) and GateEnd (the first sample back below the centre
// after it has risen to centre + h). Values not found keep what they held.
void FindGateRange(std::span<const float> volts, float centre, float h, int32_t from, int32_t to, int32_t& GateStart,
                   int32_t& GateEnd);

// ApplyLimitPoints: cuts margin / 10 of the record length n off both ends of
// [start, end]. A margin that leaves nothing (or reaches outside the record)
// is ignored and the range comes back unchanged.
SampleRange ApplyLimitPoints(int32_t start, int32_t end, int32_t n, float margin);

}  // namespace mervasto
