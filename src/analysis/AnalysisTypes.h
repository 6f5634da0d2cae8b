#pragma once

#include "common/Channels.h"
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Plain data in and out of the analysis. Nothing here knows about files,
// settings texts or windows.
namespace mervasto {

constexpr int kResultChannels = 6;  // rows of the result table (0..5, 0..3 used)
constexpr int32_t kCycleLimitMax = 500000;

// The channel types, by list index of the type list.
enum SignalType : int {
    kTypePwPercent = 0,  // "P.W.(%)"
    kTypePeriod = 1,     // "Period"
    kTypeDuty = 2,       // "Duty"
    kTypeAmple = 3,      // "Ample"
    kTypePw = 4,         // "P.W."
    kTypeFreq = 5,       // "Freq."
    kTypeRms = 6,        // "rms"
    kTypeMax = 7,        // "Max"
    kTypeMin = 8,        // "Min"
    kTypeGate = 9,       // "Gate" (Ch4 only)
};
constexpr std::array<const char*, 10> kSignalTypeText = {"P.W.(%)", "Period", "Duty", "Ample", "P.W.",
                                                         "Freq.",   "rms",    "Max",  "Min",   "Gate"};

// The types that measure pulses (rising edge to falling edge), not whole periods.
inline bool IsPulseType(int32_t type) { return type == kTypePwPercent || type == kTypePw; }

// Where an edge lies in time: on the whole sample the scan gives, or where
// the signal crosses the level between two samples.
enum class EdgeTiming { Samples, Interpolated };

// The measured kinds: the rows of a channel's results, numbered as the
// comparator file and the output number them. OfType holds the quantity the
// channel's type names (what the result grid shows); every other kind holds
// one quantity whatever the type.
enum class Measure : int { PulseWidth = 0, Duty = 1, OfType = 2, Period = 3, Freq = 4, Ample = 5, Rms = 6 };
constexpr int kKinds = 7;
constexpr std::array<Measure, kKinds> kMeasures = {
    Measure::PulseWidth, Measure::Duty, Measure::OfType, Measure::Period, Measure::Freq, Measure::Ample, Measure::Rms};

// What the scan does with the sample that ends the quiet stretch after a
// walk through the band. Legacy skips it; Schmitt looks at it like any other
// sample and records no edge for a walk the window ends; Auto keeps Legacy's
// results for a channel where skipping passed over no crossing and takes
// Schmitt's otherwise (see docs/analysis.md, "Edge rule").
enum class EdgeRule { Legacy, Schmitt, Auto };

// Statistics and levels of one channel and one measured kind.
struct ChannelResult {
    double Min = 0;
    double Max = 0;
    double Mean = 0;
    double Sigma = 0;
    int32_t Counts = 0;
    bool Go = false;      // the count lies within LL/UL
    bool Valid = false;   // the statistics hold a measurement
    float HighLevel = 0;  // V
    float LowLevel = 0;   // V
    float Level = 0;      // V, decision level
    int32_t AnaStart = 0;
    int32_t AnaEnd = 0;
    int32_t GateStart = 0;
    int32_t GateEnd = 0;
    // Limits of the comparator: of the count, and of every cycle's value
    // (lower, upper; set when the lower lies below the upper).
    int32_t LL = 0;
    int32_t UL = 0;
    float ValueLimit1 = 0;
    float ValueLimit2 = 0;
    // The smallest and largest value a cycle has of this kind, over the
    // Measured cycles that have one (a pulse type's first record has no
    // cycle before it): what the value limits are held against. Unlike Min
    // and Max these start from no seed.
    double Lowest = 0;
    double Highest = 0;
    int32_t Measured = 0;
};

// channel + 6 x kind addressing, as the comparator and the result file use it.
struct ChannelResultTable {
    std::array<ChannelResult, kResultChannels * kKinds> cell{};
    ChannelResult& at(int channel, Measure kind) { return cell[index(channel, kind)]; }
    const ChannelResult& at(int channel, Measure kind) const { return cell[index(channel, kind)]; }
    // A channel's levels live in its PulseWidth record, the analysis window
    // and the gate in Ch4's.
    ChannelResult& levels(int channel) { return at(channel, Measure::PulseWidth); }
    const ChannelResult& levels(int channel) const { return at(channel, Measure::PulseWidth); }
    ChannelResult& window() { return levels(kChannels - 1); }
    const ChannelResult& window() const { return levels(kChannels - 1); }

private:
    static size_t index(int channel, Measure kind) {
        return static_cast<size_t>(channel + kResultChannels * static_cast<int>(kind));
    }
};

// One cycle (or pulse) of one channel. Times in samples, volts in volts;
// edges are sample numbers of the record.
//
// Period types: FirstEdge, MidEdge, LastEdge are the rising, falling and
// next rising edge of the cycle, and every field describes that cycle.
//
// Pulse types ("P.W.(%)", "P.W."): record n is pulse n. FirstEdge and
// LastEdge are the rising and falling edge of pulse n, which PulseWidth
// measures. Period, Duty, Ample, Freq, Rms, MaxValue, MinValue and MidEdge
// belong to the cycle that began with pulse n - 1: it runs from record
// n - 1's FirstEdge through MidEdge (the falling edge of pulse n - 1) to this
// record's FirstEdge. Where that cycle does not exist (record 0, the first
// pulse after a reject range) those fields are 0.
struct CycleRecord {
    double Ample = 0;
    double Duty = 0;
    int32_t MidEdge = 0;
    double PulseWidth = 0;
    double Period = 0;
    double Freq = 0;
    double Rms = 0;
    double MaxValue = 0;
    double MinValue = 0;
    // Last, so that positional initialisers of the fields above still fit.
    int32_t FirstEdge = 0;
    int32_t LastEdge = 0;
    // The same edges as record sample numbers with a fraction: where the
    // smoothed signal crosses the level with "Interpolated" edge timing, the
    // whole-sample edges otherwise. The time fields are measured on these.
    double FirstCrossing = 0;
    double MidCrossing = 0;
    double LastCrossing = 0;
};

// Cycle records per channel, index = cycle number.
struct CycleTable {
    std::array<std::vector<CycleRecord>, kChannels> channel;
};

struct AnalysisMessage {
    std::string title;
    std::string text;
};

}  // namespace mervasto
