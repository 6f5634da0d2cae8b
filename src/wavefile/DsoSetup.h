#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace mervasto {

// Channel prefixes of the per-channel arrays, index 1..5 (5 is the math trace).
constexpr std::array<const char*, 6> kChannelPrefix = {"", "C1", "C2", "C3", "C4", "M1"};

// Snapshot of the instrument's setup, read before the waves (or from a wave
// file's header). Per-channel arrays are indexed 1..5; index 0 is unused.
struct DsoSetup {
    std::string Model;
    int16_t ChannelCount = 0;
    std::string InfoDigit;
    std::string DateTime;
    std::string AcqMode;
    float TimePerDiv = 0.0f;      // s per division
    float TriggerDelay = 0.0f;    // s
    float SampleInterval = 0.0f;  // s between samples
    int32_t RecordLength = 0;     // samples per channel
    float TriggerLevel = 0.0f;    // V
    std::string TriggerSource;
    std::string TriggerMode;
    std::array<float, 6> VoltsPerDiv{};
    std::array<float, 6> Offset{};
    std::array<bool, 6> Inverted{};
    std::array<std::string, 6> Coupling;
    std::array<std::string, 6> BandwidthLimit;
    std::array<std::string, 6> TraceOn;
    std::array<float, 3> CursorPos{};  // [1], [2]: divisions from the left edge
    bool CursorsFromDso = false;

    // One channel's setup by the program's own channel number, 0 for Ch1:
    // the arrays above keep the instrument's numbering from 1.
    float voltsPerDiv(int ch) const { return VoltsPerDiv[index(ch)]; }
    float offset(int ch) const { return Offset[index(ch)]; }
    bool inverted(int ch) const { return Inverted[index(ch)]; }
    const std::string& traceOn(int ch) const { return TraceOn[index(ch)]; }
    const std::string& coupling(int ch) const { return Coupling[index(ch)]; }
    const std::string& bandwidthLimit(int ch) const { return BandwidthLimit[index(ch)]; }

private:
    static size_t index(int ch) { return static_cast<size_t>(ch) + 1; }
};

}  // namespace mervasto
