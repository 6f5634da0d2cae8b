#include "dso/KeysightDriver.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <vector>

#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"

namespace mervasto {

namespace {

constexpr const char* kErrorQuery = ":SYST:ERR?";
constexpr const char* kPreambleQuery = ":WAV:PRE?";
constexpr const char* kTriggerQuery = ":TER?";
constexpr const char* kRunQuery = ":OPER:COND?";
constexpr int32_t kRunBit = 8;

std::string Channel(int ch) { return ":CHAN" + std::to_string(ch + 1); }

// A register's reply: garbage instead of it would be polled for ever.
int32_t Register(DsoLink& link, const char* query) {
    const std::string reply = link.QueryDso(query, 80);
    if (!IsNumberText(reply))
        link.failExchange("The DSO's reply to \"" + std::string(query) + "\" is not a number: \"" +
                          PrintableBytes(reply, 24) + "\"; the link was closed.");
    return ToInt32(Val(reply));
}

}  // namespace

const InstrumentFamily& KeysightFamily() {
    static const InstrumentFamily family{
        "Keysight", "InfiniiVision 1000 X, 2000 X, 3000 X, 4000 X", 5025,
        [](const Identity& id) {
            // Older units give their maker's former name; their model
            // names (DSO-X 2002A) are the family's own.
            const bool olderModel = id.model.rfind("DSO-X ", 0) == 0 || id.model.rfind("MSO-X ", 0) == 0;
            return (UpperText(id.maker) == "KEYSIGHT TECHNOLOGIES" || olderModel) && KeysightChannels(id.model) > 0;
        },
        [] { return std::unique_ptr<InstrumentDriver>(std::make_unique<KeysightDriver>()); }};
    return family;
}

int16_t KeysightChannels(const std::string& model) {
    std::string m;
    for (char c : UpperText(model))
        if (c != '-' && c != ' ') m += c;
    if (m.size() != 9 || (m.rfind("DSOX", 0) != 0 && m.rfind("MSOX", 0) != 0 && m.rfind("EDUX", 0) != 0)) return 0;
    for (size_t i = 4; i < 8; ++i)
        if (!std::isdigit(static_cast<unsigned char>(m[i]))) return 0;
    if (m[4] < '1' || m[4] > '4' || !std::isalpha(static_cast<unsigned char>(m[8]))) return 0;
    return m[7] == '2' ? 2 : (m[7] == '4' ? 4 : 0);
}

PreambleRule KeysightRule(bool words) {
    return words ? PreambleRule{1, "WORD", -1, "", 65536} : PreambleRule{0, "BYTE", -1, "", 256};
}

float KeysightVolts(int32_t code, const ScpiPreamble& p) {
    return static_cast<float>((code - p.yreference) * p.yincrement + p.yorigin);
}

void KeysightDriver::identify(DsoLink& link, const std::string& reply, DsoSetup& setup) {
    TakeIdentity(link, reply, setup, KeysightChannels, "InfiniiVision 1000 X to 4000 X");
    // What earlier programs left in the error queue is not this program's.
    link.SendDsoCommand("*CLS");
}

void KeysightDriver::readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) {
    for (int ch = 0; ch < kChannels; ++ch) setup.trace(ch).Inverted = false;
    setup.InfoDigit = "1";
    setup.DateTime = ReadoutTime();
    setup.TimePerDiv = ScpiSetupNumber(link, ":TIM:SCAL?", "time base", true);
    setup.TriggerDelay = ScpiSetupNumber(link, ":TIM:POS?", "trigger delay", false);
    setup.AcqMode = WordOf(link.QueryDso(":ACQ:TYPE?", 80),
                           {{"NORM", "NORMAL"}, {"AVER", "AVERAGE"}, {"PEAK", "PEAK"}, {"HRES", "HIGH_RES"}});
    std::string source = link.QueryDso(":TRIG:EDGE:SOUR?", 80);
    if (source.rfind("CHAN", 0) == 0) source = "CH" + source.substr(4);
    setup.TriggerSource = source;
    setup.TriggerLevel = ScpiSetupNumber(link, ":TRIG:EDGE:LEV?", "trigger level", false);
    setup.TriggerMode = WordOf(link.QueryDso(":TRIG:SWE?", 80), {{"AUTO", "AUTO"}, {"NORM", "NORMAL"}});
    const float rate = ScpiSetupNumber(link, ":ACQ:SRAT?", "sample rate", true);
    const std::string depth = link.QueryDso(":ACQ:POIN?", 80);
    const double points = IsNumberText(depth) ? Val(depth) : -1;
    if (points != std::floor(points) || points < 10 || points > kMaxSamples)
        link.failExchange("The DSO's acquisition points (\":ACQ:POIN?\") make no record of 10 to " +
                          std::to_string(kMaxSamples) + " points: \"" + PrintableBytes(depth, 24) +
                          "\" (a smaller memory depth makes a record the program takes)" + kReadoutEnded);
    setup.RecordLength = static_cast<int32_t>(points);
    setup.SampleInterval = ToSingle(1.0 / rate);
    if (!std::isnormal(setup.SampleInterval))
        link.failExchange("The DSO's sample interval (1 / \":ACQ:SRAT?\") is too small for a float" +
                          std::string(kReadoutEnded));
    if (memoryInput) return;
    for (int ch = 0; ch < setup.ChannelCount && ch < kChannels; ++ch) {
        const std::string c = Channel(ch);
        TraceSetup& t = setup.trace(ch);
        t.TraceOn = link.QueryDso(c + ":DISP?", 80) == "1" ? "ON" : "OFF";
        t.VoltsPerDiv = ScpiSetupNumber(link, c + ":SCAL?", "volts/div of " + c.substr(1), true);
        // The volts at the screen's centre: the program's offset moves the other way.
        t.Offset = -ScpiSetupNumber(link, c + ":OFFS?", "offset of " + c.substr(1), false);
        t.Coupling = link.QueryDso(c + ":COUP?", 80);
        t.BandwidthLimit = link.QueryDso(c + ":BWL?", 80) == "1" ? "20M" : "OFF";
        t.Inverted = link.QueryDso(c + ":INV?", 80) == "1";
    }
    setup.CursorPos = {1.0f, 9.0f};
    setup.CursorsFromDso = false;
}

// Armed with ":SING"; done once the trigger event register has seen the
// trigger and the run bit of the operation condition register has dropped
// (the record is complete). The trigger is asked first, so that a run bit not
// yet set just after arming cannot be read as done.
bool KeysightDriver::acquireSingle(DsoLink& link) {
    link.clearStop();
    (void)Register(link, kTriggerQuery);  // a trigger before this acquisition is not its own
    link.SendDsoCommand(":SING");
    bool triggered = false;
    return link.PollUntil([&] {
        if (!triggered) triggered = Register(link, kTriggerQuery) != 0;
        return triggered && (Register(link, kRunQuery) & kRunBit) == 0;
    });
}

void KeysightDriver::readChannel(DsoLink& link, int channel, const ScpiPreamble& p, bool lowFirst, WaveRecord& record,
                                 UiPort& ui, int64_t before, int64_t total) {
    const auto n = static_cast<size_t>(p.points);
    std::vector<float>& volts = record.wave[static_cast<size_t>(channel)];
    volts.resize(std::max(volts.size(), n));
    std::vector<uint8_t>& buf = link.transferBuffer;
    const std::string source = "CH" + std::to_string(channel + 1);
    const size_t width = p.format == 1 ? 2 : 1;
    link.SendDsoCommand(":WAV:DATA?");
    const BlockCheck any{source, -1};
    const int64_t got =
        link.ReadBlock(buf, {&any, &ui, before * static_cast<int64_t>(width), total * static_cast<int64_t>(width)});
    if (got != static_cast<int64_t>(n * width)) {
        const std::string why = ErrorQueueEntry(link, kErrorQuery);
        link.failExchange("The DSO's block for " + source + " holds " + std::to_string(got) + " bytes, not the " +
                          std::to_string(n * width) + " of its " + std::to_string(n) + " points" +
                          (why.empty() ? std::string() : "; the DSO says " + why) +
                          "; the pass was ended and the link closed.");
    }
    const uint8_t* b = buf.data();
    float* out = volts.data();
    if (width == 1) {
        for (size_t k = 0; k < n; ++k) out[k] = KeysightVolts(b[k], p);
    } else {
        const size_t hi = lowFirst ? 1 : 0;
        for (size_t k = 0; k < n; ++k) out[k] = KeysightVolts(b[2 * k + hi] << 8 | b[2 * k + 1 - hi], p);
    }
}

void KeysightDriver::readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record,
                               UiPort& ui) {
    // Averaged and high-resolution records have more than 8 bits a point.
    const bool words = setup.AcqMode == "AVERAGE" || setup.AcqMode == "HIGH_RES";
    // The whole acquisition record is there only while stopped.
    link.SendDsoCommand(":STOP");
    link.SendDsoCommand(":WAV:POIN:MODE RAW");
    link.SendDsoCommand(words ? ":WAV:FORM WORD" : ":WAV:FORM BYTE");
    const bool lowFirst = words && link.QueryDso(":WAV:BYT?", 80) == "LSBF";
    int64_t length = 0;
    int64_t done = 0;
    for (int ch : on) {
        const std::string source = ":WAV:SOUR CHAN" + std::to_string(ch + 1);
        link.SendDsoCommand(source);
        link.SendDsoCommand(":WAV:POIN MAX");
        CheckErrorQueue(link, kErrorQuery, "\"" + source + "\"");
        std::string problem;
        const std::optional<ScpiPreamble> p =
            ParseScpiPreamble(link.QueryDso(kPreambleQuery, 256), kPreambleQuery, KeysightRule(words), problem);
        if (!p) link.failExchange(problem + kReadoutEnded);
        TakeRecordShape(link, *p, ch, on.front(), length, setup, last_);
        readChannel(link, ch, *p, lowFirst, record, ui, done, length * static_cast<int64_t>(on.size()));
        done += length;
    }
}

Outcome KeysightDriver::returnToLocal(DsoLink& link) {
    return Guarded([&] {
        if (link.DsoLinked) link.SendDsoCommand(":SYST:LOCK OFF");
    });
}

std::string KeysightDriver::rejectRangePrompt() const {
    return "Set the Cursors to Manual and Set Reject Range by Cursor X1 and X2 !";
}

Outcome KeysightDriver::readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) {
    return Guarded([&] {
        const std::string mode = link.QueryDso(":MARK:MODE?", 80);
        const std::string a = link.QueryDso(":MARK:X1P?", 80);
        const std::string b = link.QueryDso(":MARK:X2P?", 80);
        const bool fromDso = (mode == "MAN" || mode == "WAV" || mode == "XONL") && IsNumberText(a) && IsNumberText(b);
        RangeFromCursorTimes(fromDso, Val(a), Val(b), last_ ? &*last_ : nullptr, setup, recordLength, out);
    });
}

Outcome KeysightDriver::saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText,
                                   const std::string& fileName, int32_t* bytes) {
    (void)addressText;
    return SaveScreenBlock(link, ui, ":DISP:DATA? PNG,COL", fileName, bytes);
}

}  // namespace mervasto
