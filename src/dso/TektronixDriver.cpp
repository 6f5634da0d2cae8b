#include "dso/TektronixDriver.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <vector>

#include "analysis/Levels.h"
#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"
#include "dso/ScpiSupport.h"

namespace mervasto {

namespace {

constexpr const char* kStateQuery = "ACQuire:STATE?";
// The standard event status register's error bits: query, device, execution
// and command errors.
constexpr int kEventErrors = 4 | 8 | 16 | 32;
constexpr const char* kNoRejectRange =
    "A Tektronix instrument's cursors are not read: its model lines name them differently. Set the reject range "
    "in the program instead.";
constexpr const char* kNoScreen =
    "A Tektronix instrument saves its screen as a file on its own drive, which the program does not fetch.";

bool Digit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

std::string Channel(int ch) { return "CH" + std::to_string(ch + 1); }

// The event status (reading it makes the events since the last reading
// available), and all of them when it counts an error; empty when none.
std::string ErrorEvents(DsoLink& link) {
    const std::string esr = link.QueryDso("*ESR?", 80);
    const double v = IsNumberText(esr) ? Val(esr) : -1;
    if (v < 0 || v > 255 || v != std::floor(v))
        link.failExchange("The DSO's event status (\"*ESR?\") replied \"" + PrintableBytes(esr, 40) +
                          "\", which is no number from 0 to 255; the link was closed.");
    if ((static_cast<int>(v) & kEventErrors) == 0) return {};
    return PrintableBytes(link.QueryDso("ALLEv?", 1024), 240);
}

void CheckEvents(DsoLink& link, const std::string& after) {
    const std::string events = ErrorEvents(link);
    if (!events.empty())
        link.failExchange("The DSO reports an error after " + after + ": " + events + "; the link was closed.");
}

}  // namespace

int TektronixChannels(std::string_view model) {
    const std::string m = UpperText(model);
    // MSO22 ... MSO68B, MDO32, MDO34: the series, then the channels, then letters (B, LP).
    if ((m.rfind("MSO", 0) == 0 || m.rfind("MDO", 0) == 0) && m.size() >= 5 && Digit(m[3]) && Digit(m[4])) {
        const bool seriesKnown =
            m[0] == 'M' && m[1] == 'D' ? m[3] == '3' : (m[3] == '2' || (m[3] >= '4' && m[3] <= '6'));
        const bool lettersAfter = std::all_of(m.begin() + 5, m.end(),
                                              [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
        const int channels = m[4] - '0';
        return seriesKnown && lettersAfter && channels % 2 == 0 && channels >= 2 ? channels : 0;
    }
    // TBS2072, TBS2104, TBS2204B: four digits, the last the channels.
    if (m.rfind("TBS2", 0) == 0 && m.size() >= 7 && Digit(m[4]) && Digit(m[5]) && Digit(m[6]) &&
        (m.size() == 7 || (m.size() == 8 && m[7] == 'B')))
        return m[6] == '2' || m[6] == '4' ? m[6] - '0' : 0;
    return 0;
}

const InstrumentFamily& TektronixFamily() {
    static const InstrumentFamily family{
        "Tektronix", "2, 3, 4, 5, 6 Series MSO, TBS2000", 4000,
        [](const Identity& id) { return UpperText(id.maker) == "TEKTRONIX" && TektronixChannels(id.model) > 0; },
        [] { return std::unique_ptr<InstrumentDriver>(std::make_unique<TektronixDriver>()); }};
    return family;
}

std::optional<TektronixPreamble> ParseTektronixPreamble(const std::string& reply, std::string& problem) {
    std::vector<std::string> f;
    for (size_t from = 0;;) {
        const size_t semi = reply.find(';', from);
        f.emplace_back(TrimBlanks(FirstLine(reply.substr(from, semi == std::string::npos ? semi : semi - from))));
        if (semi == std::string::npos) break;
        from = semi + 1;
    }
    const std::string quoted = "\"" + PrintableBytes(reply, 160) + "\"";
    if (f.size() != 9) {
        problem = "The DSO's preamble (\"" + std::string(kTektronixPreambleQuery) + "\") has " +
                  std::to_string(f.size()) + " fields, not 9: " + quoted;
        return std::nullopt;
    }
    static constexpr const char* kNames[9] = {"bytes per point", "byte order",  "binary format",
                                              "points",          "x increment", "x zero",
                                              "y multiplier",    "y offset",    "y zero"};
    auto field = [&](int i, const std::string& must) {
        return "The DSO's " + std::string(kNames[i]) + " (field " + std::to_string(i + 1) + " of the preamble) " +
               must + ": " + quoted;
    };
    double v[9] = {};
    for (int i : {0, 3, 4, 5, 6, 7, 8}) {
        const std::string why = SetupNumberProblem(f[static_cast<size_t>(i)], false);
        if (!why.empty()) {
            problem = field(i, why);
            return std::nullopt;
        }
        v[i] = Val(f[static_cast<size_t>(i)]);
    }
    TektronixPreamble p;
    p.bytes = static_cast<int>(v[0]);
    p.msbFirst = UpperText(f[1]) == "MSB";
    p.points = static_cast<int64_t>(v[3]);
    p.xincr = v[4];
    p.xzero = v[5];
    p.ymult = v[6];
    p.yoff = v[7];
    p.yzero = v[8];
    const double mostCode = v[0] == 2 ? 32768.0 : 128.0;
    if (v[0] != 1 && v[0] != 2)
        problem = field(0, "is not 1 or 2");
    else if (UpperText(f[1]) != "MSB" && UpperText(f[1]) != "LSB")
        problem = field(1, "is not MSB or LSB");
    else if (UpperText(f[2]) != "RI")
        problem = field(2, "is not RI (signed)");
    else if (v[3] != std::floor(v[3]) || v[3] < 10 || v[3] > kMaxSamples)
        problem = field(3, "is not a whole number from 10 to " + std::to_string(kMaxSamples) +
                               " (a shorter record length makes a record the program takes)");
    else if (!std::isnormal(static_cast<float>(p.xincr)) || p.xincr < 0)
        problem = field(4, "is not a sample interval a float holds");
    else if (!std::isnormal(static_cast<float>(p.ymult)) || p.ymult < 0 ||
             p.ymult * (mostCode + std::fabs(p.yoff)) + std::fabs(p.yzero) > std::numeric_limits<float>::max())
        problem = field(6, "is not a volts per code a float holds");
    else
        return p;
    return std::nullopt;
}

void TektronixVolts(std::span<const uint8_t> bytes, const TektronixPreamble& p, std::span<float> out) {
    const double offset = p.yzero - p.yoff * p.ymult;
    const double ymult = p.ymult;
    const uint8_t* b = bytes.data();
    const size_t n = std::min(out.size(), bytes.size() / static_cast<size_t>(p.bytes));
    float* o = out.data();
    if (p.bytes == 1) {
        for (size_t k = 0; k < n; ++k) o[k] = static_cast<float>(static_cast<int8_t>(b[k]) * ymult + offset);
        return;
    }
    const size_t hi = p.msbFirst ? 0 : 1;
    for (size_t k = 0; k < n; ++k) {
        const auto code = static_cast<int16_t>(static_cast<uint16_t>(b[2 * k + hi] << 8 | b[2 * k + (1 - hi)]));
        o[k] = static_cast<float>(code * ymult + offset);
    }
}

void TektronixDriver::identify(DsoLink& link, const std::string& reply, DsoSetup& setup) {
    const Identity id = TakeIdentity(link, reply, setup, TektronixChannels, "2, 3, 4, 5 or 6 Series MSO or TBS2000");
    const std::string m = UpperText(id.model);
    selectsChannels_ = m.rfind("TBS", 0) == 0 || m.rfind("MDO3", 0) == 0;
    // Bare replies in long words; what earlier programs left in the event queue is not this program's.
    link.SendDsoCommand("HEADer 0");
    link.SendDsoCommand("VERBose 1");
    link.SendDsoCommand("*CLS");
}

void TektronixDriver::readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) {
    for (int ch = 0; ch < kChannels; ++ch) setup.trace(ch).Inverted = false;
    setup.InfoDigit = "1";
    setup.DateTime = ReadoutTime();
    setup.TimePerDiv = ScpiSetupNumber(link, "HORizontal:SCAle?", "time base", true);
    setup.TriggerDelay = ScpiSetupNumber(link, "HORizontal:DELay:TIMe?", "trigger delay", false);
    const std::string mode = link.QueryDso("ACQuire:MODe?", 80);
    setup.AcqMode = mode == "SAMPLE" ? "NORMAL" : mode == "PEAKDETECT" ? "PEAK" : mode == "HIRES" ? "HIGH_RES" : mode;
    setup.TriggerSource = link.QueryDso("TRIGger:A:EDGE:SOUrce?", 80);
    const bool onChannel = setup.TriggerSource.rfind("CH", 0) == 0;
    setup.TriggerLevel =
        onChannel ? ScpiSetupNumber(link, "TRIGger:A:LEVel:" + setup.TriggerSource + "?", "trigger level", false) : 0;
    setup.TriggerMode = link.QueryDso("TRIGger:A:MODe?", 80);
    const std::string length = link.QueryDso("HORizontal:RECOrdlength?", 80);
    const double points = IsNumberText(length) ? Val(length) : -1;
    if (points != std::floor(points) || points < 10 || points > kMaxSamples)
        link.failExchange("The DSO's record length (\"HORizontal:RECOrdlength?\") makes no record of 10 to " +
                          std::to_string(kMaxSamples) + " points: \"" + PrintableBytes(length, 24) +
                          "\" (a shorter record length makes a record the program takes)" + kReadoutEnded);
    setup.RecordLength = static_cast<int32_t>(points);
    const float rate = ScpiSetupNumber(link, "HORizontal:SAMPLERate?", "sample rate", true);
    setup.SampleInterval = ToSingle(1.0 / rate);
    if (!std::isnormal(setup.SampleInterval))
        link.failExchange("The DSO's sample interval (1 / \"HORizontal:SAMPLERate?\") is too small for a float" +
                          std::string(kReadoutEnded));
    if (memoryInput) return;
    for (int ch = 0; ch < setup.ChannelCount; ++ch) {
        const std::string c = Channel(ch);
        TraceSetup& t = setup.trace(ch);
        const std::string shown = selectsChannels_ ? "SELect:" + c + "?" : "DISplay:GLObal:" + c + ":STATE?";
        t.TraceOn = link.QueryDso(shown, 80) == "1" ? "ON" : "OFF";
        t.VoltsPerDiv = ScpiSetupNumber(link, c + ":SCAle?", "volts/div of " + c, true);
        // The screen's centre is at OFFSet - POSition x SCAle volts.
        const float offset = ScpiSetupNumber(link, c + ":OFFSet?", "offset of " + c, false);
        const float position = ScpiSetupNumber(link, c + ":POSition?", "position of " + c, false);
        t.Offset = ToSingle(double{position} * t.VoltsPerDiv - offset);
        t.Coupling = link.QueryDso(c + ":COUPling?", 80);
        t.BandwidthLimit = link.QueryDso(c + ":BANdwidth?", 80);
        t.Inverted = link.QueryDso(c + ":INVert?", 80) == "1";
    }
    setup.CursorPos = {1.0f, 9.0f};
    setup.CursorsFromDso = false;
}

bool TektronixDriver::acquireSingle(DsoLink& link) {
    link.clearStop();
    link.SendDsoCommand("ACQuire:STOPAfter SEQuence");
    link.SendDsoCommand("ACQuire:STATE RUN");
    return link.PollUntil([&] {
        const std::string state = link.QueryDso(kStateQuery, 80);
        if (state == "0") return true;
        // Anything else would be polled for ever.
        if (state != "1")
            link.failExchange("The DSO's acquisition state (\"" + std::string(kStateQuery) + "\") is \"" +
                              PrintableBytes(state, 24) + "\", neither 0 nor 1; the link was closed.");
        return false;
    });
}

void TektronixDriver::readChannel(DsoLink& link, int channel, const TektronixPreamble& p, WaveRecord& record,
                                  UiPort& ui, int64_t before, int64_t total) {
    const auto n = static_cast<size_t>(p.points);
    std::vector<float>& volts = record.wave[static_cast<size_t>(channel)];
    volts.resize(std::max(volts.size(), n));
    std::vector<uint8_t>& buf = link.transferBuffer;
    const std::string source = Channel(channel);
    link.SendDsoCommand("CURVe?");
    const BlockCheck any{source, -1};
    const int64_t got = link.ReadBlock(buf, {&any, &ui, before, total});
    const int64_t asked = p.points * p.bytes;
    // A refusal comes as a block of another size; the instrument says why.
    if (got != asked) {
        const std::string why = ErrorEvents(link);
        link.failExchange("The DSO's curve of " + source + " holds " + std::to_string(got) + " bytes, not the " +
                          std::to_string(asked) + " of its " + std::to_string(p.points) + " points" +
                          (why.empty() ? std::string() : "; the DSO says " + why) +
                          "; the pass was ended and the link closed.");
    }
    TektronixVolts(std::span<const uint8_t>(buf.data(), static_cast<size_t>(got)), p,
                   std::span<float>(volts.data(), n));
}

void TektronixDriver::readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record,
                                UiPort& ui) {
    // A record still being acquired is not the one the setup describes.
    link.SendDsoCommand("ACQuire:STATE STOP");
    // Averaged and high-resolution records have more than 8 bits.
    const bool words = setup.AcqMode == "AVERAGE" || setup.AcqMode == "HIGH_RES";
    link.SendDsoCommand("DATa:ENCdg RIBinary");
    link.SendDsoCommand(words ? "WFMOutpre:BYT_Nr 2" : "WFMOutpre:BYT_Nr 1");
    // The instrument's own range is not the whole record.
    link.SendDsoCommand("DATa:STARt 1");
    link.SendDsoCommand("DATa:STOP " + std::to_string(setup.RecordLength));
    int64_t length = 0;
    int64_t done = 0;
    for (int ch : on) {
        const std::string source = "DATa:SOUrce " + Channel(ch);
        link.SendDsoCommand(source);
        CheckEvents(link, "\"" + source + "\"");
        std::string problem;
        const std::optional<TektronixPreamble> p =
            ParseTektronixPreamble(link.QueryDso(kTektronixPreambleQuery, 512), problem);
        if (!p) link.failExchange(problem + kReadoutEnded);
        TakeRecordLength(link, p->points, p->xincr, ch, on.front(), length, setup);
        readChannel(link, ch, *p, record, ui, done * p->bytes, length * p->bytes * static_cast<int64_t>(on.size()));
        done += length;
    }
}

Outcome TektronixDriver::returnToLocal(DsoLink& link) {
    return Guarded([&] {
        if (link.DsoLinked) link.SendDsoCommand("UNLock ALL");
    });
}

FeatureSupport TektronixDriver::supports(InstrumentFeature feature) const {
    switch (feature) {
    case InstrumentFeature::RejectRange: return {false, kNoRejectRange};
    case InstrumentFeature::Screen: return {false, kNoScreen};
    }
    return {};
}

}  // namespace mervasto
