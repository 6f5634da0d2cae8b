#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/Outcome.h"

namespace mervasto::cli {

// The command line as given: the command, its files and every option.
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
    std::optional<std::string> instrument;  // a family's name as the Instrument setting spells it
    std::optional<int32_t> repeat;
    bool newAcquisition = false;
    bool omitRange = false;
    std::optional<int> timeoutMs;
    double importInterval = 0;
    bool generic = false;
    bool combine = false;  // the files are the channels of one record
    std::optional<std::string> plots;
    std::optional<int> jobs;  // --jobs: the work pool's cap; its default when not given
    // The results store: where it is, whether passes go to it, and which
    // passes the results command reads.
    std::optional<std::string> resultsDb;
    bool noStore = false;
    std::vector<int64_t> runs;
    std::optional<std::string> since;
    std::optional<std::string> until;
};

// What --help prints.
const char* UsageText();

// Reads the arguments into o. A failure is ErrorCode::BadOption with the
// text to print after "mervasto-cli: ".
Outcome ParseOptions(const std::vector<std::string>& args, Options& o);

}  // namespace mervasto::cli
