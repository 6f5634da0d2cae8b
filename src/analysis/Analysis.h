#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "analysis/Encoder.h"
#include "analysis/Jitter.h"
#include "analysis/Levels.h"

// One analysis run over the four channels of a record: which channels are
// analysed, their levels, the gate and margin window, and the cycle scan.
namespace mervasto {

// Texts of the signal checks, as shown to the user.
inline constexpr const char* kGateSignalTitle = "Gate Signal";
inline constexpr const char* kGateSignalText = "Overflowed or Underflowed or Smaller Ch4 Signal. Check ch4 !";
inline constexpr const char* kSignalCheckTitle = "Signal Check";
// Full text: kSignalCheckTextHead + channel number + kSignalCheckTextTail.
inline constexpr const char* kSignalCheckTextHead = "Overflowed or Underflowed or Smaller Ch";
inline constexpr const char* kSignalCheckTextTail = " Signal. Check Signal !";
inline constexpr const char* kCompletedAnalysis = "Completed Analysis.";
// Why a channel has no results although it is switched on: the measured
// levels and how far apart they are (LevelsCloseNote), or the gate's.
inline constexpr const char* kNoteLevelsCloseTail = " div (less than 1/3 div)";
inline constexpr const char* kNoteGateLevelsClose = "gate levels closer than 1/3 div";
// Auto took the Schmitt rule's results: kNoteSchmittHead + N + " level
// crossing(s)".
inline constexpr const char* kNoteSchmittHead = "Edge rule Schmitt: the legacy rule passed over ";
// A channel with results whose scan ended at the cycle limit with more cycles
// left: kNoteMaxPeriodsHead + limit + kNoteMaxPeriodsTail. No comma, so that
// it stands as one field in comma-separated output.
inline constexpr const char* kNoteMaxPeriodsHead = "stopped at Max Periods (";
inline constexpr const char* kNoteMaxPeriodsTail = "); the record holds more cycles";

// The record as the analysis sees it. volts[ch] and raw[ch] must hold at
// least WaveLength samples, otherwise the channel gives no results.
struct AnalysisInput {
    std::array<std::span<const float>, kChannels> volts;
    // 16-bit samples, 8192 counts per division (see RawFromVolts for records
    // that only exist in volts).
    std::array<std::span<const int16_t>, kChannels> raw;
    int32_t WaveLength = 0;
    float SampleSec = 0;
    std::array<float, kChannels> VoltsPerDiv{};  // 0: channel not recorded
    std::array<float, kChannels> Offset{};
};

struct ChannelParams {
    bool DispOff = false;              // switched off: not analysed, results cleared
    int32_t SignalType = kTypePeriod;  // list index 0..8, 9 = "Gate" (Ch4 only)
    double VRate = 1;
    bool PPCheck = false;
    bool DutyCheck = false;
    bool channelStateOn = true;  // the channel state reads "ON" (see requireStateOn)
};

struct AnalysisParams {
    float Histerisis = 0;   // percent
    float PLevel = 50;      // percent from the low to the high level
    float LimitPoints = 0;  // margin in divisions (tenths of the record)
    int32_t MaxCycles = 1000;
    int32_t SmoothingNo = 1;
    bool OmitRangeEffect = false;
    bool MemoryInput = false;  // waves from memory: the amplitude checks are skipped
    std::array<ChannelParams, kChannels> channel{};
    bool rejectFlag = false;  // a reject range has been read
    int32_t rejectStart = 0;  // sample indices
    int32_t rejectEnd = 0;
    // The signal-check messages are handed back (not for a quiet re-analysis).
    bool produceMessages = true;
    // Only channels whose state reads "ON" are analysed (a re-analysis);
    // otherwise every channel not switched off is.
    bool requireStateOn = false;
    LevelMethod levelMethod = LevelMethod::Peaks;
    EdgeTiming edgeTiming = EdgeTiming::Samples;
    EdgeRule edgeRule = EdgeRule::Legacy;
    EncoderParams encoder;
};

// Scratch memory of a run (histograms, smoothed samples), kept so that a
// repeated run over records of the same size allocates nothing.
struct AnalysisWorkspace {
    struct Lane {
        LevelHistogram histogram;
        std::vector<float> smoothed;
    };
    std::vector<Lane> lanes;
    EncoderWorkspace encoder;
};

// Kept by the caller from one run to the next; a run overwrites what belongs
// to the channels it analyses or clears (see docs/analysis.md).
struct AnalysisResults {
    ChannelResultTable table;
    CycleTable cycles;  // cycles[ch].size() == Counts
    // Why a channel has no results, or what it should be read with (levels
    // or edges by another rule, the scan stopped at the cycle limit), joined
    // by "; "; empty otherwise.
    std::array<std::string, kChannels> note;
    // Switched on and recorded but not analysed (its note says why).
    std::array<bool, kChannels> leftOut{};
    // The scan stopped at the cycle limit and the window holds more cycles
    // (the note says so; the channel has results).
    std::array<bool, kChannels> cycleLimitReached{};
    // Cycle-to-cycle jitter and time interval error of each channel's edges.
    std::array<JitterResult, kChannels> jitter{};
    // Each rising edge's time interval error, for the plots.
    std::array<TieTrend, kChannels> tie;
    AnalysisWorkspace workspace;
    EncoderResult encoder;  // analysed only when the encoder analysis is on
};

struct AnalysisOutcome {
    std::vector<AnalysisMessage> messages;  // in the order they would be shown
    // The reject range was asked for but does not fit the analysis window, so
    // it was not applied; the caller may clear its reject-range flag.
    bool rejectRangeDropped = false;
};

AnalysisOutcome RunAnalysis(const AnalysisInput& input, const AnalysisParams& params, AnalysisResults& results);

// "Overflowed or Underflowed or Smaller Ch<n> Signal. Check Signal !"
std::string SignalCheckText(int ch);

// "stopped at Max Periods (<limit>); the record holds more cycles"
std::string MaxPeriodsNote(int32_t limit);

// "levels 1.65 V and 1.66 V span 0.01 div (less than 1/3 div)"
std::string LevelsCloseNote(float low, float high, float voltsPerDiv);

// "Edge rule Schmitt: the legacy rule passed over 3 level crossings"
std::string SchmittNote(int32_t passed);

}  // namespace mervasto
