#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"
#include "common/UiPort.h"
#include "results/ResultFiles.h"

namespace mervasto {

// The result lines on their way to ResultData.csv. A line the file would not
// take (a full disk, a read-only folder) waits here and goes out first with
// the next one, so that none is lost; whatever is still waiting when the
// program ends is handed to the user by leftOverText(). The window and the
// command line both use this one owner.
class ResultLineQueue {
public:
    using TypeTexts = std::array<std::string, kChannels>;
    // Writes a new file's header and the lines, emptying them when written.
    using Writer = Outcome (*)(std::string_view, const TypeTexts&, std::vector<std::string>&);

    ResultLineQueue() = default;
    // A queue for a file that goes with the results file: its writer and the
    // text of its failure. It speaks only when a write fails, so that the
    // results file's own status stays in view.
    // keptText follows the number of lines kept ("... line(s) are kept ...").
    ResultLineQueue(Writer writer, std::string failedText, std::string keptText)
        : writer_(writer), failedText_(std::move(failedText)), keptText_(std::move(keptText)), quiet_(true) {}

    // Appends a line after the ones waiting and writes them all. The status
    // texts go to the UI port: the file's own in panel 1, what happened to
    // lines kept from earlier in panel 2. A refusal comes back as shown
    // there (reported).
    Outcome append(UiPort& ui, const std::string& fileName, const TypeTexts& types, std::string line);
    // Tries once more to write the waiting lines; ok when none is left.
    Outcome flush(UiPort& ui, const std::string& fileName, const TypeTexts& types);

    const std::vector<std::string>& waiting() const { return waiting_; }
    // What to tell the user about lines that are still waiting, naming the
    // file they belong in; the lines follow, one per line (CR LF).
    std::string leftOverText(const std::string& fileName) const;

    int64_t written() const { return written_; }

private:
    // Writes the waiting lines: the status in panel 1 (a quiet queue only
    // on a failure), and the lines counted when written.
    Outcome write(UiPort& ui, const std::string& fileName, const TypeTexts& types);

    Writer writer_ = SaveResultLines;
    std::string failedText_ = kFailedToSaveTestResults;
    std::string keptText_ = " result line(s) are kept until the results file can be written.";
    bool quiet_ = false;
    std::vector<std::string> waiting_;
    int64_t written_ = 0;
};

}  // namespace mervasto
