#include "app/ResultLineQueue.h"

#include "results/ResultFiles.h"

namespace mervasto {

bool ResultLineQueue::append(UiPort& ui, const std::string& fileName, const TypeTexts& types, std::string line) {
    waiting_.push_back(std::move(line));
    const auto lines = static_cast<int64_t>(waiting_.size());
    SaveOutcome out = writer_(fileName, types, waiting_);
    if (!out.ok || !quiet_) ui.setStatus(1, out.status);
    if (out.ok) {
        written_ += lines;
        if (lines > 1 && !quiet_)
            ui.setStatus(2, std::to_string(lines - 1) + " result line(s) kept from earlier runs were saved.");
    } else {
        ++failed_;
        ui.setStatus(2, std::to_string(lines) + keptText_);
    }
    return out.ok;
}

bool ResultLineQueue::flush(UiPort& ui, const std::string& fileName, const TypeTexts& types) {
    if (waiting_.empty()) return true;
    const auto lines = static_cast<int64_t>(waiting_.size());
    SaveOutcome out = writer_(fileName, types, waiting_);
    if (!out.ok || !quiet_) ui.setStatus(1, out.status);
    if (out.ok) written_ += lines;
    return out.ok;
}

std::string ResultLineQueue::leftOverText(const std::string& fileName) const {
    std::string text =
        failedText_ + " These " + std::to_string(waiting_.size()) + " line(s) belong in " + fileName + ":";
    for (const auto& line : waiting_) text += "\r\n" + line;
    return text;
}

}  // namespace mervasto
