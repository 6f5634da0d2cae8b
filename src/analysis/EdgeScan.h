#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/AnalysisTypes.h"

// Edges, cycles and their statistics for one channel.
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
};

// Most cycles recorded per channel: MaxCycles, at least 1, at most 500000.
int32_t CycleLimit(int32_t MaxCycles);

// Whether the reject range applies to a window of this length: the box is
// ticked, a range was read, and both its ends lie within 1..length - 1.
bool RejectRangeInForce(const ScanSettings& s, int32_t windowLength);

// Makes room for `limit` cycles so that the scan itself never allocates.
void ReserveCycles(std::vector<CycleRecord>& cycles, int32_t limit);

// ExtractCycles: scans the (smoothed) samples of channel ch over the window
// that starts at sample `start`; window[k] is sample start + k. Levels come
// from table.at(ch, 0). Replaces `cycles` with the cycles found, clears the
// channel's statistics and summarises the cycles into rows 0..6. Returns the
// number of cycles. *moreCycles, when given, tells whether the scan stopped at
// the cycle limit with at least one more whole cycle left in the window.
int32_t ExtractCycles(int ch, std::span<const float> window, int32_t start, const ScanSettings& s,
                      ChannelResultTable& table, std::vector<CycleRecord>& cycles, bool* moreCycles = nullptr);

// The same scan straight from the channel's record (volts) over samples
// start .. start + count - 1, smoothed with SmoothingNo as SmoothSamples does
// (settings.halfSmooth is taken from SmoothingNo). Short averages are worked
// out while scanning; longer ones are smoothed into `scratch` first.
int32_t ExtractCyclesFromRecord(int ch, std::span<const float> record, int32_t start, int32_t count,
                                int32_t SmoothingNo, const ScanSettings& settings, ChannelResultTable& table,
                                std::vector<CycleRecord>& cycles, std::vector<float>& scratch,
                                bool* moreCycles = nullptr);

// Statistics of cycles into the rows of channel ch (see docs/analysis.md for
// what each row measures). Counts of every row = cycles.size(); rows are
// marked Valid when there is at least one cycle.
void SummariseCycles(int ch, int32_t signalType, std::span<const CycleRecord> cycles, float SampleSec, double VRate,
                     ChannelResultTable& table);

// Zeroes the statistics, counts and flags of every row of the channel;
// levels, window and limits stay.
void ClearChannelResult(ChannelResultTable& table, int ch);

// Largest and smallest of samples first..last (both included). An index
// outside the samples is a Subscript RuntimeError.
void GetMinMaxInRange(std::span<const float> wave, int32_t first, int32_t last, double& maxValue, double& minValue);

// Largest sample of startaddress + 1 .. endaddress - 1 and where it is (the
// later index on equal values); the sample at startaddress itself is never
// looked at. -1e30 when that range is empty, 0 with MaxAddress untouched when
// the wave has no samples.
double Get_Wave_Max(std::span<const float> wave, int32_t startaddress, int32_t endaddress, int32_t& MaxAddress);

// Largest cycle count in the rows of Ch1..Ch4, at least 1.
int32_t GetMaxPeriod(const ChannelResultTable& table);

}  // namespace mervasto
