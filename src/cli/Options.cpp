#include "cli/Options.h"

#include "app/core/Startup.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "store/PassRecord.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace mervasto::cli {

namespace {

constexpr const char* kUsage = R"(mervasto-cli: Periods/Encoder Pulses Analyzing from the command line.

Usage: mervasto-cli [--data-folder DIR] COMMAND [options]

Commands:
  info FILE...                 load wave CSV files and print their setup and record
  analyze [options] FILE...    analyse wave CSV files and print the results
                               (info, analyze and convert take other instruments' CSV too,
                               and "-" for standard input)
      --import-interval SECONDS
                               sample interval of captures without a time column
      --combine                the files are one capture, a file per channel: one record,
                               their channels as Ch1, Ch2, ... in order (info, convert too)
      --settings FILE          settings from this resume file (default: the data folder's)
      --set NAME=VALUE         override one setting by its control name (repeatable)
      --format table|csv|json  output form (default table)
      --cycles                 with json: every cycle record
      --comparator FILE        load Go/NG limits and print the verdicts (exit 3 on NG)
      --no-save                do not append to ResultData.csv (nor EncoderData.csv), nor store
      --no-store               do not store the passes in the results store
      --plots DIR              also write each analysed channel's wave, histogram and
                               trend as PNG into DIR, named after the file and channel
      --jobs 1|2               2 (default): load the next file while one is analysed;
                               1: one file at a time
  convert [--generic] IN OUT   write IN in the program's own wave CSV layout, or with
                               --generic as a plain "Time(s),CH1(V),..." file;
                               with --combine IN... OUT, several files as one record
  make-examples DIR            write the bundled example records into DIR
  readout --ip HOST[:PORT] [--format table|json]
                               read and print the instrument's setup
  fetch --ip HOST[:PORT] OUT.csv
                               transfer the instrument's channels into a wave CSV file
  acquire --ip HOST[:PORT] [--repeat N] [--new-acquisition] [--omit-range]
          [--settings FILE] [--set NAME=VALUE ...] [--format table|csv|json] [--no-save]
          [--plots DIR] [--no-store]
                               run acquisitions without a window; Ctrl+C stops after the pass;
                               --plots draws the last pass, named after the sample
  results list                 the stored runs: id, station, sample, start, passes, yield
  results export [--run ID ... | --since TIME --until TIME] [--format csv|json]
                               one row per stored pass, channel and kind, in SI base units
  results summary [--run ID ...] [--format table|csv|json]
                               per channel and kind: passes, min, max, mean, sigma, yield, Cp, Cpk
                               (TIME: YYYY-MM-DD[Thh:mm[:ss]] in UTC; --until is the first left out)

Global options: --help, --version, --data-folder DIR,
  --timeout SECONDS            give up on an instrument exchange (a reply, a block) after this long (default 10)
  --results-db DB              the results store: a SQLite file, or postgresql://USER@HOST/DB for a line of
                               stations (default: the ResultsDb setting, else OutputData/results.sqlite)
Exit status: 0 success, 1 a file could not be read or written, 2 bad options, 3 a verdict is NG,
4 the instrument cannot be reached or failed during the run (the passes before it are kept).
)";

// A misspelt or misplaced option: the usage tells the right form.
Outcome optionError(const std::string& text) { return {ErrorCode::BadOption, text + "\n(try --help)"}; }

// A number option's value; a value that is no number is the option's fault.
Outcome numberOption(const std::string& v, double& n) {
    try {
        n = NumberText(v);
        return Outcome::Ok();
    } catch (const RuntimeError& e) {
        return {ErrorCode::BadOption, e.what()};
    }
}

const std::set<std::string>& optionsWithValues() {
    static const std::set<std::string> names = {
        "--data-folder",     "--settings", "--set",  "--format",     "--comparator", "--ip",    "--repeat", "--timeout",
        "--import-interval", "--plots",    "--jobs", "--results-db", "--run",        "--since", "--until"};
    return names;
}

}  // namespace

const char* UsageText() { return kUsage; }

Outcome ParseOptions(const std::vector<std::string>& args, Options& o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (optionsWithValues().count(a) && i + 1 >= args.size()) return optionError(a + " needs a value");
        if (a == "--data-folder")
            o.dataFolder = args[++i];
        else if (a == "--settings")
            o.settingsFile = args[++i];
        else if (a == "--set") {
            const std::string& nv = args[++i];
            auto eq = nv.find('=');
            if (eq == std::string::npos) return optionError("--set takes NAME=VALUE, not " + nv);
            o.sets.emplace_back(nv.substr(0, eq), nv.substr(eq + 1));
        } else if (a == "--format") {
            o.format = args[++i];
            if (o.format != "table" && o.format != "csv" && o.format != "json")
                return optionError("--format is table, csv or json, not " + o.format);
        } else if (a == "--cycles")
            o.cycles = true;
        else if (a == "--no-save")
            o.noSave = true;
        else if (a == "--comparator")
            o.comparator = args[++i];
        else if (a == "--ip")
            o.ip = args[++i];
        else if (a == "--repeat") {
            const std::string& v = args[++i];
            double n = 0;
            if (Outcome number = numberOption(v, n); !number) return number;
            if (n < 0 || n > kMaxTotalRepeats || n != RoundHalfEven(n))
                return optionError("--repeat takes 0 .. " + std::to_string(kMaxTotalRepeats) + ", not " + v);
            o.repeat = static_cast<int32_t>(n);
        } else if (a == "--timeout") {
            const std::string& v = args[++i];
            double s = 0;
            if (Outcome number = numberOption(v, s); !number) return number;
            if (!(s > 0 && s <= 3600)) return optionError("--timeout takes seconds above 0, at most 3600, not " + v);
            o.timeoutMs = std::max(1, static_cast<int>(s * 1000));
        } else if (a == "--import-interval") {
            const std::string& v = args[++i];
            double s = Val(v);
            if (!(s > 0 && std::isfinite(s))) return optionError("--import-interval takes seconds above 0, not " + v);
            o.importInterval = s;
        } else if (a == "--plots") {
            o.plots = args[++i];
        } else if (a == "--jobs") {
            const std::string& v = args[++i];
            if (v != "1" && v != "2") return optionError("--jobs takes 1 or 2, not " + v);
            o.jobs = v == "1" ? 1 : 2;
        } else if (a == "--results-db") {
            o.resultsDb = args[++i];
        } else if (a == "--run") {
            const std::string& v = args[++i];
            double n = 0;
            if (!numberOption(v, n) || n < 1 || n != RoundHalfEven(n) || n > 9e15)
                return optionError("--run takes a run's id (a whole number from 1), not " + v);
            o.runs.push_back(static_cast<int64_t>(n));
        } else if (a == "--since" || a == "--until") {
            const std::string& v = args[++i];
            const std::optional<std::string> at = StoreTimeOf(v);
            if (!at) return optionError(a + " takes a time YYYY-MM-DD[Thh:mm[:ss[.fff]]][Z] (UTC), not " + v);
            (a == "--since" ? o.since : o.until) = *at;
        } else if (a == "--no-store")
            o.noStore = true;
        else if (a == "--generic")
            o.generic = true;
        else if (a == "--combine")
            o.combine = true;
        else if (a == "--new-acquisition")
            o.newAcquisition = true;
        else if (a == "--omit-range")
            o.omitRange = true;
        else if (a.size() > 1 && a[0] == '-' && a != "-")
            return optionError("unknown option " + a);
        else if (o.command.empty())
            o.command = a;
        else
            o.files.push_back(a);
    }
    if (std::count(o.files.begin(), o.files.end(), "-") > 1)
        return optionError("\"-\" (standard input) can be named once: its bytes come only once");
    return Outcome::Ok();
}

}  // namespace mervasto::cli
