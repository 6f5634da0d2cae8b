#include "dso/ScpiSupport.h"

#include <QDateTime>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <span>

#include "analysis/Levels.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "dso/AcquisitionPass.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"

namespace mervasto {

namespace {
constexpr int kMostErrorEntries = 8;
}  // namespace

Identity TakeIdentity(DsoLink& link, const std::string& reply, DsoSetup& setup,
                      const std::function<int(const std::string&)>& channelsOf, const std::string& lines) {
    Identity id = IdentityOf(reply);
    const int channels = channelsOf(id.model);
    if (channels == 0)
        link.failExchange("The DSO's identification (\"*IDN?\") names no " + lines + " model: \"" +
                          PrintableBytes(reply, 60) + "\"; the link was closed.");
    setup.Model = id.model;
    setup.ChannelCount = static_cast<int16_t>(std::min(channels, kChannels));
    return id;
}

std::string UpperText(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string WordOf(const std::string& reply, std::initializer_list<std::pair<const char*, const char*>> words) {
    for (const auto& [theirs, ours] : words)
        if (reply == theirs) return ours;
    return reply;
}

std::string ReadoutTime() { return QDateTime::currentDateTime().toString("yyyy/MM/dd hh:mm:ss").toStdString(); }

std::string_view WithoutUnit(std::string_view reply) {
    reply = TrimBlanks(reply);
    while (!reply.empty() && (std::isalpha(static_cast<unsigned char>(reply.back())) || reply.back() == '/'))
        reply.remove_suffix(1);
    return reply;
}

float ScpiSetupNumber(DsoLink& link, const std::string& query, const std::string& field, bool mustBePositive,
                      bool withUnit) {
    const std::string reply = link.QueryDso(query, 80);
    const std::string number(withUnit ? WithoutUnit(reply) : std::string_view(reply));
    const std::string problem = SetupNumberProblem(number, mustBePositive);
    if (!problem.empty())
        link.failExchange("The DSO's " + field + " (\"" + query + "\") " + problem + ": \"" +
                          PrintableBytes(reply, 24) + "\"" + kReadoutEnded);
    return ValSingle(number);
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

std::vector<int> ChannelsOn(const DsoSetup& setup) {
    std::vector<int> on;
    for (int ch = 0; ch < setup.ChannelCount && ch < kChannels; ++ch)
        if (setup.traceOn(ch) == "ON") on.push_back(ch);
    return on;
}

void FinishScpiRecord(const DsoSetup& setup, const std::vector<int>& on, WaveRecord& record, UiPort& ui) {
    const auto n = static_cast<size_t>(setup.RecordLength);
    for (int ch = 0; ch < kChannels; ++ch) {
        auto& raw = record.raw[static_cast<size_t>(ch)];
        if (std::find(on.begin(), on.end(), ch) == on.end()) {
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
        if (std::find(on.begin(), on.end(), ch) == on.end())
            std::fill_n(record.wave[static_cast<size_t>(ch)].begin(), n, 0.0f);
    ui.progress(0, 0);
    ui.setStatus(1, kCompletedWaveTranslation);
}

std::optional<ScpiPreamble> ParseScpiPreamble(const std::string& reply, const std::string& query,
                                              const PreambleRule& rule, std::string& problem) {
    const std::vector<std::string> f = SplitFields(reply);
    const std::string quoted = "\"" + PrintableBytes(reply, 120) + "\"";
    if (f.size() != 10) {
        problem =
            "The DSO's preamble (\"" + query + "\") has " + std::to_string(f.size()) + " fields, not 10: " + quoted;
        return std::nullopt;
    }
    static constexpr const char* kNames[10] = {"format",   "type",        "points",      "count",    "x increment",
                                               "x origin", "x reference", "y increment", "y origin", "y reference"};
    double v[10];
    for (size_t i = 0; i < 10; ++i) {
        const std::string why = SetupNumberProblem(f[i], false);
        if (!why.empty()) {
            problem = std::string("The DSO's ").append(kNames[i]).append(" (field ").append(std::to_string(i + 1));
            problem.append(" of \"").append(query).append("\") ").append(why).append(": ").append(quoted);
            return std::nullopt;
        }
        v[i] = Val(f[i]);
    }
    ScpiPreamble p;
    p.format = static_cast<int>(v[0]);
    p.type = static_cast<int>(v[1]);
    p.points = static_cast<int64_t>(v[2]);
    p.count = static_cast<int64_t>(v[3]);
    p.xincrement = v[4];
    p.xorigin = v[5];
    p.xreference = v[6];
    p.yincrement = v[7];
    p.yorigin = v[8];
    p.yreference = v[9];
    auto field = [&](int i, const std::string& must) {
        return "The DSO's " + std::string(kNames[i]) + " (field " + std::to_string(i + 1) + " of \"" + query + "\") " +
               must + ": " + quoted;
    };
    const bool otherType = rule.type >= 0 && v[1] != rule.type;
    if (v[0] != rule.format || otherType)
        problem = otherType && v[0] == rule.format
                      ? field(1, "is not " + std::to_string(rule.type) + " (" + rule.typeWord + ")")
                      : field(0, "is not " + std::to_string(rule.format) + " (" + rule.formatWord + ")");
    else if (v[2] != std::floor(v[2]) || v[2] < 10 || v[2] > kMaxSamples)
        problem = field(2, "is not a whole number from 10 to " + std::to_string(kMaxSamples) +
                               " (a smaller memory depth makes a record the program takes)");
    else if (!std::isnormal(static_cast<float>(p.xincrement)) || p.xincrement < 0)
        problem = field(4, "is not a sample interval a float holds");
    else if (!std::isnormal(static_cast<float>(p.yincrement)) || p.yincrement < 0 ||
             rule.codes * p.yincrement * (1.0 + std::fabs(p.yorigin) + std::fabs(p.yreference)) >
                 std::numeric_limits<float>::max())
        problem = field(7, "is not a volts per code a float holds");
    else
        return p;
    return std::nullopt;
}

void TakeRecordShape(DsoLink& link, const ScpiPreamble& p, int channel, int firstChannel, int64_t& length,
                     DsoSetup& setup, std::optional<ScpiPreamble>& last) {
    if (length == 0) last = p;
    TakeRecordLength(link, p.points, p.xincrement, channel, firstChannel, length, setup);
}

void TakeRecordLength(DsoLink& link, int64_t points, double interval, int channel, int firstChannel, int64_t& length,
                      DsoSetup& setup) {
    if (length == 0) {
        length = points;
        setup.RecordLength = static_cast<int32_t>(length);
        setup.SampleInterval = static_cast<float>(interval);
    } else if (points != length) {
        link.failExchange("The DSO's record of CH" + std::to_string(channel + 1) + " has " + std::to_string(points) +
                          " points, that of CH" + std::to_string(firstChannel + 1) + " " + std::to_string(length) +
                          kReadoutEnded);
    }
}

void RangeFromCursorTimes(bool fromDso, double a, double b, const ScpiPreamble* axis, DsoSetup& setup,
                          int32_t recordLength, ZoomReadout& out) {
    ScpiPreamble centred;
    centred.xincrement = setup.SampleInterval;
    centred.xorigin = setup.TriggerDelay - recordLength / 2.0 * setup.SampleInterval;
    const ScpiPreamble& x = axis ? *axis : centred;
    auto index = [&](double t) {
        const double i = (t - x.xorigin) / x.xincrement + x.xreference;
        return ToInt32(std::clamp(i, 0.0, static_cast<double>(recordLength)));
    };
    out.ZoomTimePerDiv = setup.TimePerDiv;
    out.ZoomDelay = setup.TriggerDelay;
    out.CursorsFromDso = fromDso;
    setup.CursorsFromDso = fromDso;
    out.range.ZoomStart = 0;
    out.range.ZoomEnd = recordLength;
    if (fromDso) {
        out.range.RejectStart = index(std::min(a, b));
        out.range.RejectEnd = index(std::max(a, b));
    } else {
        out.range.RejectStart = ToInt32(recordLength / 10.0);
        out.range.RejectEnd = ToInt32(recordLength * 9 / 10.0);
    }
}

Outcome SaveScreenBlock(DsoLink& link, UiPort& ui, const std::string& query, const std::string& fileName,
                        int32_t* bytes) {
    if (bytes) *bytes = -1;
    return Guarded([&]() -> Outcome {
        link.SendDsoCommand(query);
        std::vector<uint8_t> image;
        const int64_t n = link.ReadBlock(image, {nullptr, &ui});
        image.resize(static_cast<size_t>(n));  // the picture without the reply's line end
        if (Outcome written = WriteFileReplacing(fileName, std::string(image.begin(), image.end())); !written)
            return written;
        if (bytes) *bytes = static_cast<int32_t>(n);
        return Outcome::Ok();
    });
}

}  // namespace mervasto
