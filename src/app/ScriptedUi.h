#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "common/UiPort.h"

namespace mervasto {

// A UI port without a window: status texts and message boxes are recorded
// (and optionally echoed), answers and file choices come from queues set up
// beforehand. The command line and the tests use it.
class ScriptedUi : public UiPort {
public:
    struct Box {
        std::string text;
        MsgButtons buttons;
        std::string title;
    };

    void setStatus(int panel, const std::string& text) override;
    MsgAnswer messageBox(const std::string& text, MsgButtons buttons, const std::string& title) override;
    std::optional<std::string> chooseOpenFile(const std::string& title, const std::string& initialName,
                                              const std::string& initialFolder, const std::string& filter) override;
    std::optional<std::string> chooseSaveFile(const std::string& title, const std::string& initialName,
                                              const std::string& initialFolder, const std::string& filter) override;
    std::optional<uint32_t> chooseColor(uint32_t initial) override;
    void progress(int64_t done, int64_t total) override;
    void setClipboardText(const std::string& text) override { clipboard = text; }

    // Answers given in order; when empty, the default button of the set
    // (DefaultAnswer) is answered.
    std::deque<MsgAnswer> answers;
    // File choices given in order; when empty, the dialog is cancelled.
    std::deque<std::optional<std::string>> files;
    std::deque<std::optional<uint32_t>> colors;

    std::vector<std::string> statusLog;  // panel 1 texts in order (when keepStatusLog)
    // Off for long runs without a window, where the log would only grow.
    bool keepStatusLog = true;
    std::string status[5];
    std::vector<Box> boxes;
    std::vector<std::string> dialogTitles;
    std::string clipboard;
    int64_t lastProgressDone = 0;
    int64_t lastProgressTotal = 0;

    // Echo of status texts and boxes (e.g. to stderr for the command line).
    void (*echo)(const std::string& line) = nullptr;
};

}  // namespace mervasto
