#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace mervasto {

// Min, max, mean and population σ of a stream of values, without keeping
// the values.
struct RunningStatistic {
    double min = 1e300;
    double max = -1e300;
    double sum = 0;
    double squares = 0;
    int32_t count = 0;

    void add(double v) {
        min = std::min(min, v);
        max = std::max(max, v);
        sum += v;
        squares += v * v;
        ++count;
    }
    double mean() const { return count > 0 ? sum / count : 0; }
    double sigma() const {
        const double m = mean();
        return count > 0 ? std::sqrt(std::fabs(squares / count - m * m)) : 0;
    }
    // Into a result's Min, Max, Mean, Sigma and Counts.
    template <class Result>
    void storeInto(Result& r) const {
        r.Min = min;
        r.Max = max;
        r.Mean = mean();
        r.Sigma = sigma();
        r.Counts = count;
    }
};

}  // namespace mervasto
