#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "common/Channels.h"

namespace mervasto {

// The longest record the program accepts: samples 0 .. 5000010.
constexpr int32_t kMaxSamples = 5000011;

// Four channels of samples taken at one common interval. wave[0] is Ch1
// (wave1) .. wave[3] is Ch4 (wave4); sample k of every channel was taken k x
// SampleSec after the first. The arrays are at least WaveLength long, but
// for a channel the source does not hold (Ch3 and Ch4 of a two-channel
// file), which is empty.
struct WaveRecord {
    std::array<std::vector<float>, kChannels> wave;  // volts
    // 16-bit samples on the instrument's scale (8192 counts per division),
    // from which the analysis finds the signal levels.
    std::array<std::vector<int16_t>, kChannels> raw;
    // Display codes: 32 per division around 128 (screen centre).
    std::array<std::vector<int16_t>, kChannels> displayCode;
    int32_t WaveLength = 0;
    float SampleSec = 0.0f;
    // The stored transfer range (sample numbers); -1 when never set, meaning
    // the whole record.
    int32_t TransferStart = -1;
    int32_t TransferEnd = -1;

    // Makes every volts array at least n samples long (never shrinks).
    void ensureLength(int32_t n) {
        for (auto& w : wave)
            if (static_cast<int32_t>(w.size()) < n) w.resize(static_cast<size_t>(n), 0.0f);
    }
};

}  // namespace mervasto
