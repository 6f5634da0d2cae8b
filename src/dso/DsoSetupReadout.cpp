#include "dso/DsoSetupReadout.h"

#include <QDateTime>
#include <QLocale>

#include <cmath>
#include <limits>
#include <vector>

#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/LinkFraming.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

namespace {

constexpr const char* kReadoutEnded = "; the readout was ended and the link closed.";

// A reply that is empty or a single blank stands for the instrument's default.
std::string OrDefault(const std::string& reply, const char* fallback) {
    return (reply.empty() || reply == " ") ? std::string(fallback) : reply;
}

// A numeric setup reply: blank keeps the instrument's default; anything else
// must be a finite number that fits a float, or the readout ends, because a
// wrong time base or scale would be measured and saved without a sign.
float SetupNumber(DsoLink& link, const std::string& query, const char* blankDefault, const std::string& field,
                  bool mustBePositive, std::string* replyOut = nullptr) {
    const std::string reply = link.QueryDso(query, 80);
    if (replyOut) *replyOut = reply;
    const std::string text = OrDefault(reply, blankDefault);
    const std::string problem = SetupNumberProblem(text, mustBePositive);
    if (!problem.empty())
        link.failExchange("The DSO's " + field + " (\"" + std::string(TrimBlanks(query)) + "\") " + problem + ": \"" +
                          PrintableBytes(reply, 24) + "\"" + kReadoutEnded);
    return ValSingle(text);
}

const std::string& FieldOr(const std::vector<std::string>& fields, size_t i) {
    static const std::string empty;
    return i < fields.size() ? fields[i] : empty;
}

// The samples are counts times the volts of one count: a count too small for
// a float would make every sample 0 V, one too large a full-scale sample
// infinite.
void CheckVoltsPerCount(DsoLink& link, const DsoSetup& setup, int ch, bool word, const std::string& vdivReply) {
    const int countsPerDiv = word ? 8192 : 32;
    const float perCount = setup.voltsPerDiv(ch) / static_cast<float>(countsPerDiv);
    const double fullScale = (word ? 32768.0 : 128.0) * perCount + std::fabs(double{setup.offset(ch)});
    const char* problem = !std::isnormal(perCount)                        ? "is too small for a float"
                          : fullScale > std::numeric_limits<float>::max() ? "makes a full-scale sample beyond a float"
                                                                          : nullptr;
    if (!problem) return;
    link.failExchange("The DSO's volts per count of " + std::string(kTracePrefix[static_cast<size_t>(ch)]) +
                      " (volts/div \"" + PrintableBytes(vdivReply, 24) + "\" / " + std::to_string(countsPerDiv) + ") " +
                      problem + kReadoutEnded);
}

}  // namespace

std::string SetupNumberProblem(std::string_view text, bool mustBePositive) {
    if (!IsNumberText(text)) return "is not a number";
    const double v = Val(text);
    if (!std::isfinite(v) || std::fabs(v) > std::numeric_limits<float>::max()) return "is not a finite number";
    if (mustBePositive && !(v > 0)) return "is not above 0";
    return {};
}

std::optional<int32_t> RecordLengthOfField(const std::string& field) {
    const std::string_view text = MidText(field, 17);
    if (!IsNumberText(text)) return std::nullopt;
    const double whole = Val(text);
    if (whole != std::floor(whole) || whole < 10 || whole > kMaxSamples) return std::nullopt;
    return ToInt32(whole / 10.0) * 10;
}

void FillDsoSetupDefaults(DsoSetup& setup) {
    setup.TimePerDiv = 1e-5f;
    setup.RecordLength = 100000;
    setup.SampleInterval = ToSingle(double{setup.TimePerDiv} * 10.0 / setup.RecordLength);
    setup.Model = "DS-5352";
    setup.InfoDigit = "1";
    const QDateTime now = QDateTime::currentDateTime();
    const QLocale locale = QLocale::system();
    setup.DateTime =
        (locale.toString(now.date(), QLocale::ShortFormat) + ' ' + locale.toString(now.time(), QLocale::ShortFormat))
            .toStdString();
    setup.TriggerSource = "CH1";
    setup.TriggerLevel = 0.0f;
    setup.TriggerDelay = 0.0f;
    setup.TriggerMode = "SINGLE";
}

void ReadDsoCursors(DsoLink& link, DsoSetup& setup) {
    const std::vector<std::string> fields = SplitFields(link.QueryDso("HCUR?", 80));
    const std::string mode = link.QueryDso("CURM?", 80);
    if (mode == "DHDV" || mode == "DH") {
        setup.CursorPos[0] = ToSingle(Val(FieldOr(fields, 0)) + 5.0);
        setup.CursorPos[1] = ToSingle(Val(FieldOr(fields, 1)) + 5.0);
        setup.CursorsFromDso = true;
    } else {
        setup.CursorPos[0] = 1.0f;
        setup.CursorPos[1] = 9.0f;
        setup.CursorsFromDso = false;
    }
    if (setup.CursorPos[0] > setup.CursorPos[1]) std::swap(setup.CursorPos[0], setup.CursorPos[1]);
}

Outcome ReadDsoSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText, bool memoryInput) {
    return Guarded([&]() -> Outcome {
        for (int ch = 0; ch < kChannels; ++ch) setup.trace(ch).Inverted = false;

        if (!link.DsoLinked) {
            ui.setStatus(1, kConnectingToDso);
            const DsoAddress address = ParseDsoAddress(addressText);
            if (link.LinkToSLA(address.host, address.port) == kLinkError) {
                FillDsoSetupDefaults(setup);
                return {ErrorCode::Link, kDsoNotInterfaced};
            }
            link.DsoLinked = true;
        }

        const std::vector<std::string> info = SplitFields(link.QueryDso("DTINF?", 1000));
        const size_t lengthField = setup.ChannelCount == 4 ? 23 : 15;
        if (info.size() <= lengthField)
            link.failExchange("The DSO's setup information (\"DTINF?\") has " + std::to_string(info.size()) +
                              " fields; the record length is field " + std::to_string(lengthField) +
                              ". The readout was ended and the link closed.");
        setup.Model = std::string(RightText(FieldOr(info, 0), 7));
        setup.InfoDigit = std::string(RightText(FieldOr(info, 1), 1));
        setup.DateTime = std::string(RightText(FieldOr(info, 2), 19));

        std::string timeBaseReply;
        setup.TimePerDiv = SetupNumber(link, "TDIV?", "1e-6", "time base", true, &timeBaseReply);
        const std::optional<int32_t> length = RecordLengthOfField(info[lengthField]);
        if (!length)
            link.failExchange("The DSO's record length (field " + std::to_string(lengthField) +
                              " of \"DTINF?\") is not a whole number from 10 to " + std::to_string(kMaxSamples) +
                              ": \"" + PrintableBytes(info[lengthField], 40) + "\"" + kReadoutEnded);
        setup.RecordLength = *length;
        setup.SampleInterval = ToSingle(double{setup.TimePerDiv} * 10.0 / setup.RecordLength);
        if (!std::isnormal(setup.SampleInterval))
            link.failExchange("The DSO's sample interval (time base \"" + PrintableBytes(timeBaseReply, 24) +
                              "\" x 10 / " + std::to_string(setup.RecordLength) + " samples) is too small for a float" +
                              kReadoutEnded);
        setup.AcqMode = link.QueryDso("ACQ?", 80);
        setup.TriggerSource = link.QueryDso("TSRC?", 80);
        setup.TriggerLevel = SetupNumber(link, "TLVL?", "0", "trigger level", false);
        setup.TriggerDelay = SetupNumber(link, "TRDL?", "0", "trigger delay", false);
        setup.TriggerMode = link.QueryDso("TRMD?", 80);

        if (!memoryInput) {
            const bool word = setup.AcqMode == "AVERAGE" || setup.AcqMode == "HIGH_RES";
            for (int ch = 0; ch < setup.ChannelCount && ch < kChannels; ++ch) {
                const std::string prefix = kTracePrefix[static_cast<size_t>(ch)];
                TraceSetup& t = setup.trace(ch);
                std::string vdivReply;
                t.VoltsPerDiv = SetupNumber(link, prefix + ":VDIV?", "1", "volts/div of " + prefix, true, &vdivReply);
                t.Offset = SetupNumber(link, prefix + ":OFST? ", "0", "offset of " + prefix, false);
                CheckVoltsPerCount(link, setup, ch, word, vdivReply);
                t.TraceOn = link.QueryDso(prefix + ":TRA? ", 80);
                t.Coupling = link.QueryDso(prefix + ":CPL? ", 80);
                t.BandwidthLimit = link.QueryDso(prefix + ":BWL? ", 80);
                t.Inverted = link.QueryDso(prefix + ":INV? ", 80) == "ON";
            }
        }

        ReadDsoCursors(link, setup);
        return Outcome::Ok();
    });
}

}  // namespace mervasto
