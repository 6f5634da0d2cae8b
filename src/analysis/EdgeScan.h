#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "analysis/CycleStatistics.h"

// The hysteresis scan of one channel: edges, cycles and their measurements.
namespace mervasto {

// What one channel's scan needs besides its samples and levels.
struct ScanSettings {
    int32_t signalType = kTypePeriod;  // list index 0..8
    bool PPCheck = false;              // carried for the comparator; no effect on the scan
    bool DutyCheck = false;
    float Histerisis = 0;  // percent of (HighLevel - Level)
    int32_t MaxCycles = 1000;
    int32_t halfSmooth = 0;  // the scan stops this many + 2 samples short of the window end
    float SampleSec = 0;
    double VRate = 1;
    bool OmitRangeEffect = false;
    bool rejectFlag = false;
    int32_t rejectStart = 0;  // sample indices
    int32_t rejectEnd = 0;
    EdgeTiming edgeTiming = EdgeTiming::Samples;
    EdgeRule edgeRule = EdgeRule::Legacy;
};

// Most cycles recorded per channel: MaxCycles, at least 1, at most 500000.
int32_t CycleLimit(int32_t MaxCycles);

// Whether the reject range applies to a window of this length: the box is
// ticked, a range was read, and both its ends lie within 1..length - 1.
bool RejectRangeInForce(const ScanSettings& s, int32_t windowLength);

// ExtractCycles: scans the (smoothed) samples of channel ch over the window
// that starts at sample `start`; window[k] is sample start + k. Levels come
// from table.levels(ch). Replaces `cycles` with the cycles found, clears the
// channel's statistics and summarises the cycles into rows 0..6. Returns the
// number of cycles. *moreCycles, when given, tells whether the scan stopped at
// the cycle limit with at least one more whole cycle left in the window.
// *passedOver, when given, counts what the legacy rule passed over (crossings
// and walks through the band the window ended); under Auto the results are
// the Schmitt rule's when it is not 0.
int32_t ExtractCycles(int ch, std::span<const float> window, int32_t start, const ScanSettings& s,
                      ChannelResultTable& table, std::vector<CycleRecord>& cycles, bool* moreCycles = nullptr,
                      int32_t* passedOver = nullptr);

// The same scan straight from the channel's record (volts) over samples
// start .. start + count - 1, smoothed with SmoothingNo as SmoothSamples does
// (settings.halfSmooth is taken from SmoothingNo). Short averages are worked
// out while scanning; longer ones are smoothed into `scratch` first.
int32_t ExtractCyclesFromRecord(int ch, std::span<const float> record, int32_t start, int32_t count,
                                int32_t SmoothingNo, const ScanSettings& settings, ChannelResultTable& table,
                                std::vector<CycleRecord>& cycles, std::vector<float>& scratch,
                                bool* moreCycles = nullptr, int32_t* passedOver = nullptr);

}  // namespace mervasto
