#pragma once

#include <cstdint>
#include <vector>

// The "hand-turned" scenario: an incremental encoder turned by hand, with a
// known truth for the encoder analysis to be checked against.
namespace mervasto {

// What a perfect decoder reads from the record before the bounce is added.
// Times in samples.
struct HandTurnedTruth {
    double phaseDeg = 0;       // B's lag behind A when turning forward
    int32_t cyclesPerRev = 0;  // A cycles per revolution (one index each)
    int64_t position = 0;      // x4 counts from the first to the last sample
    int32_t reversals = 0;
    double minStateWidth = 0;                          // narrowest state of A and B together
    int32_t bounceSamples = 0;                         // every bounce burst ends this long after its edge
    int32_t bounces = 0;                               // short states added to A and B
    int32_t indexCount = 0;                            // rising edges of Z
    double phaseMin = 0, phaseMax = 0, phaseMean = 0;  // over A cycles without a reversal
    int32_t phaseCounts = 0;
};

// A on channel 0, B on 1, Z on 2, channel 3 quiet; rail-to-rail bounce after
// each A and B edge, noise on every channel. `out` holds the channels asked
// for, each already sized to the record length; the same seed gives the same
// record.
HandTurnedTruth GenerateHandTurned(std::vector<std::vector<float>>& out, uint32_t seed);

}  // namespace mervasto
