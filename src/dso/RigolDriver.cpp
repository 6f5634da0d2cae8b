#include "dso/RigolDriver.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <span>
#include <vector>

#include "analysis/Levels.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"
#include "dso/ScpiSupport.h"

namespace mervasto {

namespace {

constexpr const char* kErrorQuery = ":SYST:ERR?";
constexpr const char* kStatusQuery = ":TRIG:STAT?";
constexpr const char* kPreambleQuery = ":WAV:PRE?";
// The cursors' answer when a cursor has no value.
constexpr double kNoCursorValue = 9.9e37;

// DS1054Z, DS1104Z-S, DS1202Z-E, MSO1104Z: three digits after "DS1" or
// "MSO1", then the Z; the digit before the Z counts the channels.
int16_t RigolChannels(std::string_view model) {
    const std::string m = UpperText(model);
    const size_t prefix = m.rfind("DS1", 0) == 0 ? 3 : (m.rfind("MSO1", 0) == 0 ? 4 : 0);
    if (prefix == 0 || m.size() < prefix + 4 || m[prefix + 3] != 'Z') return 0;
    for (size_t i = prefix; i < prefix + 3; ++i)
        if (!std::isdigit(static_cast<unsigned char>(m[i]))) return 0;
    const char d = m[prefix + 2];
    return d == '2' ? 2 : (d == '4' ? 4 : 0);
}

std::string Channel(int ch) { return ":CHAN" + std::to_string(ch + 1); }

}  // namespace

const InstrumentFamily& RigolFamily() {
    static const InstrumentFamily family{
        "Rigol", "DS1000Z, MSO1000Z", 5555,
        [](const Identity& id) { return UpperText(id.maker) == "RIGOL TECHNOLOGIES" && RigolChannels(id.model) > 0; },
        [] { return std::unique_ptr<InstrumentDriver>(std::make_unique<RigolDriver>()); }};
    return family;
}

std::optional<RigolPreamble> ParseRigolPreamble(const std::string& reply, std::string& problem) {
    return ParseScpiPreamble(reply, kPreambleQuery, {0, "BYTE", 2, "RAW", 256}, problem);
}

float RigolVolts(uint8_t code, const RigolPreamble& p) {
    return static_cast<float>((static_cast<double>(code) - p.yorigin - p.yreference) * p.yincrement);
}

void RigolDriver::identify(DsoLink& link, const std::string& reply, DsoSetup& setup) {
    TakeIdentity(link, reply, setup, RigolChannels, "DS1000Z or MSO1000Z");
    // What earlier programs left in the error queue is not this program's.
    link.SendDsoCommand("*CLS");
}

void RigolDriver::readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) {
    for (int ch = 0; ch < kChannels; ++ch) setup.trace(ch).Inverted = false;
    setup.InfoDigit = "1";
    setup.DateTime = ReadoutTime();
    setup.TimePerDiv = ScpiSetupNumber(link, ":TIM:SCAL?", "time base", true);
    setup.TriggerDelay = ScpiSetupNumber(link, ":TIM:OFFS?", "trigger delay", false);
    setup.AcqMode = WordOf(link.QueryDso(":ACQ:TYPE?", 80),
                           {{"NORM", "NORMAL"}, {"AVER", "AVERAGE"}, {"PEAK", "PEAK"}, {"HRES", "HIGH_RES"}});
    std::string source = link.QueryDso(":TRIG:EDG:SOUR?", 80);
    if (source.rfind("CHAN", 0) == 0) source = "CH" + source.substr(4);
    setup.TriggerSource = source;
    setup.TriggerLevel = ScpiSetupNumber(link, ":TRIG:EDG:LEV?", "trigger level", false);
    setup.TriggerMode =
        WordOf(link.QueryDso(":TRIG:SWE?", 80), {{"AUTO", "AUTO"}, {"NORM", "NORMAL"}, {"SING", "SINGLE"}});
    // The memory's length and rate; the preamble of the record itself has the last word.
    const float rate = ScpiSetupNumber(link, ":ACQ:SRAT?", "sample rate", true);
    const std::string depth = link.QueryDso(":ACQ:MDEP?", 80);
    const double points =
        depth == "AUTO" ? std::round(double{rate} * setup.TimePerDiv * 12.0) : (IsNumberText(depth) ? Val(depth) : -1);
    if (points != std::floor(points) || points < 10 || points > kMaxSamples)
        link.failExchange("The DSO's memory depth (\":ACQ:MDEP?\") makes no record of 10 to " +
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
        t.Offset = ScpiSetupNumber(link, c + ":OFFS?", "offset of " + c.substr(1), false);
        t.Coupling = link.QueryDso(c + ":COUP?", 80);
        t.BandwidthLimit = link.QueryDso(c + ":BWL?", 80);
        t.Inverted = link.QueryDso(c + ":INV?", 80) == "1";
    }
    setup.CursorPos = {1.0f, 9.0f};
    setup.CursorsFromDso = false;
}

bool RigolDriver::acquireSingle(DsoLink& link) {
    link.clearStop();
    link.SendDsoCommand(":SING");
    return link.PollUntil([&] {
        const std::string status = link.QueryDso(kStatusQuery, 256);
        if (status == "STOP") return true;
        // Anything but its five words would be polled for ever.
        if (status != "WAIT" && status != "RUN" && status != "TD" && status != "AUTO")
            link.failExchange("The DSO's trigger status (\"" + std::string(kStatusQuery) + "\") is \"" +
                              PrintableBytes(status, 24) +
                              "\", none of TD, WAIT, RUN, AUTO, STOP; the link was closed.");
        return false;
    });
}

void RigolDriver::readChannel(DsoLink& link, int channel, const RigolPreamble& p, WaveRecord& record, UiPort& ui,
                              int64_t before, int64_t total) {
    const size_t ch = static_cast<size_t>(channel);
    const auto n = static_cast<size_t>(p.points);
    std::vector<float>& volts = record.wave[ch];
    volts.resize(std::max(volts.size(), n));
    std::vector<uint8_t>& buf = link.transferBuffer;
    const std::string source = "CH" + std::to_string(channel + 1);
    for (int64_t first = 1; first <= p.points; first += kRigolBatchPoints) {
        const int64_t last = std::min<int64_t>(first + kRigolBatchPoints - 1, p.points);
        link.SendDsoCommand(":WAV:STAR " + std::to_string(first));
        link.SendDsoCommand(":WAV:STOP " + std::to_string(last));
        link.SendDsoCommand(":WAV:DATA?");
        const BlockCheck any{source, -1};
        const int64_t got = link.ReadBlock(buf, {&any, &ui, before + first - 1, total});
        // A refusal comes as a block of another size; the instrument says why.
        if (got != last - first + 1) {
            const std::string why = ErrorQueueEntry(link, kErrorQuery);
            link.failExchange("The DSO's block for " + source + " (points " + std::to_string(first) + " to " +
                              std::to_string(last) + ") holds " + std::to_string(got) + " bytes, not the " +
                              std::to_string(last - first + 1) + " asked for" +
                              (why.empty() ? std::string() : "; the DSO says " + why) +
                              "; the pass was ended and the link closed.");
        }
        float* out = volts.data() + (first - 1);
        for (int64_t k = 0; k < got; ++k) out[k] = RigolVolts(buf[static_cast<size_t>(k)], p);
    }
}

void RigolDriver::readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record,
                            UiPort& ui) {
    // The memory is read only while the instrument is stopped.
    link.SendDsoCommand(":STOP");
    link.SendDsoCommand(":WAV:MODE RAW");
    link.SendDsoCommand(":WAV:FORM BYTE");
    int64_t length = 0;
    int64_t done = 0;
    for (int ch : on) {
        const std::string source = ":WAV:SOUR CHAN" + std::to_string(ch + 1);
        link.SendDsoCommand(source);
        CheckErrorQueue(link, kErrorQuery, "\"" + source + "\"");
        std::string problem;
        const std::optional<RigolPreamble> p = ParseRigolPreamble(link.QueryDso(kPreambleQuery, 256), problem);
        if (!p) link.failExchange(problem + kReadoutEnded);
        TakeRecordShape(link, *p, ch, on.front(), length, setup, last_);
        readChannel(link, ch, *p, record, ui, done, length * static_cast<int64_t>(on.size()));
        done += length;
    }
}

Outcome RigolDriver::returnToLocal(DsoLink& link) {
    return Guarded([&] {
        if (link.DsoLinked) link.SendDsoCommand(":SYST:LOCK OFF");
    });
}

std::string RigolDriver::rejectRangePrompt() const {
    return "Set the Cursor to Manual and Set Reject Range by Cursor A and B !";
}

Outcome RigolDriver::readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) {
    return Guarded([&] {
        const std::string mode = link.QueryDso(":CURS:MODE?", 80);
        const double a = Val(link.QueryDso(":CURS:MAN:AXV?", 80));
        const double b = Val(link.QueryDso(":CURS:MAN:BXV?", 80));
        const bool fromDso = mode == "MAN" && std::fabs(a) < kNoCursorValue && std::fabs(b) < kNoCursorValue;
        RangeFromCursorTimes(fromDso, a, b, last_ ? &*last_ : nullptr, setup, recordLength, out);
    });
}

Outcome RigolDriver::saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                                int32_t* bytes) {
    (void)addressText;
    return SaveScreenBlock(link, ui, ":DISP:DATA? ON,OFF,PNG", fileName, bytes);
}

}  // namespace mervasto
