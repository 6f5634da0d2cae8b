#include "results/ResultNumbers.h"

#include <vector>

#include "analysis/CycleQuantity.h"
#include "common/Numeric.h"

namespace mervasto {

std::string ResultNumbersText(const ChannelDisplays& channels, const ChannelResultTable& table) {
    std::vector<int> used;
    for (int ch = 0; ch < kChannels; ++ch) {
        const ChannelDisplay& cd = channels[static_cast<size_t>(ch)];
        if (cd.shown() && !cd.isGate() && table.at(ch, Measure::OfType).Valid) used.push_back(ch);
    }
    std::string out;
    auto row = [&](const char* head, auto cell) {
        out += head;
        for (int ch : used) {
            out += '\t';
            out += cell(ch, table.at(ch, Measure::OfType));
        }
        out += "\r\n";
    };
    const auto& c = channels;
    row("Channel", [](int ch, const ChannelResult&) { return "Ch" + std::to_string(ch + 1); });
    row("Sig. Name", [&](int ch, const ChannelResult&) { return c[static_cast<size_t>(ch)].SigName; });
    row("Sig. Type", [&](int ch, const ChannelResult&) { return c[static_cast<size_t>(ch)].typeText; });
    row("Unit", [&](int ch, const ChannelResult&) {
        return std::string(QuantityOfType(c[static_cast<size_t>(ch)].typeIndex).unit);
    });
    row("Min", [](int, const ChannelResult& r) { return ExactText(r.Min); });
    row("Max", [](int, const ChannelResult& r) { return ExactText(r.Max); });
    row("Mean", [](int, const ChannelResult& r) { return ExactText(r.Mean); });
    row("σ", [](int, const ChannelResult& r) { return ExactText(r.Sigma); });
    row("Counts", [](int, const ChannelResult& r) { return std::to_string(r.Counts); });
    return out;
}

}  // namespace mervasto
