#include "dso/SiglentDriver.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <vector>

#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"
#include "dso/ScpiSupport.h"

namespace mervasto {

namespace {

constexpr const char* kInrQuery = "INR?";

// What the command error register's codes mean.
constexpr const char* kCommandErrors[] = {"",
                                          "unrecognized command/query header",
                                          "invalid character",
                                          "invalid separator",
                                          "missing parameter",
                                          "unrecognized keyword",
                                          "string error",
                                          "parameter not allowed",
                                          "command string too long",
                                          "query not allowed",
                                          "missing query mask",
                                          "invalid parameter",
                                          "parameter syntax error",
                                          "filename too long"};

std::string Channel(int ch) { return "C" + std::to_string(ch + 1); }

// The command and execution error registers, each cleared by its reading:
// what they hold, empty when both are 0.
std::string SiglentErrors(DsoLink& link) {
    std::string errors;
    for (const std::string query : {"CMR?", "EXR?"}) {
        const std::string reply = link.QueryDso(query, 80);
        const std::string_view number = TrimBlanks(reply);
        if (!IsNumberText(number))
            link.failExchange("The DSO's error register (\"" + query + "\") replied \"" + PrintableBytes(reply, 40) +
                              "\", which is no number; the link was closed.");
        const int32_t code = ToInt32(Val(number));
        if (code == 0) continue;
        const bool command = query == "CMR?";
        std::string entry = (command ? "command error " : "execution error ") + std::to_string(code);
        if (command && code > 0 && code < static_cast<int32_t>(std::size(kCommandErrors)))
            entry += " (" + std::string(kCommandErrors[code]) + ")";
        errors += (errors.empty() ? "" : "; ") + entry;
    }
    return errors;
}

void CheckSiglentErrors(DsoLink& link, const std::string& after) {
    const std::string errors = SiglentErrors(link);
    if (!errors.empty())
        link.failExchange("The DSO reports an error after " + after + ": " + errors + "; the link was closed.");
}

// The internal state change register; reading it clears it.
int32_t StateChanges(DsoLink& link) {
    const std::string reply = link.QueryDso(kInrQuery, 80);
    // Garbage instead of the register would be read as 0 for ever.
    if (!IsNumberText(reply))
        link.failExchange("The DSO's reply to \"" + std::string(kInrQuery) + "\" is not a number: \"" +
                          PrintableBytes(reply, 24) + "\"; the link was closed.");
    return ToInt32(Val(reply));
}

}  // namespace

const InstrumentFamily& SiglentFamily() {
    static const InstrumentFamily family{
        "Siglent", "SDS1000X-E, SDS2000X", 5025,
        [](const Identity& id) {
            return UpperText(id.maker) == "SIGLENT TECHNOLOGIES" && SiglentChannels(id.model) > 0;
        },
        [] { return std::unique_ptr<InstrumentDriver>(std::make_unique<SiglentDriver>()); }};
    return family;
}

int16_t SiglentChannels(const std::string& model) {
    const std::string m = UpperText(model);
    if (m.size() < 8 || m.rfind("SDS", 0) != 0 || (m[3] != '1' && m[3] != '2') || m[7] != 'X') return 0;
    for (size_t i = 4; i < 7; ++i)
        if (!std::isdigit(static_cast<unsigned char>(m[i]))) return 0;
    const std::string rest = m.substr(8);
    if (rest != "-E" && !(m[3] == '2' && rest.empty())) return 0;
    return m[6] == '2' ? 2 : (m[6] == '4' ? 4 : 0);
}

float SiglentVolts(int8_t code, float voltsPerDiv, float offset) {
    return static_cast<float>(code * (static_cast<double>(voltsPerDiv) / 25.0) - offset);
}

void SiglentDriver::identify(DsoLink& link, const std::string& reply, DsoSetup& setup) {
    TakeIdentity(link, reply, setup, SiglentChannels, "SDS1000X-E or SDS2000X");
    // Replies without their headers and units; registers of earlier programs cleared.
    link.SendDsoCommand("CHDR OFF");
    link.SendDsoCommand("*CLS");
}

void SiglentDriver::readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) {
    for (int ch = 0; ch < kChannels; ++ch) setup.trace(ch).Inverted = false;
    setup.InfoDigit = "1";
    setup.DateTime = ReadoutTime();
    setup.TimePerDiv = ScpiSetupNumber(link, "TDIV?", "time base", true, true);
    setup.TriggerDelay = ScpiSetupNumber(link, "TRDL?", "trigger delay", false, true);
    const std::string way = link.QueryDso("ACQW?", 80);
    setup.AcqMode =
        WordOf(way.substr(0, way.find(',')),
               {{"SAMPLING", "NORMAL"}, {"PEAK_DETECT", "PEAK"}, {"AVERAGE", "AVERAGE"}, {"HIGH_RES", "HIGH_RES"}});
    // "EDGE,SR,C1,HT,OFF": the source follows SR.
    const std::vector<std::string> select = SplitFields(link.QueryDso("TRSE?", 120));
    const auto sr = std::find(select.begin(), select.end(), "SR");
    const std::string source = sr != select.end() && sr + 1 != select.end() ? *(sr + 1) : std::string();
    const bool channelSource =
        source.size() == 2 && source[0] == 'C' && std::isdigit(static_cast<unsigned char>(source[1]));
    setup.TriggerSource = channelSource ? "CH" + source.substr(1) : source;
    setup.TriggerLevel = channelSource ? ScpiSetupNumber(link, source + ":TRLV?", "trigger level", false, true) : 0.0f;
    setup.TriggerMode = WordOf(link.QueryDso("TRMD?", 80),
                               {{"AUTO", "AUTO"}, {"NORM", "NORMAL"}, {"SINGLE", "SINGLE"}, {"STOP", "STOP"}});
    const float rate = ScpiSetupNumber(link, "SARA?", "sample rate", true, true);
    const std::string number = link.QueryDso("SANU? C1", 80);
    const std::string_view digits = WithoutUnit(number);
    const double points = IsNumberText(digits) ? Val(digits) : -1;
    if (points != std::floor(points) || points < 10 || points > kMaxSamples)
        link.failExchange("The DSO's memory depth (\"SANU? C1\") makes no record of 10 to " +
                          std::to_string(kMaxSamples) + " points: \"" + PrintableBytes(number, 24) +
                          "\" (a smaller memory depth makes a record the program takes)" + kReadoutEnded);
    setup.RecordLength = static_cast<int32_t>(points);
    setup.SampleInterval = ToSingle(1.0 / rate);
    if (!std::isnormal(setup.SampleInterval))
        link.failExchange("The DSO's sample interval (1 / \"SARA?\") is too small for a float" +
                          std::string(kReadoutEnded));
    if (memoryInput) return;
    const std::vector<std::string> limits = SplitFields(link.QueryDso("BWL?", 120));
    for (int ch = 0; ch < setup.ChannelCount && ch < kChannels; ++ch) {
        const std::string c = Channel(ch);
        TraceSetup& t = setup.trace(ch);
        t.TraceOn = link.QueryDso(c + ":TRA?", 80) == "ON" ? "ON" : "OFF";
        t.VoltsPerDiv = ScpiSetupNumber(link, c + ":VDIV?", "volts/div of " + c, true, true);
        t.Offset = ScpiSetupNumber(link, c + ":OFST?", "offset of " + c, false, true);
        t.Coupling = WordOf(link.QueryDso(c + ":CPL?", 80),
                            {{"D1M", "DC1M"}, {"A1M", "AC1M"}, {"D50", "DC50"}, {"A50", "AC50"}, {"GND", "GND"}});
        // "C1,OFF,C2,ON,...": the state follows the channel's name.
        const auto at = std::find(limits.begin(), limits.end(), c);
        t.BandwidthLimit = at != limits.end() && at + 1 != limits.end() && *(at + 1) == "ON" ? "20M" : "OFF";
        t.Inverted = link.QueryDso(c + ":INVS?", 80) == "ON";
    }
    setup.CursorPos = {1.0f, 9.0f};
    setup.CursorsFromDso = false;
}

bool SiglentDriver::acquireSingle(DsoLink& link) {
    link.clearStop();
    (void)StateChanges(link);  // a new signal of an acquisition before is not this one
    link.SendDsoCommand("TRMD SINGLE");
    link.SendDsoCommand("ARM");
    return link.PollUntil([&] { return (StateChanges(link) & 1) != 0; });
}

void SiglentDriver::readChannel(DsoLink& link, int channel, const DsoSetup& setup, WaveRecord& record, UiPort& ui,
                                int64_t before, int64_t total) {
    const std::string c = Channel(channel);
    // The codes count from the instrument's scale, whatever the boxes hold.
    const float vdiv = ScpiSetupNumber(link, c + ":VDIV?", "volts/div of " + c, true, true);
    const float offset = ScpiSetupNumber(link, c + ":OFST?", "offset of " + c, false, true);
    if (!std::isnormal(static_cast<float>(vdiv / 25.0)))
        link.failExchange("The DSO's volts/div of " + c + " is too small for the volts of a code" +
                          std::string(kReadoutEnded));
    const int64_t points = setup.RecordLength;
    std::vector<float>& volts = record.wave[static_cast<size_t>(channel)];
    volts.resize(std::max(volts.size(), static_cast<size_t>(points)));
    std::vector<uint8_t>& buf = link.transferBuffer;
    const std::string source = "CH" + std::to_string(channel + 1);
    const BlockCheck any{source, -1};
    for (int64_t first = 0; first < points; first += kSiglentBatchPoints) {
        const int64_t n = std::min<int64_t>(kSiglentBatchPoints, points - first);
        const std::string setupCommand = "WFSU SP,0,NP," + std::to_string(n) + ",FP," + std::to_string(first);
        link.SendDsoCommand(setupCommand);
        if (first == 0) CheckSiglentErrors(link, "\"" + setupCommand + "\"");
        link.SendDsoCommand(c + ":WF? DAT2");
        const int64_t got = link.ReadBlock(buf, {&any, &ui, before + first, total, kSiglentBlockPrefix, 2});
        // A refusal comes as a block of another size; the instrument says why.
        if (got != n) {
            const std::string why = SiglentErrors(link);
            link.failExchange("The DSO's block for " + source + " (points " + std::to_string(first + 1) + " to " +
                              std::to_string(first + n) + ") holds " + std::to_string(got) + " bytes, not the " +
                              std::to_string(n) + " asked for" +
                              (why.empty() ? std::string() : "; the DSO says " + why) +
                              "; the pass was ended and the link closed.");
        }
        float* out = volts.data() + first;
        for (int64_t k = 0; k < got; ++k)
            out[k] = SiglentVolts(static_cast<int8_t>(buf[static_cast<size_t>(k)]), vdiv, offset);
    }
}

void SiglentDriver::readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record,
                              UiPort& ui) {
    // Every channel from the one acquisition.
    link.SendDsoCommand("STOP");
    const int64_t total = int64_t{setup.RecordLength} * static_cast<int64_t>(on.size());
    int64_t done = 0;
    for (int ch : on) {
        readChannel(link, ch, setup, record, ui, done, total);
        done += setup.RecordLength;
    }
}

// The front panel stays the user's over the network: nothing to hand back.
Outcome SiglentDriver::returnToLocal(DsoLink& link) {
    (void)link;
    return Outcome::Ok();
}

FeatureSupport SiglentDriver::supports(InstrumentFeature feature) const {
    if (feature == InstrumentFeature::RejectRange)
        return {false,
                "The Siglent SDS1000X-E / SDS2000X tells its cursors' values, not their places in the record: set the "
                "reject range in the program."};
    return {false,
            "The Siglent SDS1000X-E / SDS2000X sends its screen (\"SCDP\") as a bitmap without a length, which the "
            "link cannot check."};
}

}  // namespace mervasto
