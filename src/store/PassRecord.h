#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "analysis/Encoder.h"
#include "analysis/Jitter.h"
#include "results/Comparator.h"

// What the results store keeps: per run what stays the same through it, per
// pass what the pass measured. Plain data, filled by the run state.
namespace mervasto {

struct StoredChannel {
    int32_t typeIndex = kTypePeriod;  // the type list's index, 9 = "Gate"
    std::string typeText;
    std::string name;  // the signal name typed for the channel
};

struct RunInfo {
    std::string station;
    std::string sample;   // the sample name without its index
    std::string program;  // the package version that wrote the run
    // Every setting by its --set name, as the resume file writes it.
    std::vector<std::pair<std::string, std::string>> settings;
    std::array<StoredChannel, kChannels> channels;
};

struct PassRecord {
    std::optional<int32_t> passNumber;  // none: the next number of the run
    std::string started;                // UTC, ISO 8601 (StoreTime)
    std::string sampleName;             // sample name and index, as in the results file
    std::string sampleIndex;
    std::string comment;
    std::string source;  // "<model> at <host>:<port>" or the wave file's path
    // Shown in the result grid with results of its own (not off, not the
    // gate, in the record): its every kind is stored, measured or not.
    std::array<bool, kChannels> inUse{};
    ChannelResultTable table;
    std::array<JitterResult, kChannels> jitter{};
    const EncoderResult* encoder = nullptr;  // the encoder analysis, when it is on
};

// The settings a pass carries itself: a change of them keeps the run.
inline constexpr std::array<const char*, 2> kPerPassSettings = {"SampleIndex", "Comment"};

// A kind is judged when its count limits are set (not both 0) or its value
// limits are (the lower below the upper).
bool CountLimitsSet(const ChannelResult& r);
inline bool LimitsSet(const ChannelResult& r) { return CountLimitsSet(r) || ValueLimitsSet(r); }

// A pass is Go when every judged kind of its channels in use is; none
// judged: no verdict.
std::optional<bool> PassVerdict(const PassRecord& pass);

// Whether two passes belong to one run: the same station, sample name,
// program, channel types and names and settings (but for those a pass
// carries itself).
bool SameRun(const RunInfo& a, const RunInfo& b);

// Passes judged Go of those judged, as "99.50 %"; "—" when none was judged.
std::string YieldText(int64_t judged, int64_t go);

// The kinds by name, as the store's exports and summaries name them.
inline constexpr std::array<const char*, kKinds> kKindNames = {"PulseWidth", "Duty",  "OfType", "Period",
                                                               "Freq",       "Ample", "Rms"};

// The present moment as the store writes times: "2024-05-01T12:34:56.789Z".
std::string StoreTimeNow();
// A time as --since and --until take it: YYYY-MM-DD, then optionally
// "T" (or a blank) and hh:mm, :ss, .fff and "Z". The normal form to compare
// stored times with, or nothing when it is no such time.
std::optional<std::string> StoreTimeOf(std::string_view text);

// This computer's name, the station's name when none is set.
std::string HostName();

}  // namespace mervasto
