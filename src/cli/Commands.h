#pragma once

#include <iosfwd>
#include <string>

#include "cli/Options.h"
#include "common/Outcome.h"

namespace mervasto {
enum class InstrumentFeature;
class RunState;
class ScriptedUi;
class SeriesTrend;
struct WaveImportOptions;
}  // namespace mervasto

namespace mervasto::cli {

// The commands. Each prints its results to out and tells every failure on
// err as it meets it; it returns the first failure, or a verdict NG when
// nothing failed, and the command line's exit status follows its kind.
Outcome CommandInfo(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandConvert(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandMakeExamples(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandAnalyze(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandReadout(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandFetch(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandAcquire(const Options& o, std::ostream& out, std::ostream& err);
Outcome CommandResults(const Options& o, std::ostream& out, std::ostream& err);

// --- shared by the commands ------------------------------------------------
// Keeps the first failure: a later one does not replace it.
void KeepFirst(Outcome& first, const Outcome& next);
// Prints "mervasto-cli: " and the failure's text, and hands it on.
Outcome Told(std::ostream& err, const Outcome& failed);
// A command named without what it needs: "mervasto-cli COMMAND: text".
Outcome UsageError(std::ostream& err, const std::string& command, const std::string& text);

// The run state from the options: data folder, settings file, --set, the
// result line switch, the import options and the time-out.
Outcome PrepareState(RunState& state, const Options& o, std::ostream& err);
// The lines of the settings files that were refused (told on err as they
// were read; the run went on with the values named): a setting's failure.
Outcome SettingsRefused(const RunState& state);
WaveImportOptions ImportOptionsOf(const Options& o);
// --timeout bounds the instrument's silence and every whole exchange;
// --instrument names the family.
void ApplyTimeout(RunState& state, const Options& o);
// --comparator, when given: the limits loaded, or why not.
Outcome LoadComparatorOption(RunState& state, ScriptedUi& ui, const Options& o, std::ostream& err);
// --plots: the pictures of the state's channels into the folder (made when
// missing), named from base.
Outcome WritePlots(const RunState& state, const Options& o, const std::string& base, std::ostream& err,
                   const SeriesTrend* series = nullptr);
// Result lines the results file could not take are tried once more, then
// printed, so that none is lost.
Outcome ReportUnsaved(RunState& state, std::ostream& err);
// Passes the results store refused: how many, and where they belong.
Outcome ReportUnstored(const RunState& state, std::ostream& err);
// What the run said once in the status bar that a command line would not
// show otherwise (an older encoder file keeping its columns, say).
void ReportNotices(const RunState& state, std::ostream& err);
// Which port answered when the address named none, and what is there.
void ReportProbedPort(const RunState& state, std::ostream& err);
// A feature the linked family lacks refuses the option that asks for it
// (ErrorCode::BadOption, told on err); ok when it has it.
Outcome RefuseLacking(const RunState& state, InstrumentFeature feature, const std::string& option, std::ostream& err);
// A status text or box of a run without a window, on stderr.
void EchoToStderr(const std::string& line);

}  // namespace mervasto::cli
