#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "results/CycleSeries.h"

// What the plot window and --plots show of a run, built in one place.
namespace mervasto {

class RunState;

// Values and where they lie on the wave windows' time axis (seconds).
struct PlotSeries {
    std::vector<double> times;
    std::vector<double> values;
};

struct ChannelPlots {
    std::string unit;             // of the cycle values: "s", "Hz", "V", "%"; "" for the gate
    PlotSeries cycles;            // each cycle's value (the quantity its type names), from where it starts
    PlotSeries tie;               // each rising edge's time interval error, seconds
    PlotSeries encoder;           // the encoder's position after each step, x4 counts
    std::vector<double> numbers;  // 1, 2, ...: as many as the longest of the three
    Histogram histogram;
};

// The value of each cycle of channel ch; none for a channel that measures
// no cycle (the gate).
std::vector<double> RunCycleValues(const RunState& state, int ch);

// The encoder's position after each step, for the pair.
PlotSeries RunEncoderPositions(const RunState& state);

// Channel ch of the run's last analysis; bins <= 0: chosen from the data.
ChannelPlots RunChannelPlots(const RunState& state, int ch, int32_t bins = 0);

}  // namespace mervasto
