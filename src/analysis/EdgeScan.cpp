#include "analysis/EdgeScan.h"

#include <algorithm>
#include <cmath>

#include "common/Numeric.h"
#include "common/RuntimeError.h"

namespace mervasto {

namespace {

struct SpanMeasure {
    double maxValue;
    double minValue;
    double sumSquares;
};

// Max, min and sum of squares of x[a..b], b >= a, in one pass. Four partial
// sums keep the loop from waiting on one chain of additions; they are always
// combined in the same order, so the result does not depend on anything but
// the samples.
SpanMeasure measureSpan(const float* x, int32_t a, int32_t b) {
    float mx = x[a], mn = x[a];
    double q0 = 0, q1 = 0, q2 = 0, q3 = 0;
    int32_t t = a;
    for (; t + 3 <= b; t += 4) {
        const float v0 = x[t], v1 = x[t + 1], v2 = x[t + 2], v3 = x[t + 3];
        q0 += static_cast<double>(v0) * v0;
        q1 += static_cast<double>(v1) * v1;
        q2 += static_cast<double>(v2) * v2;
        q3 += static_cast<double>(v3) * v3;
        mx = std::max(mx, std::max(std::max(v0, v1), std::max(v2, v3)));
        mn = std::min(mn, std::min(std::min(v0, v1), std::min(v2, v3)));
    }
    for (; t <= b; ++t) {
        q0 += static_cast<double>(x[t]) * x[t];
        mx = std::max(mx, x[t]);
        mn = std::min(mn, x[t]);
    }
    return SpanMeasure{mx, mn, (q0 + q1) + (q2 + q3)};
}

int32_t halfEvenMidpoint(int32_t a, int32_t b) {
    return static_cast<int32_t>(RoundHalfEven((static_cast<double>(a) + b) / 2.0));
}

bool isPulseType(int32_t type) { return type == kTypePwPercent || type == kTypePw; }

struct Running {
    double mn;
    double mx;
    double sum = 0;
    double sumSquares = 0;

    void add(double q) {
        if (q < mn) mn = q;
        if (q > mx) mx = q;
        sum += q;
        sumSquares += q * q;
    }
    void store(ChannelResult& r, int32_t count) const {
        r.Min = mn;
        r.Max = mx;
        r.Mean = sum / count;
        r.Sigma = std::sqrt(std::fabs(sumSquares / count - r.Mean * r.Mean));
        r.Valid = -1;
    }
};

double rowTwoValue(int32_t type, const CycleRecord& c, double sampleSec, double vRate) {
    switch (type) {
        case kTypePwPercent: return c.Duty;
        case kTypePeriod: return c.Period * sampleSec;
        case kTypeDuty: return c.Duty;
        case kTypeAmple: return c.Ample * vRate;
        case kTypePw: return c.PulseWidth * sampleSec;
        case kTypeFreq: return c.Freq;
        case kTypeRms: return c.Rms * vRate;
        case kTypeMax: return c.MaxValue * vRate;
        case kTypeMin: return c.MinValue * vRate;
        default: return 0;
    }
}

}  // namespace

int32_t CycleLimit(int32_t MaxCycles) { return std::clamp(MaxCycles, int32_t{1}, kCycleLimitMax); }

void ReserveCycles(std::vector<CycleRecord>& cycles, int32_t limit) {
    if (cycles.capacity() < static_cast<size_t>(limit)) cycles.reserve(static_cast<size_t>(limit));
}

int32_t ExtractCycles(int ch, std::span<const float> window, int32_t start, const ScanSettings& s,
                      ChannelResultTable& table, std::vector<CycleRecord>& cycles) {
    ClearChannelResult(table, ch);
    const int32_t limit = CycleLimit(s.MaxCycles);
    ReserveCycles(cycles, limit);
    cycles.clear();

    const int32_t n = static_cast<int32_t>(window.size());
    if (n <= 0) {
        SummariseCycles(ch, s.signalType, cycles, s.SampleSec, s.VRate, table);
        return 0;
    }
    const float* x = window.data();
    const ChannelResult& levels = table.at(ch, 0);
    const float level = levels.Level;
    const float h = (levels.HighLevel - level) * s.Histerisis / 100.0f;
    const float lowT = level - h;
    const float highT = level + h;
    const float exitDistance = 2.0f * h;
    const int32_t bound = n - s.halfSmooth - 2;  // the band loops stop here
    const bool pulse = isPulseType(s.signalType);
    const double sampleSec = s.SampleSec;

    // Local (window) indices from here on; the reject range is in sample
    // numbers and must lie within 1..window length - 1.
    bool rejectPending = s.OmitRangeEffect && s.rejectFlag && s.rejectStart >= 1 && s.rejectStart <= n - 1 &&
                         s.rejectEnd >= 1 && s.rejectEnd <= n - 1;
    const int32_t rejectFrom = s.rejectStart - start;
    // A restart before the window (a window that starts late) begins at the
    // window's first sample.
    const int32_t rejectTo = std::max(s.rejectEnd - start, 0);

    int32_t edge[3] = {0, 0, 0};
    int k = 0;
    int32_t cycle = 0;
    cycles.emplace_back();

    auto sample = [&](int32_t j) { return x[j < n ? j : n - 1]; };

    // Appends an edge; true when the cycle limit ends the scan.
    auto recordEdge = [&](int32_t e) -> bool {
        edge[k++] = e;
        if (k == 2 && pulse) {
            cycles[static_cast<size_t>(cycle)].PulseWidth = edge[1] - edge[0];
            if (++cycle >= limit) return true;
            cycles.emplace_back();
        }
        if (k == 3) {
            if (edge[2] == edge[0]) edge[2] = edge[0] + 1;
            const int32_t e0 = edge[0], e1 = edge[1], e2 = edge[2];
            const double period = e2 - e0;
            const SpanMeasure m = measureSpan(x, e0, std::min(e2, n - 1));
            CycleRecord& c = cycles[static_cast<size_t>(cycle)];
            c.Period = period;
            c.Duty = (e1 - e0) * 100.0 / period;
            c.MaxValue = m.maxValue;
            c.MinValue = m.minValue;
            c.Ample = m.maxValue - m.minValue;
            c.MidEdge = start + e1;
            const double seconds = sampleSec * period;
            c.Freq = seconds != 0 ? 1.0 / seconds : 0.0;
            c.Rms = std::sqrt(m.sumSquares / period);
            if (!pulse) {
                c.PulseWidth = e1 - e0;
                if (++cycle >= limit) return true;
                cycles.emplace_back();
            }
            k = 1;
            edge[0] = edge[2];
        }
        return false;
    };

    int32_t j = 0;
    bool armed = false;
    float p = 0;
    int32_t prev = 0;
    bool stopped = false;
    while (!stopped) {
        // Up to the sample after which the reject range starts (or the end).
        const int32_t segEnd = rejectPending ? std::clamp(rejectFrom + 1, int32_t{1}, n) : n;
        while (j < segEnd) {
            const float v = x[j];
            if (!armed) {
                if (v >= lowT) {
                    ++j;
                    continue;
                }
                armed = true;
                p = v;
            }
            if (v > lowT && v < highT) {
                // Inside the band: the edge is the middle of the traversal.
                const int32_t entry = j;
                float w;
                do {
                    ++j;
                    w = sample(j);
                } while (!(std::fabs(w - v) >= exitDistance) && j < bound);
                if (recordEdge(halfEvenMidpoint(j - 1, entry))) {
                    stopped = true;
                    break;
                }
                // Dead zone: ripple smaller than h after the edge is ignored.
                do {
                    ++j;
                    p = sample(j);
                    prev = j;
                } while (!(std::fabs(w - p) >= h) && j < bound);
            } else if ((v - level) * (p - level) >= 0.0f) {
                p = v;
                prev = j;
            } else {
                // Jumped across the level between two samples.
                if (recordEdge(halfEvenMidpoint(j, prev))) {
                    stopped = true;
                    break;
                }
                p = v;
                prev = j;
            }
            ++j;
        }
        if (stopped || !rejectPending) break;
        // One reject range per run: drop the edges so far, restart unarmed.
        rejectPending = false;
        j = rejectTo;
        armed = false;
        k = 0;
    }

    cycles.resize(static_cast<size_t>(cycle));
    SummariseCycles(ch, s.signalType, cycles, s.SampleSec, s.VRate, table);
    return cycle;
}

void SummariseCycles(int ch, int32_t signalType, std::span<const CycleRecord> cycles, float SampleSec,
                     double VRate, ChannelResultTable& table) {
    const int32_t count = static_cast<int32_t>(cycles.size());
    for (int kind = 0; kind < kKinds; ++kind) table.at(ch, kind).Counts = count;
    if (count == 0) return;
    const double ss = SampleSec;
    Running pw{1e30, 0}, duty{100, 0}, two{1e30, 0}, period{1e30, 0}, freq{1e30, 0}, ample{1e30, 0}, rms{1e30, 0};
    if (signalType == kTypeMin) two = Running{0, -1e30};
    for (const CycleRecord& c : cycles) {
        pw.add(c.PulseWidth * ss);
        duty.add(c.Duty);
        two.add(rowTwoValue(signalType, c, ss, VRate));
        period.add(c.Period * ss);
        freq.add(c.Freq);
        ample.add(c.Ample * VRate);
        rms.add(c.Rms * VRate);
    }
    pw.store(table.at(ch, 0), count);
    duty.store(table.at(ch, 1), count);
    two.store(table.at(ch, 2), count);
    period.store(table.at(ch, 3), count);
    freq.store(table.at(ch, 4), count);
    ample.store(table.at(ch, 5), count);
    rms.store(table.at(ch, 6), count);
}

void ClearChannelResult(ChannelResultTable& table, int ch) {
    for (int kind = 0; kind < kKinds; ++kind) {
        ChannelResult& r = table.at(ch, kind);
        r.Min = r.Max = r.Mean = r.Sigma = 0;
        r.Counts = 0;
        r.Go = 0;
        r.Valid = 0;
    }
}

void GetMinMaxInRange(std::span<const float> wave, int32_t first, int32_t last, double& maxValue,
                      double& minValue) {
    maxValue = -1e30;
    minValue = 1e30;
    if (first > last) return;
    if (first < 0 || static_cast<size_t>(last) >= wave.size())
        throw RuntimeError(ErrorCode::Subscript, "Subscript out of range");
    const SpanMeasure m = measureSpan(wave.data(), first, last);
    maxValue = m.maxValue;
    minValue = m.minValue;
}

double Get_Wave_Max(std::span<const float> wave, int32_t startaddress, int32_t endaddress, int32_t& MaxAddress) {
    if (wave.empty()) return 0;
    double best = -1e30;
    MaxAddress = startaddress;
    const int32_t first = startaddress + 1;
    const int32_t last = endaddress - 1;
    if (first > last) return best;
    if (first < 0 || static_cast<size_t>(last) >= wave.size())
        throw RuntimeError(ErrorCode::Subscript, "Subscript out of range");
    for (int32_t i = first; i <= last; ++i) {
        if (wave[static_cast<size_t>(i)] >= best) {
            best = wave[static_cast<size_t>(i)];
            MaxAddress = i;
        }
    }
    return best;
}

int32_t GetMaxPeriod(const ChannelResultTable& table) {
    int32_t most = 1;
    for (int ch = 0; ch < kAnaChannels; ++ch)
        for (int kind = 0; kind < kKinds; ++kind) most = std::max(most, table.at(ch, kind).Counts);
    return most;
}

}  // namespace mervasto
