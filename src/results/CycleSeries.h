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

// bins <= 0: chosen from the data. With a quantum, the bins are whole
// multiples of it centred on the values, so no bin sits empty between two
// neighbouring steps.
Histogram MakeHistogram(std::span<const double> values, int32_t bins, double quantum = 0);

// The bin holding v, -1 outside.
int32_t HistogramBinOf(const Histogram& h, double v);

// "Bin low,Bin high,Count" then one line per bin.
std::string HistogramCsv(const Histogram& h, const std::string& unit);
// "Cycle,Time (s),Value (unit)" then one line per cycle, cycles numbered from 1.
std::string TrendCsv(std::span<const double> values, std::span<const double> times, const std::string& unit);

}  // namespace mervasto
