#include "dso/WaveTransfer.h"

#include <algorithm>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

constexpr int32_t kHighestIndex = kMaxSamples - 1;

}  // namespace

std::string DsoSourceName(int channelIndex) {
    return channelIndex >= 0 && channelIndex < kChannels ? "CH" + std::to_string(channelIndex + 1)
                                                         : std::string("MATH");
}

WaveTransferResult TransferDsoWave(DsoLink& link, const std::string& source, WaveTransferContext& ctx,
                                   std::vector<float>& volts, std::vector<int16_t>& raw, float offset,
                                   float voltsPerDiv, bool inverted) {
    DsoSetup& setup = ctx.setup;
    if (setup.RecordLength < 10) setup.RecordLength = 10;
    const int32_t length = setup.RecordLength;

    const double scaleIndex = Val(RightText(source, 1)) - 1;
    if (scaleIndex >= 0 && scaleIndex <= 3) {
        std::string& rate = ctx.VRate[static_cast<size_t>(scaleIndex)];
        if (rate.empty() || rate == " ") rate = "1.0";
    }

    const bool word = setup.AcqMode == "AVERAGE" || setup.AcqMode == "HIGH_RES";

    int32_t start = 0;
    int32_t end = length - 1;
    const bool neverSet = ctx.range.TransferStart == -1 && ctx.range.TransferEnd == -1;
    if (!(source == "CH4" && ctx.ch4SignalText == "Gate") && !neverSet) {
        start = ctx.range.TransferStart;
        end = ctx.range.TransferEnd;
    }
    if (start < 0) start = 10;
    if (end < start) end = ToInt32(static_cast<double>(start) + 1);
    int32_t count = ToInt32(static_cast<double>(end) - start + 1);
    if (count < 1) count = 10;
    if (end > kHighestIndex)
        throw RuntimeError(ErrorCode::Subscript,
                           "Subscript out of range: sample " + std::to_string(end) + " is beyond the longest record.");

    if (word) {
        link.SendDsoCommand("DTBORD H/L");
        link.SendDsoCommand("DTFORM WORD");
    } else {
        link.SendDsoCommand("DTFORM BYTE");
    }
    link.SendDsoCommand("DTPOINTS " + std::to_string(count));
    link.SendDsoCommand("DTSTART " + std::to_string(start));
    link.SendDsoCommand("WAVESRC " + source);
    link.SendDsoCommand("DTWAVE?");

    const int32_t samples = end - start + 1;
    const BlockCheck check{source, int64_t{samples} * (word ? 2 : 1)};
    std::vector<uint8_t>& buf = link.transferBuffer;
    WaveTransferResult result;
    result.points = link.ReadDsoBlock(buf, ctx.progress, &check);

    const size_t size = static_cast<size_t>(std::max(length, end + 1));
    volts.resize(size);
    raw.resize(size);

    const float scale = voltsPerDiv / (word ? 8192.0f : 32.0f);
    const double dScale = scale;
    const double dOffset = offset;
    const bool negate = inverted && source != "MATH";
    const uint8_t* b = buf.data();
    float* v = volts.data() + start;
    int16_t* r = raw.data() + start;
    if (word) {
        for (int32_t k = 0; k < samples; ++k) {
            int32_t value = static_cast<int16_t>(static_cast<uint16_t>((b[2 * k] << 8) | b[2 * k + 1]));
            // A clipped sample inverted is the largest positive count, not an overflow.
            if (negate) value = std::min(-value, 32767);
            r[k] = static_cast<int16_t>(value);
            v[k] = static_cast<float>(static_cast<float>(value) * dScale - dOffset);
        }
    } else {
        for (int32_t k = 0; k < samples; ++k) {
            int32_t value = static_cast<int8_t>(b[k]);  // NOLINT(bugprone-signed-char-misuse): byte samples are signed
            if (negate) value = std::min(-value, 127);
            r[k] = static_cast<int16_t>(value * 256);
            v[k] = static_cast<float>(static_cast<float>(value) * dScale - dOffset);
        }
    }

    const int16_t offsetCounts = ToInt16(dOffset / dScale);
    if (end <= length - 2) {
        std::fill(raw.begin() + end + 1, raw.begin() + length, offsetCounts);
        std::fill(volts.begin() + end + 1, volts.begin() + length, 0.0f);
    }

    if (length > 0) {
        const auto [lo, hi] = std::minmax_element(volts.begin(), volts.begin() + length);
        result.minValue = *lo;
        result.maxValue = *hi;
    }
    return result;
}

WaveTransferResult TransferDsoChannel(DsoLink& link, int channelIndex, WaveTransferContext& ctx,
                                      std::vector<float>& volts, std::vector<int16_t>& raw, float offset,
                                      float voltsPerDiv, bool inverted) {
    return TransferDsoWave(link, DsoSourceName(channelIndex), ctx, volts, raw, offset, voltsPerDiv, inverted);
}

WaveTransferResult TransferDsoChannel(DsoLink& link, int channelIndex, WaveTransferContext& ctx, WaveRecord& record) {
    if (channelIndex < 0 || channelIndex >= kChannels)
        throw RuntimeError(ErrorCode::Subscript,
                           "Subscript out of range: channel " + std::to_string(channelIndex + 1) + ".");
    const size_t ch = static_cast<size_t>(channelIndex);
    return TransferDsoChannel(link, channelIndex, ctx, record.wave[ch], record.raw[ch], ctx.setup.offset(channelIndex),
                              ctx.setup.voltsPerDiv(channelIndex), ctx.setup.inverted(channelIndex));
}

}  // namespace mervasto
