#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "store/PassRecord.h"

// The run in progress as the window's "Yield" tab shows it: how many of its
// passes were judged Go, and what each pass measured on its channels in use,
// for the control chart and for a pass clicked on it. Kept whether or not
// the store could take the passes.
namespace mervasto {

struct TallyValue {
    double min = 0, max = 0, mean = 0, sigma = 0;
    int32_t counts = 0;
    bool measured = false;
    bool judged = false;  // its limits were set
    bool go = false;
    float valueLL = 0, valueUL = 0;
};

struct TallyPass {
    int32_t pass = 0;
    std::optional<bool> verdict;
    uint8_t inUse = 0;               // bit ch: the channel was in use
    std::vector<TallyValue> values;  // every kind of each channel in use, in channel order
};

// The pass means of one channel and kind against pass number, with the
// centre line and sigma of those means and the value limits of the last pass.
struct ControlChartData {
    std::vector<double> pass;
    std::vector<double> mean;
    std::vector<uint8_t> ng;   // the pass's verdict of this kind was NG
    std::vector<size_t> from;  // the tally's pass each point belongs to
    double centre = 0;
    double sigma = 0;
    std::optional<std::array<double, 2>> valueLimits;
    std::string unit;
};

class RunTally {
public:
    // The next pass begins a new run, as it does in the store.
    void newRun() { newRun_ = true; }
    // Adds a pass; one of another run (see SameRun) starts the tally afresh.
    // runId is the store's id of the run (0 when it was not stored).
    void add(const RunInfo& run, const PassRecord& pass, int64_t runId);

    const RunInfo& run() const { return run_; }
    int64_t runId() const { return runId_; }
    std::span<const TallyPass> passes() const { return passes_; }
    int64_t judged() const { return judged_; }
    int64_t go() const { return go_; }
    // The value of a channel and kind in a pass; null when the channel was
    // not in use.
    const TallyValue* value(size_t pass, int ch, Measure kind) const;
    ControlChartData chart(int ch, Measure kind) const;

private:
    bool newRun_ = true;
    RunInfo run_;
    int64_t runId_ = 0;
    std::vector<TallyPass> passes_;
    int64_t judged_ = 0;
    int64_t go_ = 0;
};

}  // namespace mervasto
