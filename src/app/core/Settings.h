#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "common/Channels.h"
#include "common/InstrumentFamilies.h"
#include <string_view>

#include "analysis/AnalysisTypes.h"

namespace mervasto {

// The settings as the main window's controls hold them: texts as typed,
// check boxes as states, lists as indexes. Other layers get numbers from
// them through the runtime-compatible conversions when they need them.

// The channel type list, by list index; channel 4 also has "Gate" (9).
inline constexpr const auto& kChannelTypes = kSignalTypeText;
inline constexpr int kGateIndex = 9;
// Entries in the list of channel ch (0-based).
inline constexpr int ChannelTypeCount(int ch) { return ch == 3 ? 10 : 9; }

inline constexpr std::string_view kLevelPeaks = "Peaks";
inline constexpr std::string_view kLevelHalves = "Halves";
inline constexpr std::string_view kLevelAuto = "Auto";
inline constexpr std::string_view kEdgeSamples = "Samples";
inline constexpr std::string_view kEdgeInterpolated = "Interpolated";
inline constexpr std::string_view kEdgeRuleLegacy = "Legacy";
inline constexpr std::string_view kEdgeRuleSchmitt = "Schmitt";
inline constexpr std::string_view kEdgeRuleAuto = "Auto";

inline constexpr std::array<std::string_view, 4> kEncoderChannels = {"1", "2", "3", "4"};
inline constexpr std::array<std::string_view, 5> kEncoderIndexChannels = {"0", "1", "2", "3", "4"};

struct AnalysisSettings {
    std::string MaxCycles = "1000";
    std::string TotalRepeats = "1000";
    bool RepeatCheck = false;
    std::string Histerisis = "10";
    std::string PLevel = "50";
    std::string SmoothingNo = "1";
    std::string LimitPoints = "0";
    std::string SampleNo = "Sample";
    std::string SampleIndex = "1";
    std::string Comment;
    std::string IPAdressText = "192.168.1.101";
    std::string ZoomRate = "1";
    bool SaveWavesCheck = false;
    bool SaveScreenCheck = false;
    bool DDSaveCheck = false;
    bool WDSaveCheck = false;
    bool DaqCheck = false;
    bool OmitRangeEffect = false;
    // How the two signal levels are found: "Peaks" (histogram peaks),
    // "Halves", or "Auto" (Peaks unless Halves fits the samples far better).
    // A resume file without the line takes Auto; one with it keeps its word.
    std::string LevelMethod = std::string(kLevelAuto);
    // Seconds an exchange with the instrument may take before the link gives
    // up on it.
    std::string TimeoutSeconds = "10";
    // The wave windows give each channel a lane of its own, scaled to it.
    bool Stacked = false;
    // The quadrature analysis of a channel pair (see analysis/Encoder.h).
    // Channels are numbered from 1; EncoderZ 0 means no index channel,
    // EncoderCountsPerRev 0 no revolution, MinStateWidth 0 no bounce removal.
    bool Encoder = false;
    std::string EncoderA = "1";
    std::string EncoderB = "2";
    std::string EncoderZ = "0";
    std::string EncoderCountsPerRev = "0";
    std::string MinStateWidth = "0";
    // Edges on whole samples ("Samples") or where the signal crosses the
    // level between two ("Interpolated").
    std::string EdgeTiming = std::string(kEdgeSamples);
    // What the edge scan does after a walk through the band: "Legacy",
    // "Schmitt", or "Auto" (Legacy's results unless it passed a crossing over).
    std::string EdgeRule = std::string(kEdgeRuleAuto);
    // The instrument family spoken to: "Auto" (its identification chooses)
    // or a family's name (common/InstrumentFamilies.h).
    std::string Instrument = std::string(kInstrumentAuto);
    // Where every pass is stored: empty for OutputData's results.sqlite, a
    // postgresql:// URI for the server of a line of stations, any other
    // text a SQLite file. The station's name there; empty for the host name.
    std::string ResultsDb;
    std::string StationName;
};

struct ChannelSettings {
    int ChInputSignal = 1;  // list index, -1 when nothing is selected
    int32_t BackColor = 0;  // 24-bit blue-green-red
    int32_t ForeColor = 0;
    std::string VRate = "1.0";
    std::string SigName;
    bool DispOffCheck = false;
    bool PPCheck = false;
    bool DutyCheck = false;

    // The list text of ChInputSignal ("" when nothing is selected).
    std::string_view signalText() const {
        return ChInputSignal >= 0 && ChInputSignal < static_cast<int>(kChannelTypes.size())
                   ? kChannelTypes[static_cast<size_t>(ChInputSignal)]
                   : std::string_view();
    }
};

struct WindowPositions {
    int32_t MainLeft = 0;
    int32_t MainTop = 0;
    int32_t WaveFormLeft = 0;
    int32_t WaveFormTop = 0;
    int32_t WaveFormAllLeft = 0;
    int32_t WaveFormAllTop = 0;
};

struct Settings {
    AnalysisSettings analysis;
    std::array<ChannelSettings, kChannels> channels = defaultChannels();
    WindowPositions windows;

    // Kept across starts with the settings.
    int32_t RejectStart = 0;
    int32_t RejectEnd = 0;
    bool RejectRangeSet = false;
    std::string ComparatorFile;
    std::string OutputFolder;
    std::string DetailFileName;
    std::string DetailBaseName;
    std::string WaveBaseName;

    static std::array<ChannelSettings, kChannels> defaultChannels();
};

// The list index of a channel type text or index text for channel ch
// (0-based); -1 when the list has no such entry.
int ChannelTypeIndex(int ch, std::string_view text);

}  // namespace mervasto
