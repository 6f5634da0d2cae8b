#pragma once

#include <string>

#include "store/PassRecord.h"

namespace mervasto::test {

// A run of four Period channels, named after the station.
inline RunInfo SampleRun(const std::string& station, const std::string& sample = "Lot 7") {
    RunInfo run;
    run.station = station;
    run.sample = sample;
    run.program = "1.0.0";
    run.settings = {{"MaxCycles", "1000"}, {"SampleNo", sample}, {"SampleIndex", "1"}, {"Comment", ""}};
    for (int ch = 0; ch < kChannels; ++ch) {
        auto& c = run.channels[static_cast<size_t>(ch)];
        c.typeIndex = kTypePeriod;
        c.typeText = "Period";
        c.name = station + " ch" + std::to_string(ch + 1);
    }
    return run;
}

// A pass whose every channel and kind is measured: the means tell the pass
// (value + kind / 10 + channel / 100), the counts the channel.
inline PassRecord SamplePass(int32_t number, double value) {
    PassRecord p;
    p.passNumber = number;
    p.started = "2024-05-01T08:00:00.000Z";
    p.sampleName = "Lot 7" + std::to_string(number);
    p.sampleIndex = std::to_string(number);
    p.source = "pulses.csv";
    p.inUse.fill(true);
    for (int ch = 0; ch < kChannels; ++ch)
        for (Measure kind : kMeasures) {
            ChannelResult& r = p.table.at(ch, kind);
            r.Mean = value + static_cast<int>(kind) / 10.0 + ch / 100.0;
            r.Min = r.Mean - 0.5;
            r.Max = r.Mean + 0.5;
            r.Sigma = 0.25;
            r.Counts = 100 + ch;
            r.Valid = true;
            r.Go = true;
        }
    return p;
}

}  // namespace mervasto::test
