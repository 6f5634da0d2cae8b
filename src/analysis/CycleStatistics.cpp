#include "analysis/CycleStatistics.h"

#include <cmath>

namespace mervasto {

namespace {

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
        r.Valid = true;
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

void SummariseCycles(int ch, int32_t signalType, std::span<const CycleRecord> cycles, float SampleSec, double VRate,
                     ChannelResultTable& table) {
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
        r.Go = false;
        r.Valid = false;
    }
}

}  // namespace mervasto
