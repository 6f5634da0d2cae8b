#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "app/ScriptedUi.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

class RunState;

// Every DsoSetup field, one per line, and as a JSON object.
void PrintSetupText(std::ostream& out, const std::string& source, const DsoSetup& setup);
void PrintSetupJson(std::ostream& out, const DsoSetup& setup);
// Per channel: samples, smallest and largest value.
void PrintRecordSummary(std::ostream& out, const DsoSetup& setup, const WaveRecord& record);

// Whether channel ch (0-based) was analysed: shown, not the gate, in the
// record and not refused by the analysis.
bool analysedChannel(const RunState& state, int ch);

// Writes the results of successive files or passes in one output form:
// "table" (the result grid as the window shows it), "csv" (one line per
// channel) or "json" (an array of objects, closed by finish()).
class ReportWriter {
public:
    ReportWriter(std::ostream& out, std::string format, bool cycles);
    // Returns true when a verdict is "NG" (only when verdicts are asked for).
    bool pass(const std::string& file, const RunState& state, const std::vector<ScriptedUi::Box>& messages,
              bool verdicts, std::optional<int32_t> passNumber);
    void finish();

private:
    std::ostream& out_;
    std::string format_;
    bool cycles_;
    int count_ = 0;
};

}  // namespace mervasto
