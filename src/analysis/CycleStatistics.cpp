#include "analysis/CycleStatistics.h"

#include "analysis/RunningStatistic.h"

namespace mervasto {

namespace {

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
    // The seeds show in the results: a maximum starts at 0, the duty's
    // minimum at 100, the minimum of "Min" at 0.
    RunningStatistic pw{1e30, 0}, duty{100, 0}, two{1e30, 0}, period{1e30, 0}, freq{1e30, 0}, ample{1e30, 0},
        rms{1e30, 0};
    if (signalType == kTypeMin) two = RunningStatistic{0, -1e30};
    for (const CycleRecord& c : cycles) {
        pw.add(c.PulseWidth * ss);
        duty.add(c.Duty);
        two.add(rowTwoValue(signalType, c, ss, VRate));
        period.add(c.Period * ss);
        freq.add(c.Freq);
        ample.add(c.Ample * VRate);
        rms.add(c.Rms * VRate);
    }
    int kind = 0;
    for (const RunningStatistic* row : {&pw, &duty, &two, &period, &freq, &ample, &rms}) {
        ChannelResult& r = table.at(ch, kind++);
        row->storeInto(r);
        r.Valid = true;
    }
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
