#include "cli/Cli.h"

#include "app/core/DataFolders.h"
#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/Settings.h"
#include "app/core/SettingsTable.h"
#include "app/core/Startup.h"
#include "app/core/Version.h"
#include "common/PackageVersion.h"
#include "cli/FilePreload.h"
#include "cli/Json.h"
#include "cli/Plots.h"
#include "cli/Report.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"
#include "dso/DsoSetupReadout.h"
#include "dso/WaveTransfer.h"
#include "results/Comparator.h"
#include "results/SeriesTrend.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"

#include <QCoreApplication>
#include <QTimer>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <functional>
#include <csignal>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

namespace mervasto {

namespace {

std::atomic<bool> gInterrupted{false};

// The title of a wave file's warnings among a pass's JSON "messages".
constexpr const char* kWaveFileWarningTitle = "Wave File";

extern "C" void onInterrupt(int) { gInterrupted = true; }

constexpr const char* kUsage = R"(mervasto-cli: Periods/Encoder Pulses Analyzing from the command line.

Usage: mervasto-cli [--data-folder DIR] COMMAND [options]

Commands:
  info FILE...                 load wave CSV files and print their setup and record
  analyze [options] FILE...    analyse wave CSV files and print the results
      --import-interval SECONDS
                               sample interval of captures without a time column
                               (info, analyze and convert take other instruments' CSV too)
      --settings FILE          settings from this resume file (default: the data folder's)
      --set NAME=VALUE         override one setting by its control name (repeatable)
      --format table|csv|json  output form (default table)
      --cycles                 with json: every cycle record
      --comparator FILE        load Go/NG limits and print the verdicts (exit 3 on NG)
      --no-save                do not append to ResultData.csv (nor EncoderData.csv)
      --plots DIR              also write each analysed channel's wave, histogram and
                               trend as PNG into DIR, named after the file and channel
      --jobs 1|2               2 (default): load the next file while one is analysed;
                               1: one file at a time
  convert [--generic] IN OUT   write IN in the program's own wave CSV layout, or with
                               --generic as a plain "Time(s),CH1(V),..." file
  make-examples DIR            write the bundled example records into DIR
  readout --ip HOST[:PORT] [--format table|json]
                               read and print the instrument's setup
  fetch --ip HOST[:PORT] OUT.csv
                               transfer the instrument's channels into a wave CSV file
  acquire --ip HOST[:PORT] [--repeat N] [--new-acquisition] [--omit-range]
          [--settings FILE] [--set NAME=VALUE ...] [--format table|csv|json] [--no-save]
          [--plots DIR]
                               run acquisitions without a window; Ctrl+C stops after the pass;
                               --plots draws the last pass, named after the sample

Global options: --help, --version, --data-folder DIR,
  --timeout SECONDS            give up on an instrument exchange (a reply, a block) after this long (default 10)
Exit status: 0 success, 1 a file could not be read or written, 2 bad options, 3 a verdict is NG,
4 the instrument cannot be reached or failed during the run (the passes before it are kept).
)";

struct Options {
    std::string command;
    std::vector<std::string> files;
    std::optional<std::string> dataFolder;
    std::optional<std::string> settingsFile;
    std::vector<std::pair<std::string, std::string>> sets;
    std::string format = "table";
    bool cycles = false;
    bool noSave = false;
    std::optional<std::string> comparator;
    std::optional<std::string> ip;
    std::optional<int32_t> repeat;
    bool newAcquisition = false;
    bool omitRange = false;
    std::optional<int> timeoutMs;
    double importInterval = 0;
    bool generic = false;
    std::optional<std::string> plots;
    int jobs = 2;
};

struct OptionError {
    std::string text;
};

Options parse(const std::vector<std::string>& args) {
    Options o;
    auto need = [&](size_t& i) -> const std::string& {
        if (i + 1 >= args.size()) throw OptionError{args[i] + " needs a value"};
        return args[++i];
    };
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--data-folder")
            o.dataFolder = need(i);
        else if (a == "--settings")
            o.settingsFile = need(i);
        else if (a == "--set") {
            const std::string& nv = need(i);
            auto eq = nv.find('=');
            if (eq == std::string::npos) throw OptionError{"--set takes NAME=VALUE, not " + nv};
            o.sets.emplace_back(nv.substr(0, eq), nv.substr(eq + 1));
        } else if (a == "--format") {
            o.format = need(i);
            if (o.format != "table" && o.format != "csv" && o.format != "json")
                throw OptionError{"--format is table, csv or json, not " + o.format};
        } else if (a == "--cycles")
            o.cycles = true;
        else if (a == "--no-save")
            o.noSave = true;
        else if (a == "--comparator")
            o.comparator = need(i);
        else if (a == "--ip")
            o.ip = need(i);
        else if (a == "--repeat") {
            const std::string& v = need(i);
            double n = NumberText(v);
            if (n < 0 || n > kMaxTotalRepeats || n != RoundHalfEven(n))
                throw OptionError{"--repeat takes 0 .. " + std::to_string(kMaxTotalRepeats) + ", not " + v};
            o.repeat = static_cast<int32_t>(n);
        } else if (a == "--timeout") {
            const std::string& v = need(i);
            double s = NumberText(v);
            if (!(s > 0 && s <= 3600)) throw OptionError{"--timeout takes seconds above 0, at most 3600, not " + v};
            o.timeoutMs = std::max(1, static_cast<int>(s * 1000));
        } else if (a == "--import-interval") {
            const std::string& v = need(i);
            double s = Val(v);
            if (!(s > 0 && std::isfinite(s))) throw OptionError{"--import-interval takes seconds above 0, not " + v};
            o.importInterval = s;
        } else if (a == "--plots") {
            o.plots = need(i);
        } else if (a == "--jobs") {
            const std::string& v = need(i);
            if (v != "1" && v != "2") throw OptionError{"--jobs takes 1 or 2, not " + v};
            o.jobs = v == "1" ? 1 : 2;
        } else if (a == "--generic")
            o.generic = true;
        else if (a == "--new-acquisition")
            o.newAcquisition = true;
        else if (a == "--omit-range")
            o.omitRange = true;
        else if (a.size() > 1 && a[0] == '-' && a != "-")
            throw OptionError{"unknown option " + a};
        else if (o.command.empty())
            o.command = a;
        else
            o.files.push_back(a);
    }
    return o;
}

void echoToStderr(const std::string& line) { std::cerr << line << '\n'; }

// Prepares the run state: data folder, settings, overrides.
// Result lines the results file could not take are tried once more, then
// printed, so that none is lost. False when some could not be written.
// What the run said once in the status bar that a command line would not
// show otherwise.
void reportNotices(const RunState& state, std::ostream& err) {
    for (const auto& notice : state.notices()) err << "mervasto-cli: " << notice << '\n';
}

bool reportUnsaved(RunState& state, std::ostream& err) {
    ScriptedUi quiet;
    if (state.SaveUnsavedResults(quiet)) return true;
    std::string text = state.unsavedResultsText();
    for (size_t cut; (cut = text.find("\r\n")) != std::string::npos;) text.replace(cut, 2, "\n");
    err << "mervasto-cli: " << text << '\n';
    return false;
}

// --timeout bounds both the instrument's silence and every whole exchange,
// for the run (through its setting) as for the direct readout and fetch.
void applyTimeout(RunState& state, const Options& o) {
    if (!o.timeoutMs) return;
    state.setReplyTimeoutMs(*o.timeoutMs);
    state.setExchangeDeadlineMs(*o.timeoutMs);
    state.settings().analysis.TimeoutSeconds = ShortestText(*o.timeoutMs / 1000.0);
}

WaveImportOptions importOptions(const Options& o) {
    WaveImportOptions w;
    w.sampleInterval = o.importInterval;
    return w;
}

bool prepareState(RunState& state, const Options& o, std::ostream& err) {
    state.FormLoad(o.dataFolder.value_or(""));
    if (o.settingsFile && !state.LoadSettingsFrom(*o.settingsFile)) {
        err << "mervasto-cli: cannot read the settings file " << *o.settingsFile << '\n';
        return false;
    }
    for (const auto& problem : state.settingsProblems())
        err << "mervasto-cli: warning: settings file, " << problem << '\n';
    for (const auto& [name, value] : o.sets) {
        Outcome set = SetSettingByName(state.settings(), name, value);
        // Names that become part of file names stay in their folder.
        if (set && (name == "SampleNo" || name == "SampleIndex" || name == "DetailBaseName" || name == "WaveBaseName"))
            set = CheckFileNamePart(value, name);
        if (!set) {
            err << "mervasto-cli: --set " << name << '=' << value << ": " << set.text() << '\n';
            return false;
        }
    }
    state.setSaveResultLine(!o.noSave);
    state.setImportOptions(importOptions(o));
    applyTimeout(state, o);
    return true;
}

int commandConvert(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.size() != 2) {
        err << "mervasto-cli convert: name the input file and the output file\n";
        return kExitBadOptions;
    }
    DsoSetup setup;
    WaveRecord record;
    WaveFieldTable table;
    const WaveCsvLoadResult r = LoadAnyWaveCsv(o.files[0], setup, record, table, importOptions(o));
    if (!r.ok()) {
        err << "mervasto-cli: " << r.outcome.text() << '\n';
        return kExitFileError;
    }
    for (const auto& w : r.warnings) err << "mervasto-cli: warning: " << w << '\n';
    const Outcome saved =
        o.generic ? SaveGenericCsv(o.files[1], setup, record) : SaveWaveCsv(o.files[1], setup, record);
    if (!saved) {
        err << "mervasto-cli: " << saved.text() << '\n';
        return kExitFileError;
    }
    out << "Converted " << setup.RecordLength << " samples of " << setup.ChannelCount << " channels from " << o.files[0]
        << " to " << o.files[1] << '\n';
    return kExitOk;
}

int commandInfo(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.empty()) {
        err << "mervasto-cli info: name at least one wave CSV file\n";
        return kExitBadOptions;
    }
    int status = kExitOk;
    WaveFieldTable table;
    for (const auto& f : o.files) {
        DsoSetup setup;
        WaveRecord record;
        WaveCsvLoadResult r = LoadAnyWaveCsv(f, setup, record, table, importOptions(o));
        if (!r.ok()) {
            err << "mervasto-cli: " << r.outcome.text() << '\n';
            status = kExitFileError;
        }
        for (const auto& w : r.warnings) err << "mervasto-cli: warning: " << w << '\n';
        if (!r.ok() && r.generic) {
            // A refused capture gave no setup: nothing to show but the rows.
            out << "Source: " << f << "\nLayout: generic CSV, refused\nRows read: " << r.rowsRead << '\n';
            continue;
        }
        PrintSetupText(out, f, setup);
        out << "Layout: " << (r.generic ? r.layout : std::string("wave CSV")) << '\n';
        out << "Rows read: " << r.rowsRead << '\n';
        PrintRecordSummary(out, setup, record);
    }
    return status;
}

// Applies --comparator to the state; prints verdicts later.
bool loadComparator(RunState& state, ScriptedUi& ui, const Options& o, std::ostream& err) {
    if (!o.comparator) return true;
    if (!state.LoadComparator(ui, *o.comparator)) {
        err << "mervasto-cli: comparator " << *o.comparator << ": "
            << (ui.boxes.empty() ? std::string("cannot be read") : ui.boxes.back().text) << '\n';
        return false;
    }
    return true;
}

// --plots: the pictures of the state's channels into the folder (made when
// missing), named from base; false after telling why they could not be written.
bool writePlots(const RunState& state, const Options& o, const std::string& base, std::ostream& err,
                const SeriesTrend* series = nullptr) {
    std::error_code ec;
    std::filesystem::create_directories(*o.plots, ec);
    std::vector<std::string> written;
    const Outcome plotted = WriteChannelPlots(state, *o.plots, base, written, series);
    for (const auto& name : written) err << "mervasto-cli: plot " << name << '\n';
    if (!plotted) err << "mervasto-cli: " << plotted.text() << '\n';
    return plotted.ok();
}

int commandAnalyze(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.empty()) {
        err << "mervasto-cli analyze: name at least one wave CSV file\n";
        return kExitBadOptions;
    }
    RunState state;
    if (!prepareState(state, o, err)) return kExitBadOptions;
    ScriptedUi ui;
    if (!loadComparator(state, ui, o, err)) return kExitFileError;
    int status = kExitOk;
    bool anyNg = false;
    ReportWriter report(out, o.format, o.cycles);
    std::unique_ptr<FilePreload> preload;
    if (o.jobs > 1 && o.files.size() > 1) {
        preload = std::make_unique<FilePreload>(o.files, state.setup(), state.record(), state.fieldTable(),
                                                state.importOptions());
        state.setFileLoader([&preload](const std::string& file, DsoSetup& setup, WaveRecord& record,
                                       WaveFieldTable& table) { return preload->load(file, setup, record, table); });
    }
    for (const auto& f : o.files) {
        ui.files.push_back(f);
        size_t boxesBefore = ui.boxes.size();
        if (!state.InputFromFile_Click(ui)) {
            // The reader's own words say why, naming the file and the line.
            if (!state.lastFileLoad().ok())
                err << "mervasto-cli: " << state.lastFileLoad().outcome.text() << '\n';
            else
                err << f << ": " << ui.status[1] << ' ' << ui.status[2] << '\n';
            status = kExitFileError;
            continue;
        }
        std::vector<ScriptedUi::Box> boxes(ui.boxes.begin() + static_cast<std::ptrdiff_t>(boxesBefore), ui.boxes.end());
        for (const auto& w : state.lastFileLoad().warnings) {
            if (o.format == "json")
                boxes.insert(boxes.begin(), ScriptedUi::Box{w, MsgButtons::Ok, kWaveFileWarningTitle});
            else
                err << "mervasto-cli: warning: " << w << '\n';
        }
        anyNg |= report.pass(f, state, boxes, o.comparator.has_value(), std::nullopt);
        if (o.plots && !writePlots(state, o, std::filesystem::path(f).stem().string(), err)) status = kExitFileError;
        if (o.format != "json" && !state.saveResultLine()) continue;
        if (o.format != "json") err << ui.status[1] << '\n';
    }
    report.finish();
    reportNotices(state, err);
    if (!reportUnsaved(state, err)) return kExitFileError;
    if (status == kExitOk && anyNg) status = kExitNg;
    return status;
}

int commandMakeExamples(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.size() != 1) {
        err << "mervasto-cli make-examples: name the folder to write into\n";
        return kExitBadOptions;
    }
    // Only files really written are listed; the first failure ends the run.
    for (const auto& name : ExampleNames()) {
        DsoSetup setup;
        WaveRecord record;
        MakeExampleRecord(name, setup, record);
        std::string file = JoinPath(o.files[0], name + ".csv");
        if (Outcome saved = SaveWaveCsv(file, setup, record); !saved) {
            err << "mervasto-cli: " << saved.text() << '\n';
            return kExitFileError;
        }
        out << file << '\n';
    }
    return kExitOk;
}

// Connects, identifies and runs one exchange with the instrument, then hands
// the front panel back. The exchange returns an error text, or "" when it
// went well.
int withInstrument(RunState& state, const std::string& ip, std::ostream& err,
                   const std::function<std::string(ScriptedUi&)>& exchange) {
    ScriptedUi ui;
    try {
        const Outcome linked = state.ConnectInstrument(ui, ip);
        if (!linked) {
            err << "mervasto-cli: " << linked.text() << " (" << ip << ")\n";
            return kExitNoInstrument;
        }
        std::string why = exchange(ui);
        if (!why.empty()) {
            err << "mervasto-cli: " << why << '\n';
            return kExitNoInstrument;
        }
        if (const Outcome local = state.HandBackInstrument(); !local) {
            err << "mervasto-cli: " << local.text() << '\n';
            return kExitNoInstrument;
        }
    } catch (const RuntimeError& e) {
        err << "mervasto-cli: " << e.what() << '\n';
        return kExitNoInstrument;
    }
    return kExitOk;
}

int commandReadout(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip) {
        err << "mervasto-cli readout: --ip HOST[:PORT] is needed\n";
        return kExitBadOptions;
    }
    RunState state;
    state.FormLoad(o.dataFolder.value_or(""));
    applyTimeout(state, o);
    int status = withInstrument(state, *o.ip, err, [&](ScriptedUi& ui) {
        const Outcome read = state.ReadInstrumentSetup(ui, *o.ip);
        return read ? std::string() : read.text() + " (" + *o.ip + ")";
    });
    if (status != kExitOk) return status;
    if (o.format == "json")
        PrintSetupJson(out, state.setup());
    else
        PrintSetupText(out, *o.ip, state.setup());
    return kExitOk;
}

int commandFetch(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip || o.files.size() != 1) {
        err << "mervasto-cli fetch: --ip HOST[:PORT] and one output file are needed\n";
        return kExitBadOptions;
    }
    RunState state;
    state.FormLoad(o.dataFolder.value_or(""));
    applyTimeout(state, o);
    int status = withInstrument(state, *o.ip, err, [&](ScriptedUi& ui) {
        const Outcome transferred = state.WaveTrans(ui, kInputTypeDso, {});
        return transferred ? std::string() : transferred.text();
    });
    if (status != kExitOk) return status;
    if (Outcome saved = SaveWaveCsv(o.files[0], state.setup(), state.record()); !saved) {
        err << "mervasto-cli: " << saved.text() << '\n';
        return kExitFileError;
    }
    out << "Saved " << state.record().WaveLength << " samples of " << state.setup().ChannelCount << " channels to "
        << o.files[0] << '\n';
    return kExitOk;
}

int commandAcquire(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip) {
        err << "mervasto-cli acquire: --ip HOST[:PORT] is needed\n";
        return kExitBadOptions;
    }
    RunState state;
    if (!prepareState(state, o, err)) return kExitBadOptions;
    auto& a = state.settings().analysis;
    a.IPAdressText = *o.ip;
    if (o.repeat) {
        a.RepeatCheck = true;
        a.TotalRepeats = std::to_string(*o.repeat);
    } else if (!o.sets.empty() || o.settingsFile) {
        // keep what the settings say
    } else {
        a.RepeatCheck = false;
    }
    if (o.newAcquisition) a.DaqCheck = true;
    if (o.omitRange) a.OmitRangeEffect = true;
    ScriptedUi ui;
    ui.keepStatusLog = false;
    ui.echo = o.format == "json" ? nullptr : &echoToStderr;
    if (!loadComparator(state, ui, o, err)) return kExitFileError;

    ReportWriter report(out, o.format, o.cycles);
    bool anyNg = false;
    int64_t passes = 0;
    SeriesTrend series;
    const Subscription reportPasses = state.passFinished.subscribe([&] {
        ++passes;
        anyNg |= report.pass("", state, {}, o.comparator.has_value(), state.repeatCounter());
        if (!o.plots) return;
        series.add(state.repeatCounter(), state.results().table, state.channelDisplays());
    });
    gInterrupted = false;
    auto previous = std::signal(SIGINT, onInterrupt);
    QTimer stopWatch;
    QObject::connect(&stopWatch, &QTimer::timeout, [&] {
        if (gInterrupted) state.Stop_Click();
    });
    stopWatch.start(50);
    state.WFStartCommand_Click(ui);
    stopWatch.stop();
    std::signal(SIGINT, previous);
    report.finish();
    if (!ui.echo) reportNotices(state, err);
    const bool saved = reportUnsaved(state, err);
    const bool plotted = !o.plots || passes == 0 || writePlots(state, o, state.sampleName(), err, &series);
    err << "mervasto-cli acquire: " << passes << " pass(es), " << std::max(state.logGrid().nextRow - kLogHeaderRows, 0)
        << " log row(s), " << state.resultLines().written() << " result line(s) written\n";
    if (!state.runFailure()) {
        err << "mervasto-cli acquire: the run ended after " << passes << " pass(es): " << state.runFailure().text()
            << '\n';
        return state.runFailure().code() == ErrorCode::FileIo ? kExitFileError : kExitNoInstrument;
    }
    if (!saved || !plotted) return kExitFileError;
    return anyNg ? kExitNg : kExitOk;
}

}  // namespace

int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    for (const auto& a : args) {
        if (a == "--help" || a == "-h") {
            out << kUsage;
            return kExitOk;
        }
        if (a == "--version") {
            // The settings keep the fixed identity of the resume file; saying
            // which one tells a user where their settings live.
            out << "mervasto-cli " << kPackageVersion << '\n'
                << "settings: Resume" << kVersionText << ".txt " << CaptionSuffix() << '\n';
            return kExitOk;
        }
    }
    Options o;
    try {
        o = parse(args);
    } catch (const OptionError& e) {
        err << "mervasto-cli: " << e.text << "\n(try --help)\n";
        return kExitBadOptions;
    } catch (const RuntimeError& e) {
        err << "mervasto-cli: " << e.what() << '\n';
        return kExitBadOptions;
    }
    if (o.command.empty()) {
        err << kUsage;
        return kExitBadOptions;
    }
    try {
        if (o.command == "info") return commandInfo(o, out, err);
        if (o.command == "analyze") return commandAnalyze(o, out, err);
        if (o.command == "convert") return commandConvert(o, out, err);
        if (o.command == "make-examples") return commandMakeExamples(o, out, err);
        if (o.command == "readout") return commandReadout(o, out, err);
        if (o.command == "fetch") return commandFetch(o, out, err);
        if (o.command == "acquire") return commandAcquire(o, out, err);
    } catch (const RuntimeError& e) {
        err << "mervasto-cli: " << e.what() << '\n';
        return kExitFileError;
    }
    err << "mervasto-cli: unknown command " << o.command << "\n(try --help)\n";
    return kExitBadOptions;
}

}  // namespace mervasto
