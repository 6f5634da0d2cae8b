#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "common/Channels.h"
#include "common/RuntimeError.h"

namespace mervasto {

// The traces a setup describes: Ch1..Ch4 and the instrument's math trace,
// counted from 0 like the channels.
inline constexpr int kSetupTraces = kChannels + 1;
inline constexpr int kMathTrace = kChannels;
// The instrument's name of each trace ("C1" is trace 0).
inline constexpr std::array<const char*, kSetupTraces> kTracePrefix = {"C1", "C2", "C3", "C4", "M1"};

// One trace's vertical setup.
struct TraceSetup {
    float VoltsPerDiv = 0.0f;
    float Offset = 0.0f;
    bool Inverted = false;
    std::string Coupling;
    std::string BandwidthLimit;
    std::string TraceOn;

    bool operator==(const TraceSetup&) const = default;
};

// Snapshot of the instrument's setup, read before the waves (or from a wave
// file's header). The per-trace entries count from 0 like the program's
// channels; the files and the instrument number them from 1, and only their
// readers and writers convert.
class DsoSetup {
public:
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
    // The two time cursors, in divisions from the left edge.
    std::array<float, 2> CursorPos{};
    bool CursorsFromDso = false;

    // One trace (0 = Ch1, kMathTrace = the math trace); a number outside
    // them is a subscript fault.
    TraceSetup& trace(int t) { return traces_[index(t)]; }
    const TraceSetup& trace(int t) const { return traces_[index(t)]; }

    float voltsPerDiv(int ch) const { return trace(ch).VoltsPerDiv; }
    float offset(int ch) const { return trace(ch).Offset; }
    bool inverted(int ch) const { return trace(ch).Inverted; }
    const std::string& traceOn(int ch) const { return trace(ch).TraceOn; }
    const std::string& coupling(int ch) const { return trace(ch).Coupling; }
    const std::string& bandwidthLimit(int ch) const { return trace(ch).BandwidthLimit; }

private:
    static size_t index(int t) {
        if (t < 0 || t >= kSetupTraces)
            throw RuntimeError(ErrorCode::Subscript, "Subscript out of range: trace " + std::to_string(t + 1) + ".");
        return static_cast<size_t>(t);
    }
    std::array<TraceSetup, kSetupTraces> traces_{};
};

}  // namespace mervasto
