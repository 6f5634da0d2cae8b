#pragma once

#include <cstdint>
#include <span>

// Centred moving average of an odd number of samples.
namespace mervasto {

// Samples each side of the centre: integer part of SmoothingNo / 2 (0 for
// SmoothingNo below 2, i.e. no smoothing). An even length works as the next
// odd one.
int32_t HalfSmooth(int32_t SmoothingNo);

// out[k] = mean of record[from + k - hs .. from + k + hs] (hs = HalfSmooth),
// for k = 0..count-1. Samples outside [from, from + count) are used when the
// record has them; a sample closer than hs to either end of the record is
// passed on unsmoothed. out must hold count values.
//
// Up to 15 samples the mean is the single-precision sum of the samples, left
// to right, times 1 / length. Longer averages keep a running sum in double,
// restarted from a direct sum every 4096 samples of the record (counted from
// sample 0, so the result does not depend on `from`) and updated in between
// by adding the sample that enters and subtracting the one that leaves.
void SmoothSamples(std::span<const float> record, int32_t from, int32_t count, int32_t SmoothingNo,
                   std::span<float> out);

}  // namespace mervasto
