#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"

// The per-cycle values of a channel as a distribution (histogram) and as a
// series over the record (trend), and their CSV texts.
namespace mervasto {

// The value each cycle has of the quantity the channel type names: the values
// the statistics summarise and the detail grid lists.
std::vector<double> CycleValues(int32_t typeIndex, std::span<const CycleRecord> cycles, double SampleSec, double VRate);

// Where each cycle starts, in seconds from the start of the record.
std::vector<double> CycleTimes(std::span<const CycleRecord> cycles, double SampleSec);

// 1, 2, ... n: the x of a trend against cycle number.
std::vector<double> CycleNumbers(size_t n);

// Record sample positions as seconds on the wave windows' time axis, whose
// sample 0 is at start.
std::vector<double> SampleTimes(std::span<const double> at, double SampleSec, double start);

struct Histogram {
    double low = 0;    // bin k holds low + k * width <= v < low + (k + 1) * width
    double width = 0;  // the last bin also holds its upper bound
    std::vector<int32_t> counts;
    int32_t total = 0;
    double mean = 0;
    double sigma = 0;  // population spread, as the statistics give it
    double min = 0;
    double max = 0;
    bool chosen = false;  // the bin count was chosen from the data
};

// The most bins a histogram gets, chosen or asked for.
constexpr int32_t kMaxHistogramBins = 1000;

// The bin count the data suggest: bins of twice the interquartile range over
// the cube root of the count (Sturges' count when the quartiles coincide),
// and at most one bin per step when the values move in steps of `quantum`
// (the sample interval for times).
int32_t ChosenBinCount(std::span<const double> values, double quantum = 0);

// The step a channel's values move in: the sample interval for times measured
// between whole-sample edges ("s"), none for interpolated times and for
// every other quantity.
double ValueQuantum(const std::string& unit, std::span<const CycleRecord> cycles, double SampleSec);

// bins <= 0: chosen from the data. With a quantum, the bins are whole
// multiples of it centred on the values, so no bin sits empty between two
// neighbouring steps.
Histogram MakeHistogram(std::span<const double> values, int32_t bins, double quantum = 0);

// The bin holding v, -1 outside.
int32_t HistogramBinOf(const Histogram& h, double v);

// Cycles that can be shown in the wave: the pulse types' first and last
// records hold no edges.
inline bool CycleHasStretch(const CycleRecord& c) { return c.LastEdge > c.FirstEdge && c.FirstEdge >= 0; }

// The showable cycles whose value falls into bin, in cycle order.
std::vector<int32_t> CyclesInBin(const Histogram& h, std::span<const double> values,
                                 std::span<const CycleRecord> cycles, int32_t bin);

// The showable cycles with the smallest and the largest value (the first of
// equals); -1 when there is none.
struct ExtremeCycles {
    int32_t min = -1;
    int32_t max = -1;
};
ExtremeCycles FindExtremeCycles(std::span<const double> values, std::span<const CycleRecord> cycles);

// The cycle a click on a histogram bar goes to: the first of the bar's
// cycles, and on every further click on the same bar the next (wrapping).
class BinSelection {
public:
    // -1 when the bar holds no showable cycle.
    int32_t click(const Histogram& h, std::span<const double> values, std::span<const CycleRecord> cycles, int32_t bin);
    void clear() { *this = BinSelection(); }
    int32_t bin() const { return bin_; }
    // Position of the shown cycle among the bar's cycles, and how many there are.
    size_t position() const { return position_; }
    size_t size() const { return cycles_.size(); }

private:
    int32_t bin_ = -1;
    size_t position_ = 0;
    std::vector<int32_t> cycles_;
};

// "Bin low,Bin high,Count" then one line per bin.
std::string HistogramCsv(const Histogram& h, const std::string& unit);
// "Cycle,Time (s),Value (unit)" then one line per cycle, cycles numbered from 1.
std::string TrendCsv(std::span<const double> values, std::span<const double> times, const std::string& unit);

}  // namespace mervasto
