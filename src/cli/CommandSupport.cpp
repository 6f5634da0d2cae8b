// What the commands share: telling failures, and the run state prepared from
// the options.
#include "cli/Commands.h"

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/SettingsTable.h"
#include "cli/Plots.h"
#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "wavefile/GenericCsv.h"

#include <filesystem>
#include <iostream>

namespace mervasto::cli {

void KeepFirst(Outcome& first, const Outcome& next) {
    if (first && !next) first = next;
}

Outcome Told(std::ostream& err, const Outcome& failed) {
    err << "mervasto-cli: " << failed.text() << '\n';
    return failed;
}

Outcome UsageError(std::ostream& err, const std::string& command, const std::string& text) {
    err << "mervasto-cli " << command << ": " << text << '\n';
    return {ErrorCode::BadOption, text};
}

WaveImportOptions ImportOptionsOf(const Options& o) {
    WaveImportOptions w;
    w.sampleInterval = o.importInterval;
    return w;
}

void ApplyTimeout(RunState& state, const Options& o) {
    if (o.instrument) state.settings().analysis.Instrument = *o.instrument;
    if (!o.timeoutMs) return;
    state.setReplyTimeoutMs(*o.timeoutMs);
    state.setExchangeDeadlineMs(*o.timeoutMs);
    state.settings().analysis.TimeoutSeconds = ShortestText(*o.timeoutMs / 1000.0);
}

Outcome PrepareState(RunState& state, const Options& o, std::ostream& err) {
    state.FormLoad(o.dataFolder.value_or(""));
    if (o.settingsFile)
        if (Outcome read = state.LoadSettingsFrom(*o.settingsFile); !read) return Told(err, read);
    for (const auto& problem : state.settingsProblems()) err << "mervasto-cli: " << problem << '\n';
    for (const auto& [name, value] : o.sets) {
        Outcome set = SetSettingByName(state.settings(), name, value);
        // Names that become part of file names stay in their folder.
        if (set && (name == "SampleNo" || name == "SampleIndex" || name == "DetailBaseName" || name == "WaveBaseName"))
            set = CheckFileNamePart(value, name);
        if (!set) {
            err << "mervasto-cli: --set " << name << '=' << value << ": " << set.text() << '\n';
            return {ErrorCode::BadOption, set.text()};
        }
    }
    if (o.resultsDb) (void)SetSettingByName(state.settings(), "ResultsDb", *o.resultsDb);
    state.setSaveResultLine(!o.noSave);
    state.setStoreResults(!o.noStore);
    state.setImportOptions(ImportOptionsOf(o));
    ApplyTimeout(state, o);
    return Outcome::Ok();
}

Outcome SettingsRefused(const RunState& state) {
    const size_t n = state.settingsProblems().size();
    if (n == 0) return Outcome::Ok();
    return {ErrorCode::BadOption, std::to_string(n) + " line(s) of the settings were refused"};
}

Outcome LoadComparatorOption(RunState& state, ScriptedUi& ui, const Options& o, std::ostream& err) {
    if (!o.comparator) return Outcome::Ok();
    Outcome loaded = state.LoadComparator(ui, *o.comparator);
    if (!loaded) err << "mervasto-cli: comparator " << *o.comparator << ": " << loaded.text() << '\n';
    return loaded;
}

Outcome WritePlots(const RunState& state, const Options& o, const std::string& base, std::ostream& err,
                   const SeriesTrend* series) {
    std::error_code ec;
    std::filesystem::create_directories(*o.plots, ec);
    std::vector<std::string> written;
    const Outcome plotted = WriteChannelPlots(state, *o.plots, base, written, series);
    for (const auto& name : written) err << "mervasto-cli: plot " << name << '\n';
    return plotted ? plotted : Told(err, plotted);
}

Outcome ReportUnsaved(RunState& state, std::ostream& err) {
    ScriptedUi quiet;
    Outcome left = state.SaveUnsavedResults(quiet);
    if (left) return left;
    std::string text = left.text();
    for (size_t cut; (cut = text.find("\r\n")) != std::string::npos;) text.replace(cut, 2, "\n");
    err << "mervasto-cli: " << text << '\n';
    return left;
}

Outcome ReportUnstored(const RunState& state, std::ostream& err) {
    if (state.storeFailures() == 0) return Outcome::Ok();
    const std::string text = std::to_string(state.storeFailures()) + " pass(es) could not be stored in " +
                             StoreTargetText(state.storeTarget()) + "; their result lines were written as usual";
    err << "mervasto-cli: " << text << '\n';
    return {ErrorCode::FileIo, text};
}

void ReportNotices(const RunState& state, std::ostream& err) {
    for (const auto& notice : state.notices()) err << "mervasto-cli: " << notice << '\n';
}

void ReportProbedPort(const RunState& state, std::ostream& err) {
    if (state.probedPort() == 0) return;
    err << "mervasto-cli: the DSO answered on port " << state.probedPort() << ": " << state.linkedInstrument() << " ("
        << state.instrumentFamily() << ")\n";
}

Outcome RefuseLacking(const RunState& state, InstrumentFeature feature, const std::string& option, std::ostream& err) {
    const FeatureSupport support = state.instrumentSupports(feature);
    if (support.available) return Outcome::Ok();
    err << "mervasto-cli: " << option << ": " << support.whyNot << '\n';
    return {ErrorCode::BadOption, option + ": " + support.whyNot};
}

void EchoToStderr(const std::string& line) { std::cerr << line << '\n'; }

}  // namespace mervasto::cli
