#include "app/SampleCodeFill.h"

#include <span>
#include <string>

#include "analysis/SampleCodes.h"
#include "common/RuntimeError.h"
#include "common/WorkPool.h"

namespace mervasto {

namespace {

// Below this many samples a second thread costs more than it saves.
constexpr int32_t kSplitSamples = int32_t{1} << 20;

bool holds(const WaveRecord& record, int ch) {
    return record.wave[static_cast<size_t>(ch)].size() >= static_cast<size_t>(record.WaveLength);
}

// False when a display code did not fit.
bool fillChannel(const DsoSetup& setup, WaveRecord& record, int ch, int channels) {
    const auto c = static_cast<size_t>(ch);
    auto& raw = record.raw[c];
    auto& code = record.displayCode[c];
    if (ch >= channels || !holds(record, ch)) {
        raw.clear();
        code.clear();
        return true;
    }
    const auto n = static_cast<size_t>(record.WaveLength);
    const float vdiv = setup.voltsPerDiv(ch);
    const std::span<const float> volts(record.wave[c].data(), n);
    code.resize(n);
    if (!(vdiv > 0)) {
        raw.clear();
        return DisplayCodes(volts, vdiv, setup.offset(ch), code);
    }
    raw.resize(n);
    return RawAndDisplayCodes(volts, vdiv, setup.offset(ch), raw, code);
}

}  // namespace

void FillSampleCodes(const DsoSetup& setup, WaveRecord& record) {
    const int channels = setup.ChannelCount == 4 ? 4 : 2;
    for (int ch = 0; ch < channels; ++ch)
        if (holds(record, ch) && setup.voltsPerDiv(ch) == 0)
            throw RuntimeError(ErrorCode::DivisionByZero,
                               "Division by zero: Ch" + std::to_string(ch + 1) + " has no volts per division.");
    bool fits[kChannels] = {true, true, true, true};
    auto fillPair = [&](int first) {
        for (int ch = first; ch < first + 2; ++ch) fits[ch] = fillChannel(setup, record, ch, channels);
    };
    if (channels == 4 && record.WaveLength >= kSplitSamples) {
        Task<void> second = Submit([&] { fillPair(2); });
        fillPair(0);
        second.wait();
    } else {
        fillPair(0);
        fillPair(2);
    }
    for (bool f : fits)
        if (!f) throw RuntimeError(ErrorCode::Overflow, "Overflow: the value does not fit a 16-bit integer.");
}

}  // namespace mervasto
