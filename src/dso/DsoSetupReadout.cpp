#include "dso/DsoSetupReadout.h"

#include <QDateTime>
#include <QLocale>

#include <vector>

#include "common/Numeric.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

// A reply that is empty or a single blank stands for the instrument's default.
std::string OrDefault(const std::string& reply, const char* fallback) {
    return (reply.empty() || reply == " ") ? std::string(fallback) : reply;
}

const std::string& FieldOr(const std::vector<std::string>& fields, size_t i) {
    static const std::string empty;
    return i < fields.size() ? fields[i] : empty;
}

}  // namespace

int32_t RecordLengthOfField(const std::string& field) {
    const int32_t whole = ToInt32(Val(MidText(field, 17)));
    const int32_t length = ToInt32(whole / 10.0) * 10;
    return length < 1 ? 500 : length;
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
        setup.CursorPos[1] = ToSingle(Val(FieldOr(fields, 0)) + 5.0);
        setup.CursorPos[2] = ToSingle(Val(FieldOr(fields, 1)) + 5.0);
        setup.CursorsFromDso = true;
    } else {
        setup.CursorPos[1] = 1.0f;
        setup.CursorPos[2] = 9.0f;
        setup.CursorsFromDso = false;
    }
    if (setup.CursorPos[1] > setup.CursorPos[2]) std::swap(setup.CursorPos[1], setup.CursorPos[2]);
}

bool ReadDsoSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText, bool memoryInput) {
    for (int ch = 1; ch <= 4; ++ch) setup.Inverted[static_cast<size_t>(ch)] = false;

    if (!link.DsoLinked) {
        ui.setStatus(1, kConnectingToDso);
        const DsoAddress address = ParseDsoAddress(addressText);
        if (link.LinkToSLA(address.host, address.port) == kLinkError) {
            ui.messageBox(kDsoNotInterfaced, MsgButtons::OkCancel, kDsoConfirmationTitle);
            FillDsoSetupDefaults(setup);
            return true;
        }
        link.DsoLinked = true;
    }

    const std::vector<std::string> info = SplitFields(link.QueryDso("DTINF?", 1000));
    setup.Model = std::string(RightText(FieldOr(info, 0), 7));
    setup.InfoDigit = std::string(RightText(FieldOr(info, 1), 1));
    setup.DateTime = std::string(RightText(FieldOr(info, 2), 19));

    setup.TimePerDiv = ValSingle(OrDefault(link.QueryDso("TDIV?", 80), "1e-6"));
    setup.RecordLength = RecordLengthOfField(FieldOr(info, setup.ChannelCount == 4 ? 23 : 15));
    setup.SampleInterval = ToSingle(double{setup.TimePerDiv} * 10.0 / setup.RecordLength);
    setup.AcqMode = link.QueryDso("ACQ?", 80);
    setup.TriggerSource = link.QueryDso("TSRC?", 80);
    setup.TriggerLevel = ValSingle(link.QueryDso("TLVL?", 80));
    setup.TriggerDelay = ValSingle(link.QueryDso("TRDL?", 80));
    setup.TriggerMode = link.QueryDso("TRMD?", 80);

    if (!memoryInput) {
        for (int ch = 1; ch <= setup.ChannelCount && ch <= 4; ++ch) {
            const std::string prefix = kChannelPrefix[static_cast<size_t>(ch)];
            const size_t i = static_cast<size_t>(ch);
            setup.VoltsPerDiv[i] = ValSingle(OrDefault(link.QueryDso(prefix + ":VDIV?", 80), "1"));
            setup.Offset[i] = ValSingle(OrDefault(link.QueryDso(prefix + ":OFST? ", 80), "0"));
            setup.TraceOn[i] = link.QueryDso(prefix + ":TRA? ", 80);
            setup.Coupling[i] = link.QueryDso(prefix + ":CPL? ", 80);
            setup.BandwidthLimit[i] = link.QueryDso(prefix + ":BWL? ", 80);
            setup.Inverted[i] = link.QueryDso(prefix + ":INV? ", 80) == "ON";
        }
    }

    ReadDsoCursors(link, setup);
    return false;
}

}  // namespace mervasto
