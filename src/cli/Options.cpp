#include "cli/Options.h"

#include "app/core/Startup.h"
#include "common/InstrumentFamilies.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"
#include "store/PassRecord.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <optional>
#include <set>
#include <string_view>

namespace mervasto::cli {

namespace {

constexpr const char* kUsage = R"(mervasto-cli: Periods/Encoder Pulses Analyzing from the command line.

Usage: mervasto-cli [--data-folder DIR] COMMAND [options]

Commands:
  info FILE...                 load wave CSV files and print their setup and record
  analyze [options] FILE...    analyse wave CSV files and print the results
                               (info, analyze and convert take other instruments' CSV too,
                               and "-" for standard input)
      --import-interval TIME   sample interval of captures without a time column,
                               in seconds or with a unit: 2e-3, 2ms, 2 us
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
      --jobs N                 at most N threads at work, 1 .. 256 (default: the machine's
                               cores, at least 2): files are read side by side, a long file
                               and the analysis's channels are shared out; 1: one at a time
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
  --ip vxi11://HOST[:PORT][/DEVICE]
                               reach the instrument over VXI-11 (PORT: its portmapper's, 111 by
                               default; DEVICE: inst0 by default) instead of its raw socket
  --usb /dev/usbtmcN           reach a USB instrument through its USBTMC device node (in place of --ip)
  --timeout SECONDS            give up on an instrument exchange (a reply, a block) after this long (default 10)
  --instrument FAMILY          the instrument's family: Auto (default: its identification chooses), Legacy,
                               Rigol, Siglent, Keysight or Tektronix; without a port in --ip, the family's
                               port (else 5198, 5025, 5555 and 4000 are tried)
  --results-db DB              the results store: a SQLite file, or postgresql://USER@HOST/DB for a line of
                               stations (default: the ResultsDb setting, else OutputData/results.sqlite)
Exit status: 0 success, 1 a file could not be read or written, 2 bad options or a refused setting
(a --set value; or a line of a settings file, which is told and the run goes on with the value
named), 3 a verdict is NG, 4 the instrument cannot be reached or failed during the run (the passes
before it are kept).
)";

constexpr int kMaxJobs = 256;

bool CaseInsensitiveEqual(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

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

// The sample intervals an import may name: from a picosecond to some days.
constexpr double kMinInterval = 1e-12;
constexpr double kMaxInterval = 1e6;

// Seconds, with a unit if wanted: "2e-3", "2ms", "2 us", "2 µs", "500ns".
std::optional<double> secondsText(std::string_view text) {
    static constexpr std::pair<std::string_view, double> kUnits[] = {{"ms", 1e-3}, {"us", 1e-6},  {"\u00b5s", 1e-6},
                                                                     {"ns", 1e-9}, {"ps", 1e-12}, {"s", 1.0}};
    std::string_view number = TrimBlanks(text);
    double scale = 1;
    for (const auto& [unit, factor] : kUnits)
        if (number.ends_with(unit)) {
            number.remove_suffix(unit.size());
            scale = factor;
            break;
        }
    try {
        return NumberText(number) * scale;
    } catch (const RuntimeError&) {
        return std::nullopt;
    }
}

const std::set<std::string>& optionsWithValues() {
    static const std::set<std::string> names = {
        "--data-folder", "--settings",   "--set", "--format",          "--comparator", "--ip",
        "--repeat",      "--timeout",    "--usb", "--import-interval", "--plots",      "--jobs",
        "--instrument",  "--results-db", "--run", "--since",           "--until"};
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
        else if (a == "--ip" || a == "--usb") {
            std::string v = args[++i];
            if (o.ip) return optionError("--ip and --usb name one instrument: give one of them once");
            // A USB instrument is its device node: "usbtmc0" is short for "/dev/usbtmc0".
            if (a == "--usb" && v.find('/') == std::string::npos) v.insert(0, "/dev/");
            if (a == "--usb" && TransportOfAddress(v) != DsoTransport::Usbtmc)
                return optionError("--usb takes a device node such as /dev/usbtmc0, not " + v);
            o.ip = v;
        } else if (a == "--repeat") {
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
            const std::optional<double> s = secondsText(v);
            if (!s || !(*s >= kMinInterval && *s <= kMaxInterval))
                return optionError("--import-interval takes a time above 0, 1e-12 to 1e6 s (2e-3, 2ms or 2 us), not " +
                                   v);
            o.importInterval = *s;
        } else if (a == "--plots") {
            o.plots = args[++i];
        } else if (a == "--jobs") {
            const std::string& v = args[++i];
            const bool digits = !v.empty() && v.size() <= 3 && v.find_first_not_of("0123456789") == std::string::npos;
            const int n = digits ? std::stoi(v) : 0;
            if (n < 1 || n > kMaxJobs)
                return optionError("--jobs takes a whole number from 1 to " + std::to_string(kMaxJobs) + ", not " + v);
            o.jobs = n;
        } else if (a == "--instrument") {
            const std::string& v = args[++i];
            std::string words;
            for (std::string_view family : kInstrumentChoices) {
                if (CaseInsensitiveEqual(family, v)) o.instrument = std::string(family);
                words += (words.empty() ? "" : ", ") + std::string(family);
            }
            if (!o.instrument) return optionError("--instrument takes " + words.append(", not ").append(v));
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
            if (!at)
                return optionError(
                    std::string(a).append(" takes a time YYYY-MM-DD[Thh:mm[:ss[.fff]]][Z] (UTC), not ").append(v));
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
