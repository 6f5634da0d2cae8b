#pragma once

#include <cstdint>
#include <vector>

// A clock of trapezoid pulses whose edge times are known exactly: the truth
// against which edge timing and jitter are checked, and the simulator's
// "clock" scenario.
namespace mervasto {

struct ClockWaveParams {
    double period = 100.37;  // samples
    double duty = 0.5;       // fraction of the period the pulse is high
    double rise = 6;         // samples from low to high (and back), linear
    double firstEdge = 20;   // undisturbed time of the first rising edge, samples
    float low = 0;           // volts
    float high = 1;
    double jitter = 0;  // sigma of each edge's Gaussian displacement, samples
    double noise = 0;   // sigma of Gaussian noise on every sample, volts
    // Quantisation to 2^bits codes over fullScaleLow..fullScaleHigh; 0: none.
    int bits = 0;
    float fullScaleLow = -0.25f;
    float fullScaleHigh = 1.25f;
    uint64_t seed = 1;
};

struct ClockWave {
    std::vector<float> samples;
    // Where each edge crosses the middle of low and high, in samples (the
    // sample index is the time); only edges that lie inside the record.
    std::vector<double> rising;
    std::vector<double> falling;
};

ClockWave MakeClockWave(const ClockWaveParams& p, int32_t length);

// The "clock" scenario: 3.3 V clocks of kClockPeriod samples with a rise of
// 6 samples and a little noise; each channel's edges jitter by its entry of
// kClockJitter (samples, Gaussian).
inline constexpr double kClockPeriod = 100.37;
inline constexpr double kClockJitter[4] = {0, 0.1, 0.5, 2};
std::vector<std::vector<float>> ClockScenario(int channels, int32_t length, uint32_t seed);

}  // namespace mervasto
