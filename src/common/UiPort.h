#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace mervasto {

// The title of the box that shows a run-time failure.
inline constexpr const char* kRunTimeErrorTitle = "Run-time error";

// Button sets of a message box, by their conventional values.
enum class MsgButtons : int {
    Ok = 0,
    OkCancel = 1,
    AbortRetryIgnore = 2,
    YesNoCancel = 3,
    YesNo = 4,
    RetryCancel = 5,
    CancelTryContinue = 6,
};

enum class MsgAnswer : int {
    Ok = 1,
    Cancel = 2,
    Abort = 3,
    Retry = 4,
    Ignore = 5,
    Yes = 6,
    No = 7,
    TryAgain = 10,
    Continue = 11,
};

// The answer of a box's default button, the first of its set: OK, Yes,
// Abort, Retry, and Cancel for Cancel / Try Again / Continue. What a box
// gets where no person can answer it.
constexpr MsgAnswer DefaultAnswer(MsgButtons buttons) {
    switch (buttons) {
    case MsgButtons::Ok:
    case MsgButtons::OkCancel: return MsgAnswer::Ok;
    case MsgButtons::AbortRetryIgnore: return MsgAnswer::Abort;
    case MsgButtons::YesNoCancel:
    case MsgButtons::YesNo: return MsgAnswer::Yes;
    case MsgButtons::RetryCancel: return MsgAnswer::Retry;
    case MsgButtons::CancelTryContinue: return MsgAnswer::Cancel;
    }
    return MsgAnswer::Cancel;
}

// Everything the program logic asks of its user interface. The windows
// implement it with dialogs; the command line and the tests with scripted
// answers. Nothing below the windows layer shows anything by itself.
class UiPort {
public:
    virtual ~UiPort() = default;

    // Text of a status bar panel (1..4).
    virtual void setStatus(int panel, const std::string& text) = 0;
    virtual MsgAnswer messageBox(const std::string& text, MsgButtons buttons, const std::string& title) = 0;
    // File choices; nullopt on Cancel. filter is a pattern list such as "*.csv".
    virtual std::optional<std::string> chooseOpenFile(const std::string& title, const std::string& initialName,
                                                      const std::string& initialFolder, const std::string& filter) = 0;
    virtual std::optional<std::string> chooseSaveFile(const std::string& title, const std::string& initialName,
                                                      const std::string& initialFolder, const std::string& filter) = 0;
    // Colour as a 24-bit blue-green-red value; nullopt on Cancel.
    virtual std::optional<uint32_t> chooseColor(uint32_t initial) = 0;
    // Progress of a long transfer or load: done of total (total 0 hides it).
    virtual void progress(int64_t done, int64_t total) {
        (void)done;
        (void)total;
    }
    // How far a series of passes has come: done of total (total 0 hides it).
    virtual void seriesProgress(int64_t done, int64_t total) {
        (void)done;
        (void)total;
    }
    // Puts a text on the clipboard.
    virtual void setClipboardText(const std::string& text) { (void)text; }
};

}  // namespace mervasto
