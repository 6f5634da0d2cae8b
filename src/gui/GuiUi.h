#pragma once

#include <QPointer>
#include <QWidget>

#include <functional>

#include "common/UiPort.h"

class QLabel;
class QProgressBar;
class QStatusBar;

namespace mervasto {

// The UI port of the windows: the status bar panels, message boxes, file and
// colour dialogs, the progress bar and the clipboard.
class GuiUi : public UiPort {
public:
    GuiUi(QWidget* parent, QStatusBar* statusBar);

    void setStatus(int panel, const std::string& text) override;
    MsgAnswer messageBox(const std::string& text, MsgButtons buttons, const std::string& title) override;
    std::optional<std::string> chooseOpenFile(const std::string& title, const std::string& initialName,
                                              const std::string& initialFolder, const std::string& filter) override;
    std::optional<std::string> chooseSaveFile(const std::string& title, const std::string& initialName,
                                              const std::string& initialFolder, const std::string& filter) override;
    std::optional<uint32_t> chooseColor(uint32_t initial) override;
    void progress(int64_t done, int64_t total) override;
    void seriesProgress(int64_t done, int64_t total) override;
    void setClipboardText(const std::string& text) override;

    std::string statusText(int panel) const;

    // A run no person watches (--series, --screenshot): when set, every box
    // is told through it as "title: text" and gets its default button's
    // answer (DefaultAnswer); file and colour dialogs are cancelled.
    std::function<void(const std::string& line)> unattended;

    // Tests answer the dialogs instead of a person; when set, no modal
    // dialog is shown.
    std::function<MsgAnswer(const std::string& text, MsgButtons, const std::string& title)> answerHook;
    std::function<std::optional<std::string>(const std::string& title, const std::string& initialName,
                                             const std::string& initialFolder)>
        fileHook;
    std::function<std::optional<uint32_t>(uint32_t initial)> colorHook;

private:
    QPointer<QWidget> parent_;
    QLabel* panel_[5] = {};
    QProgressBar* progress_ = nullptr;
    QProgressBar* series_ = nullptr;  // beside panel 3
};

}  // namespace mervasto
