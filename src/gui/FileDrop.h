#pragma once

#include <QObject>

#include <functional>
#include <string>
#include <vector>

#include "common/Outcome.h"
#include "common/UiPort.h"

class QWidget;

namespace mervasto {

class RunState;

// The window's UI port, except that the file question is already answered:
// with the file dropped on the window, so that a drop takes the same road as
// "Input from File" from its first step.
class DroppedFileUi : public UiPort {
public:
    DroppedFileUi(UiPort& window, std::string file) : window_(window), file_(std::move(file)) {}

    void setStatus(int panel, const std::string& text) override { window_.setStatus(panel, text); }
    MsgAnswer messageBox(const std::string& text, MsgButtons buttons, const std::string& title) override {
        return window_.messageBox(text, buttons, title);
    }
    std::optional<std::string> chooseOpenFile(const std::string&, const std::string&, const std::string&,
                                              const std::string&) override {
        return file_;
    }
    std::optional<std::string> chooseSaveFile(const std::string& title, const std::string& initialName,
                                              const std::string& initialFolder, const std::string& filter) override {
        return window_.chooseSaveFile(title, initialName, initialFolder, filter);
    }
    std::optional<uint32_t> chooseColor(uint32_t initial) override { return window_.chooseColor(initial); }
    void progress(int64_t done, int64_t total) override { window_.progress(done, total); }
    void setClipboardText(const std::string& text) override { window_.setClipboardText(text); }

private:
    UiPort& window_;
    std::string file_;
};

// Loads files dropped on the window as "Input from File" does: one file as
// it stands, several as the channels of one record, Ch1, Ch2, ... in the
// order they were dropped (instruments that write a file per channel).
Outcome InputDroppedFiles(RunState& state, UiPort& window, const std::vector<std::string>& files);

// Takes local files dragged onto a window: the drag is accepted while
// accepting() holds, and a drop hands the files to open() once the drop
// itself is over (a long load inside the drop would hold up the program the
// files came from).
class FileDropFilter : public QObject {
public:
    using Open = std::function<void(const std::vector<std::string>&)>;
    FileDropFilter(QWidget* window, std::function<bool()> accepting, Open open);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::function<bool()> accepting_;
    Open open_;
};

}  // namespace mervasto
