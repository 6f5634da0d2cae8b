#pragma once

#include <cstdint>
#include <span>
#include <vector>

// The two signal levels of a channel, found from the histogram of its 16-bit
// samples (8192 counts per division), and their conversion to volts.
namespace mervasto {

enum class LevelMethod {
    Peaks,   // the two most populated codes at least 8 codes apart
    Halves,  // the most populated code of each half of the occupied range
    Auto,    // Peaks, unless Halves' levels lie much nearer the samples
};

// Why Auto took Halves' levels.
inline constexpr const char* kNoteHalvesOneCluster = "levels by Halves: Peaks found both levels inside one cluster";
inline constexpr const char* kNoteHalvesNearer = "levels by Halves: Peaks' levels lie far from the samples";

// Two levels as 16-bit samples.
struct TwoLevels {
    int16_t high = 0;
    int16_t low = 0;
};

// 65,536 bins, one per sample code (bin = sample + 32768). Kept by the caller
// so that a run over a long record does not allocate; four interleaved
// copies are used while counting so that runs of one code do not stall on
// the same counter.
class LevelHistogram {
public:
    static constexpr int kBins = 65536;

    // Counts samples first..last (both included). Returns false, leaving the
    // previous counts, when first > last or the range lies outside raw.
    bool count(std::span<const int16_t> raw, int32_t first, int32_t last);
    uint32_t at(int bin) const { return merged_[static_cast<size_t>(bin)]; }
    TwoLevels peaks() const;
    TwoLevels halves() const;
    // Auto: Peaks' levels unless the mean distance from each sample to the
    // nearer of Halves' two levels is less than half of that to the nearer
    // of Peaks'. *note says why Halves was taken ("" when it was not).
    TwoLevels automatic(const char** note) const;

private:
    std::vector<uint32_t> parts_;
    std::vector<uint32_t> merged_;
};

// Levels of samples first..last by the given method. Returns false and leaves
// out untouched when there is nothing to count.
// *note, when given, says why Auto took Halves' levels ("" otherwise).
bool FindTwoLevels(std::span<const int16_t> raw, int32_t first, int32_t last, LevelMethod method, TwoLevels& out,
                   LevelHistogram& histogram, const char** note = nullptr);
bool FindTwoLevels(std::span<const int16_t> raw, int32_t first, int32_t last, LevelMethod method, TwoLevels& out);

// Sample code to volts: (s / 8192) x VoltsPerDiv - Offset.
float VoltsFromRaw(int32_t sample, float voltsPerDiv, float offset);

// Volts to the sample code: (volts + Offset) / VoltsPerDiv x 8192, rounded
// half to even and clamped to 16 bits; 0 when VoltsPerDiv is 0.
int16_t RawFromVolts(float volts, float voltsPerDiv, float offset);
void RawFromVolts(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> out);

struct SignalLevels {
    float HighLevel = 0;
    float LowLevel = 0;
    float Level = 0;        // decision level, PLevel percent from low to high
    bool ok = true;         // the check word: the level step cannot fail at present
    const char* note = "";  // why Auto took Halves' levels
};

struct GateLevels {
    float HighLevel = 0;
    float LowLevel = 0;
    float centre = 0;
    bool ok = true;
};

// GetSignalLevels: levels of samples first..last of one channel. When the
// range is empty the levels are returned as they came in `keep`.
SignalLevels GetSignalLevels(std::span<const int16_t> raw, int32_t first, int32_t last, float voltsPerDiv, float offset,
                             float PLevel, LevelMethod method, LevelHistogram& histogram,
                             const SignalLevels& keep = {});

// GetGateLevels: levels of the whole record of the gate channel, in the same
// volts as its samples, and their centre.
GateLevels GetGateLevels(std::span<const int16_t> raw, int32_t length, float voltsPerDiv, float offset,
                         LevelMethod method, LevelHistogram& histogram);

}  // namespace mervasto
