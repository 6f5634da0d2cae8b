// analyze: wave files through the run state, as the window's "Input from
// File" takes them, one report per file.
#include "cli/Commands.h"

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "cli/FilePreload.h"
#include "cli/Report.h"
#include "results/ResultFiles.h"
#include "wavefile/GenericCsv.h"

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace mervasto::cli {

namespace {
// The title of a wave file's warnings among a pass's JSON "messages".
constexpr const char* kWaveFileWarningTitle = "Wave File";

// With more than one job, files load side by side.
std::unique_ptr<FilePreload> preloadFiles(RunState& state, const Options& o) {
    if (Jobs() < 2 || o.files.size() < 2 || o.combine) return nullptr;
    auto preload = std::make_unique<FilePreload>(o.files, state.importOptions());
    state.setFileLoader([p = preload.get()](const std::string& file, DsoSetup& setup, WaveRecord& record) {
        return p->load(file, setup, record);
    });
    return preload;
}
}  // namespace

Outcome CommandAnalyze(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.empty()) return UsageError(err, "analyze", "name at least one wave CSV file");
    RunState state;
    if (Outcome prepared = PrepareState(state, o, err); !prepared) return prepared;
    ScriptedUi ui;
    if (Outcome limits = LoadComparatorOption(state, ui, o, err); !limits) return limits;
    Outcome result;
    bool anyNg = false;
    ReportWriter report(out, o.format, o.cycles);
    const std::unique_ptr<FilePreload> preload = preloadFiles(state, o);
    // Combined, the files are one input of the run, named by all of them.
    std::vector<std::string> inputs = o.files;
    if (o.combine) {
        inputs = {CombinedName(o.files)};
        state.setFileLoader([&o, &state](const std::string&, DsoSetup& setup, WaveRecord& record) {
            return LoadCombinedWaveCsv(o.files, setup, record, state.importOptions());
        });
    }
    for (const auto& f : inputs) {
        ui.files.push_back(f);
        if (const Outcome input = state.InputFromFile_Click(ui); !input) {
            // The reader's own words name the file and the line; other faults do not.
            err << "mervasto-cli: " << (state.lastFileLoad().ok() ? f + ": " : std::string()) << input.text() << '\n';
            KeepFirst(result, input);
            continue;
        }
        // The analysis's signal-check messages go into the report.
        std::vector<ScriptedUi::Box> messages;
        for (const auto& m : state.lastAnalysis().messages) messages.push_back({m.text, MsgButtons::Ok, m.title});
        for (const auto& w : state.lastFileLoad().warnings) {
            if (o.format == "json")
                messages.insert(messages.begin(), ScriptedUi::Box{w, MsgButtons::Ok, kWaveFileWarningTitle});
            else
                err << "mervasto-cli: warning: " << w << '\n';
        }
        anyNg |= report.pass(f, state, messages, o.comparator.has_value(), std::nullopt);
        const std::string& named = o.combine ? o.files.front() : f;
        if (o.plots) KeepFirst(result, WritePlots(state, o, std::filesystem::path(named).stem().string(), err));
        if (!state.lastStore()) err << "mervasto-cli: " << state.lastStore().text() << '\n';
        if (o.format == "json" || !state.saveResultLine()) continue;
        const Outcome& saved = state.lastSave();
        err << (saved ? kSavedTestResults + state.resultFileName() + "." : saved.text()) << '\n';
    }
    report.finish();
    ReportNotices(state, err);
    KeepFirst(result, ReportUnsaved(state, err));
    KeepFirst(result, SettingsRefused(state));
    KeepFirst(result, ReportUnstored(state, err));
    if (result && anyNg) return {ErrorCode::VerdictNg, "a verdict is NG"};
    return result;
}

}  // namespace mervasto::cli
