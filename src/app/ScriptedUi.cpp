#include "app/ScriptedUi.h"

namespace mervasto {

void ScriptedUi::setStatus(int panel, const std::string& text) {
    if (panel >= 1 && panel <= 4) status[panel] = text;
    if (panel == 1 && keepStatusLog) statusLog.push_back(text);
    if (echo && !text.empty()) echo(text);
}

MsgAnswer ScriptedUi::messageBox(const std::string& text, MsgButtons buttons, const std::string& title) {
    boxes.push_back({text, buttons, title});
    if (echo) echo(title + ": " + text);
    if (!answers.empty()) {
        MsgAnswer a = answers.front();
        answers.pop_front();
        return a;
    }
    return DefaultAnswer(buttons);
}

std::optional<std::string> ScriptedUi::chooseOpenFile(const std::string& title, const std::string&, const std::string&,
                                                      const std::string&) {
    dialogTitles.push_back(title);
    if (files.empty()) return std::nullopt;
    auto f = files.front();
    files.pop_front();
    return f;
}

std::optional<std::string> ScriptedUi::chooseSaveFile(const std::string& title, const std::string& initialName,
                                                      const std::string& initialFolder, const std::string& filter) {
    return chooseOpenFile(title, initialName, initialFolder, filter);
}

std::optional<uint32_t> ScriptedUi::chooseColor(uint32_t) {
    if (colors.empty()) return std::nullopt;
    auto c = colors.front();
    colors.pop_front();
    return c;
}

void ScriptedUi::progress(int64_t done, int64_t total) {
    lastProgressDone = done;
    lastProgressTotal = total;
}

}  // namespace mervasto
