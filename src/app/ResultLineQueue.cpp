#include "app/ResultLineQueue.h"

#include "results/ResultFiles.h"

namespace mervasto {

Outcome ResultLineQueue::write(UiPort& ui, const std::string& fileName, const TypeTexts& types) {
    const auto lines = static_cast<int64_t>(waiting_.size());
    Outcome out = writer_(fileName, types, waiting_);
    if (!out) {
        ui.setStatus(1, out.text());
        return std::move(out).reported();
    }
    if (!quiet_) ui.setStatus(1, kSavedTestResults + fileName + ".");
    written_ += lines;
    return out;
}

Outcome ResultLineQueue::append(UiPort& ui, const std::string& fileName, const TypeTexts& types, std::string line) {
    waiting_.push_back(std::move(line));
    const auto lines = static_cast<int64_t>(waiting_.size());
    Outcome out = write(ui, fileName, types);
    if (!out)
        ui.setStatus(2, std::to_string(lines) + keptText_);
    else if (lines > 1 && !quiet_)
        ui.setStatus(2, std::to_string(lines - 1) + " result line(s) kept from earlier runs were saved.");
    return out;
}

Outcome ResultLineQueue::flush(UiPort& ui, const std::string& fileName, const TypeTexts& types) {
    return waiting_.empty() ? Outcome::Ok() : write(ui, fileName, types);
}

std::string ResultLineQueue::leftOverText(const std::string& fileName) const {
    std::string text =
        failedText_ + " These " + std::to_string(waiting_.size()) + " line(s) belong in " + fileName + ":";
    for (const auto& line : waiting_) text += "\r\n" + line;
    return text;
}

}  // namespace mervasto
