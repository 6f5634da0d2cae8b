#include "dso/ScpiSupport.h"

#include <algorithm>
#include <cctype>
#include <span>

#include "analysis/Levels.h"

#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"

namespace mervasto {

namespace {
constexpr int kMostErrorEntries = 8;
}  // namespace

float ScpiSetupNumber(DsoLink& link, const std::string& query, const std::string& field, bool mustBePositive) {
    const std::string reply = link.QueryDso(query, 80);
    const std::string problem = SetupNumberProblem(reply, mustBePositive);
    if (!problem.empty())
        link.failExchange("The DSO's " + field + " (\"" + query + "\") " + problem + ": \"" +
                          PrintableBytes(reply, 24) + "\"" + kReadoutEnded);
    return ValSingle(reply);
}

std::optional<int> ErrorQueueCode(std::string_view reply) {
    const std::string_view t = TrimBlanks(reply);
    const size_t comma = t.find(',');
    const std::string_view code = comma == std::string_view::npos ? t : t.substr(0, comma);
    if (!IsNumberText(code)) return std::nullopt;
    const double v = Val(code);
    if (v != static_cast<double>(static_cast<int>(v))) return std::nullopt;
    return static_cast<int>(v);
}

std::string ErrorQueueEntry(DsoLink& link, const std::string& query) {
    const std::string reply = link.QueryDso(query, 256);
    const std::optional<int> code = ErrorQueueCode(reply);
    return code && *code == 0 ? std::string() : PrintableBytes(reply, 120);
}

void CheckErrorQueue(DsoLink& link, const std::string& query, const std::string& after) {
    std::string errors;
    for (int i = 0; i < kMostErrorEntries; ++i) {
        const std::string reply = link.QueryDso(query, 256);
        const std::optional<int> code = ErrorQueueCode(reply);
        if (!code)
            link.failExchange("The DSO's error queue (\"" + query + "\") replied \"" + PrintableBytes(reply, 40) +
                              "\", which is no entry; the link was closed.");
        if (*code == 0) {
            if (errors.empty()) return;
            break;
        }
        errors += (errors.empty() ? "" : "; ") + PrintableBytes(reply, 120);
    }
    link.failExchange("The DSO reports an error after " + after + ": " + errors + "; the link was closed.");
}

void FinishScpiRecord(const DsoSetup& setup, WaveRecord& record, const std::vector<int>& on, int32_t length) {
    const auto n = static_cast<size_t>(length);
    auto isOn = [&](int ch) { return std::find(on.begin(), on.end(), ch) != on.end(); };
    for (int ch = 0; ch < kChannels; ++ch) {
        auto& raw = record.raw[static_cast<size_t>(ch)];
        if (!isOn(ch)) {
            raw.clear();
            continue;
        }
        raw.resize(std::max(raw.size(), n));
        RawFromVolts(std::span<const float>(record.wave[static_cast<size_t>(ch)].data(), n), setup.voltsPerDiv(ch),
                     setup.offset(ch), std::span<int16_t>(raw.data(), n));
    }
    record.WaveLength = setup.RecordLength;
    record.SampleSec = setup.SampleInterval;
    record.ensureLength(record.WaveLength);
    for (int ch = 0; ch < kChannels; ++ch)
        if (!isOn(ch)) std::fill_n(record.wave[static_cast<size_t>(ch)].begin(), n, 0.0f);
}

}  // namespace mervasto
