#include "results/CycleSeries.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "analysis/CycleQuantity.h"

namespace mervasto {

std::vector<double> CycleValues(int32_t typeIndex, std::span<const CycleRecord> cycles, double SampleSec,
                                double VRate) {
    std::vector<double> out;
    out.reserve(cycles.size());
    const CycleQuantity quantity = QuantityOfType(typeIndex);
    for (const CycleRecord& c : cycles) out.push_back(quantity.of(c, SampleSec, VRate));
    return out;
}

std::vector<double> CycleTimes(std::span<const CycleRecord> cycles, double SampleSec) {
    std::vector<double> out;
    out.reserve(cycles.size());
    for (const CycleRecord& c : cycles) out.push_back(c.FirstEdge * SampleSec);
    return out;
}

std::vector<double> CycleNumbers(size_t n) {
    std::vector<double> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<double>(i + 1);
    return out;
}

std::vector<double> SampleTimes(std::span<const double> at, double SampleSec, double start) {
    std::vector<double> out(at.size());
    for (size_t i = 0; i < at.size(); ++i) out[i] = at[i] * SampleSec + start;
    return out;
}

namespace {

double quantile(const std::vector<double>& sorted, double q) {
    const double at = q * static_cast<double>(sorted.size() - 1);
    const auto i = static_cast<size_t>(at);
    const double frac = at - static_cast<double>(i);
    return i + 1 < sorted.size() ? sorted[i] + frac * (sorted[i + 1] - sorted[i]) : sorted[i];
}

}  // namespace

int32_t ChosenBinCount(std::span<const double> values, double quantum) {
    if (values.empty()) return 0;
    std::vector<double> sorted(values.begin(), values.end());
    std::sort(sorted.begin(), sorted.end());
    const double range = sorted.back() - sorted.front();
    if (!(range > 0)) return 1;
    const double n = static_cast<double>(sorted.size());
    const double iqr = quantile(sorted, 0.75) - quantile(sorted, 0.25);
    double bins = iqr > 0 ? std::ceil(range / (2 * iqr / std::cbrt(n))) : std::ceil(std::log2(n)) + 1;
    if (quantum > 0) bins = std::min(bins, std::floor(range / quantum + 0.5) + 1);
    return static_cast<int32_t>(std::clamp(bins, 1.0, static_cast<double>(kMaxHistogramBins)));
}

double ValueQuantum(const std::string& unit, std::span<const CycleRecord> cycles, double SampleSec) {
    const bool wholeSamples = std::all_of(cycles.begin(), cycles.end(), [](const CycleRecord& c) {
        return c.FirstCrossing == c.FirstEdge && c.LastCrossing == c.LastEdge;
    });
    return unit == "s" && wholeSamples ? SampleSec : 0;
}

Histogram MakeHistogram(std::span<const double> values, int32_t bins, double quantum) {
    Histogram h;
    if (values.empty()) return h;
    h.chosen = bins <= 0;
    if (bins <= 0) bins = ChosenBinCount(values, quantum);
    bins = std::min(bins, kMaxHistogramBins);
    h.min = *std::min_element(values.begin(), values.end());
    h.max = *std::max_element(values.begin(), values.end());
    double sum = 0, squares = 0;
    for (double v : values) {
        sum += v;
        squares += v * v;
    }
    const double n = static_cast<double>(values.size());
    h.total = static_cast<int32_t>(values.size());
    h.mean = sum / n;
    h.sigma = std::sqrt(std::abs(squares / n - h.mean * h.mean));
    const double range = h.max - h.min;
    if (quantum > 0) {
        const double steps = std::floor(range / quantum + 0.5) + 1;  // distinct steps the values can take
        h.width = std::ceil(steps / bins) * quantum;
        h.low = h.min - quantum / 2;
        bins = static_cast<int32_t>(std::ceil(steps * quantum / h.width));
    } else if (range > 0) {
        h.width = range / bins;
        h.low = h.min;
    } else {
        h.width = h.min != 0 ? std::abs(h.min) * 1e-3 : 1;  // one bar around a constant
        h.low = h.min - h.width / 2;
        bins = 1;
    }
    h.counts.assign(static_cast<size_t>(std::max(bins, 1)), 0);
    for (double v : values) {
        const int32_t k = HistogramBinOf(h, v);
        if (k >= 0) ++h.counts[static_cast<size_t>(k)];
    }
    return h;
}

int32_t HistogramBinOf(const Histogram& h, double v) {
    if (h.counts.empty() || !(h.width > 0) || !(v >= h.low)) return -1;
    const auto bins = static_cast<int32_t>(h.counts.size());
    const double k = std::floor((v - h.low) / h.width);
    if (k < bins) return static_cast<int32_t>(k);
    // The top of the last bin, or just beyond it by rounding.
    return v <= h.max ? bins - 1 : -1;
}

std::vector<int32_t> CyclesInBin(const Histogram& h, std::span<const double> values,
                                 std::span<const CycleRecord> cycles, int32_t bin) {
    std::vector<int32_t> out;
    const size_t n = std::min(values.size(), cycles.size());
    for (size_t i = 0; i < n; ++i)
        if (CycleHasStretch(cycles[i]) && HistogramBinOf(h, values[i]) == bin) out.push_back(static_cast<int32_t>(i));
    return out;
}

ExtremeCycles FindExtremeCycles(std::span<const double> values, std::span<const CycleRecord> cycles) {
    ExtremeCycles e;
    const size_t n = std::min(values.size(), cycles.size());
    for (size_t i = 0; i < n; ++i) {
        if (!CycleHasStretch(cycles[i])) continue;
        const auto k = static_cast<int32_t>(i);
        if (e.min < 0 || values[i] < values[static_cast<size_t>(e.min)]) e.min = k;
        if (e.max < 0 || values[i] > values[static_cast<size_t>(e.max)]) e.max = k;
    }
    return e;
}

int32_t BinSelection::click(const Histogram& h, std::span<const double> values, std::span<const CycleRecord> cycles,
                            int32_t bin) {
    if (bin == bin_ && !cycles_.empty()) {
        position_ = (position_ + 1) % cycles_.size();
    } else {
        bin_ = bin;
        position_ = 0;
        cycles_ = CyclesInBin(h, values, cycles, bin);
    }
    return cycles_.empty() ? -1 : cycles_[position_];
}

namespace {

std::string number(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.9g", v);
    return buf;
}

}  // namespace

std::string HistogramCsv(const Histogram& h, const std::string& unit) {
    std::string out = "Bin low (" + unit + "),Bin high (" + unit + "),Count\r\n";
    for (size_t k = 0; k < h.counts.size(); ++k) {
        const double lo = h.low + static_cast<double>(k) * h.width;
        out += number(lo) + "," + number(lo + h.width) + "," + std::to_string(h.counts[k]) + "\r\n";
    }
    return out;
}

std::string TrendCsv(std::span<const double> values, std::span<const double> times, const std::string& unit) {
    std::string out = "Cycle,Time (s),Value (" + unit + ")\r\n";
    for (size_t i = 0; i < values.size(); ++i)
        out += std::to_string(i + 1) + "," + (i < times.size() ? number(times[i]) : std::string()) + "," +
               number(values[i]) + "\r\n";
    return out;
}

}  // namespace mervasto
