#include "sim/SiglentModel.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <utility>

#include "common/Numeric.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

// The headers the dialect knows: short form, long form.
constexpr std::pair<const char*, const char*> kHeaders[] = {
    {"*IDN", "*IDN"},
    {"*CLS", "*CLS"},
    {"*OPC", "*OPC"},
    {"CHDR", "COMM_HEADER"},
    {"TDIV", "TIME_DIV"},
    {"TRDL", "TRIG_DELAY"},
    {"ACQW", "ACQUIRE_WAY"},
    {"TRSE", "TRIG_SELECT"},
    {"TRLV", "TRIG_LEVEL"},
    {"TRMD", "TRIG_MODE"},
    {"SARA", "SAMPLE_RATE"},
    {"SANU", "SAMPLE_NUM"},
    {"BWL", "BANDWIDTH_LIMIT"},
    {"TRA", "TRACE"},
    {"VDIV", "VOLT_DIV"},
    {"OFST", "OFFSET"},
    {"CPL", "COUPLING"},
    {"INVS", "INVERT_SET"},
    {"WFSU", "WAVEFORM_SETUP"},
    {"WF", "WAVEFORM"},
    {"ARM", "ARM_ACQUISITION"},
    {"STOP", "STOP"},
    {"INR", "INR"},
    {"SAST", "SAMPLE_STATUS"},
    {"CMR", "CMR"},
    {"EXR", "EXR"},
};

// Numbers as the instrument writes them: 1.000000E-03.
std::string Number(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6E", v);
    return buf;
}

const char* LongForm(const std::string& name) {
    for (const auto& [s, l] : kHeaders)
        if (name == s) return l;
    return "";
}

constexpr int kCommandErrorHeader = 1;
constexpr int kCommandErrorParameter = 11;

}  // namespace

const std::vector<std::string>& SiglentModels() {
    static const std::vector<std::string> models = {"SDS1104X-E", "SDS1204X-E", "SDS1102X-E", "SDS1202X-E",
                                                    "SDS2104X",   "SDS2204X",   "SDS2304X",   "SDS2102X"};
    return models;
}

SiglentModel::SiglentModel(SimOptions options) : DialectModel(std::move(options)) { generateFirstRecord(); }

int SiglentModel::channelsOf(const std::string& model) const { return model.size() > 6 && model[6] == '2' ? 2 : 4; }

void SiglentModel::acquisitionDone(std::shared_ptr<const SimRecord> record) {
    DialectModel::acquisitionDone(std::move(record));
    inr_ |= 1;
    status_ = mode_ == "SINGLE" ? "Stop" : "Trig'd";
}

bool SiglentModel::parse(std::string_view text, Command& c) const {
    const size_t blank = text.find(' ');
    std::string head = UpperCase(text.substr(0, blank));
    if (blank != std::string_view::npos) c.argument = UpperCase(TrimCommand(text.substr(blank + 1)));
    if (!head.empty() && head.back() == '?') {
        c.query = true;
        head.pop_back();
    }
    if (head.size() > 3 && head[0] == 'C' && std::isdigit(static_cast<unsigned char>(head[1])) && head[2] == ':') {
        c.channel = head[1] - '0';
        head.erase(0, 3);
    }
    for (const auto& [s, l] : kHeaders)
        if (head == s || head == l) {
            c.name = s;
            return true;
        }
    return false;
}

std::vector<SimReply> SiglentModel::handle(std::string_view line) {
    std::vector<SimReply> out;
    if (Command c; parse(TrimCommand(line), c) && c.query && c.name == "INR") ++statusPolls_;
    if (overridden(line, out)) return out;
    std::string_view rest = line;
    while (!rest.empty()) {
        const size_t semi = rest.find(';');
        const std::string_view one = TrimCommand(rest.substr(0, semi));
        if (Command c; !one.empty()) {
            if (parse(one, c))
                command(c, out);
            else
                cmr_ = kCommandErrorHeader;  // no reply at all
        }
        if (semi == std::string_view::npos) break;
        rest.remove_prefix(semi + 1);
    }
    return out;
}

std::string SiglentModel::reply(const Command& c, const std::string& value, const std::string& unit) const {
    if (header_ == "OFF" || c.name.front() == '*') return value;
    const std::string channel = c.channel > 0 ? "C" + std::to_string(c.channel) + ":" : std::string();
    return channel + (header_ == "LONG" ? std::string(LongForm(c.name)) : c.name) + " " + value + unit;
}

void SiglentModel::command(const Command& c, std::vector<SimReply>& out) {
    if (c.channel > channels()) {
        cmr_ = kCommandErrorParameter;
        return;
    }
    if (c.query && c.name == "WF") return waveform(c, out);
    if (!c.query && c.name == "ARM") {
        inr_ |= 8192;  // trigger ready
        status_ = "Arm";
        out.push_back({SimReply::How::Arm, {}});
        return;
    }
    std::string value, unit;
    if (c.query) {
        if (query(c, value, unit)) return text(reply(c, value, unit), out);
    } else if (setting(c)) {
        return;
    }
    cmr_ = c.query ? 9 : 7;  // a query or a setting the header does not have
}

bool SiglentModel::query(const Command& c, std::string& value, std::string& unit) {
    const SimState& st = opt_.state;
    const auto ch = [&]() -> const SimChannel& { return st.ch[static_cast<size_t>(std::max(c.channel, 1) - 1)]; };
    if (opt_.fault == SimFault::BadSetup && badSetupReply(c, value)) return true;
    const std::string& n = c.name;
    if (n == "*IDN") return value = "Siglent Technologies," + st.model + ",SDS1ECDQ2R0001,8.1.6.1.37R2", true;
    if (n == "*OPC") return value = "1", true;
    if (n == "CHDR") return value = header_, true;
    if (n == "CMR" || n == "EXR" || n == "INR") {
        int& reg = n == "CMR" ? cmr_ : (n == "EXR" ? exr_ : inr_);
        value = std::to_string(std::exchange(reg, 0));
        return true;
    }
    if (n == "SAST") return value = status_, true;
    if (n == "TDIV") return value = Number(st.timePerDiv), unit = "S", true;
    if (n == "TRDL") return value = Number(st.triggerDelay), unit = "S", true;
    if (n == "ACQW") {
        const std::string& m = st.acqMode;
        value =
            m == "AVERAGE" ? "AVERAGE,16" : (m == "PEAK" ? "PEAK_DETECT" : (m == "HIGH_RES" ? "HIGH_RES" : "SAMPLING"));
        return true;
    }
    if (n == "TRSE") {
        const std::string src = st.triggerSource.rfind("CH", 0) == 0 ? "C" + st.triggerSource.substr(2) : "EX";
        return value = "EDGE,SR," + src + ",HT,OFF", true;
    }
    if (n == "TRLV" && c.channel > 0) return value = Number(st.triggerLevel), unit = "V", true;
    if (n == "TRMD") return value = mode_, true;
    if (n == "SARA") return value = Number(sampleRate()), unit = "Sa/s", true;
    if (n == "SANU") return value = Number(st.recordLength), unit = "pts", true;
    if (n == "BWL") {
        for (int k = 0; k < channels(); ++k)
            value += (k ? ",C" : "C") + std::to_string(k + 1) +
                     (st.ch[static_cast<size_t>(k)].bandwidth == "OFF" ? ",OFF" : ",ON");
        return true;
    }
    if (n == "WFSU") {
        value = "SP," + std::to_string(sparsing_) + ",NP," + std::to_string(number_) + ",FP," + std::to_string(first_);
        return true;
    }
    if (c.channel == 0) return false;
    if (n == "TRA") return value = ch().trace == "ON" ? "ON" : "OFF", true;
    if (n == "VDIV") return value = Number(ch().voltsPerDiv), unit = "V", true;
    if (n == "OFST") return value = Number(ch().offset), unit = "V", true;
    if (n == "INVS") return value = ch().inverted == "ON" ? "ON" : "OFF", true;
    if (n == "CPL") {
        const std::string& k = ch().coupling;
        value = k.rfind("AC", 0) == 0 ? "A1M" : (k == "GND" ? "GND" : (k == "DC50" ? "D50" : "D1M"));
        return true;
    }
    return false;
}

bool SiglentModel::setting(const Command& c) {
    const std::string& n = c.name;
    const std::string& a = c.argument;
    if (n == "*CLS") return cmr_ = exr_ = inr_ = 0, true;
    if (n == "CHDR") {
        if (a != "OFF" && a != "SHORT" && a != "LONG") return cmr_ = kCommandErrorParameter, true;
        return header_ = a, true;
    }
    if (n == "STOP") return status_ = "Stop", true;
    if (n == "TRMD") {
        if (a != "AUTO" && a != "NORM" && a != "SINGLE" && a != "STOP") return cmr_ = kCommandErrorParameter, true;
        if (a == "STOP") status_ = "Stop";
        return mode_ = a, true;
    }
    if (n == "TDIV") return opt_.state.timePerDiv = Val(a), true;
    if (c.channel > 0 && (n == "VDIV" || n == "OFST" || n == "TRA")) {
        SimChannel& ch = opt_.state.ch[static_cast<size_t>(c.channel - 1)];
        if (n == "VDIV") ch.voltsPerDiv = Val(a);
        if (n == "OFST") ch.offset = Val(a);
        if (n == "TRA") ch.trace = a == "ON" ? "ON" : "OFF";
        return true;
    }
    if (n == "WFSU") {
        // Pairs of a name and a number, in any order and any number.
        const std::vector<std::string> f = SplitFields(a);
        for (size_t i = 0; i + 1 < f.size(); i += 2) {
            const double v = Val(f[i + 1]);
            if (!(v >= 0) || v != std::floor(v)) return cmr_ = kCommandErrorParameter, true;
            const std::string name(TrimBlanks(f[i]));
            if (name == "SP")
                sparsing_ = static_cast<int64_t>(v);
            else if (name == "NP")
                number_ = static_cast<int64_t>(v);
            else if (name == "FP")
                first_ = static_cast<int64_t>(v);
            else
                return cmr_ = 5, true;  // an unrecognized keyword
        }
        return true;
    }
    return false;
}

double SiglentModel::sampleRate() const {
    return std::max<double>(opt_.state.recordLength, 1) / (opt_.state.timePerDiv * kDivisions);
}

void SiglentModel::waveform(const Command& c, std::vector<SimReply>& out) {
    const std::string name = (header_ == "OFF" ? std::string() : "C" + std::to_string(c.channel) + ":WF ") + "DAT2,";
    if (c.channel == 0 || c.argument != "DAT2") {
        cmr_ = kCommandErrorParameter;
        return;
    }
    const std::vector<float>& v = (*record_)[static_cast<size_t>(c.channel - 1)];
    const int64_t memory = std::min<int64_t>(opt_.state.recordLength, static_cast<int64_t>(v.size()));
    const int64_t step = std::max<int64_t>(sparsing_, 1);
    const int64_t first = std::min(first_, memory);
    int64_t n = (memory - first + step - 1) / step;
    if (number_ > 0) n = std::min(n, number_);
    if (n > kMostPoints) {
        exr_ = 25;  // more than one read sends
        return block({}, 9, out, name, "\n");
    }
    const SimChannel& ch = opt_.state.ch[static_cast<size_t>(c.channel - 1)];
    std::string payload(static_cast<size_t>(n), '\0');
    for (int64_t k = 0; k < n; ++k) {
        const double code =
            std::nearbyint((v[static_cast<size_t>(first + k * step)] + ch.offset) / ch.voltsPerDiv * kCodesPerDiv);
        payload[static_cast<size_t>(k)] = static_cast<char>(static_cast<int8_t>(std::clamp(code, -128.0, 127.0)));
    }
    block(payload, 9, out, name, "\n");
}

// The one malformed setup reply of the BadSetup fault, in this dialect's words.
bool SiglentModel::badSetupReply(const Command& c, std::string& value) const {
    const std::string& field = opt_.badSetupField;
    const std::string& n = c.name;
    if (field == "IDN" && n == "*IDN") return value.clear(), true;
    if ((field == "TDIV" && n == "TDIV") || (field == "VDIV" && n == "VDIV") || (field == "OFST" && n == "OFST"))
        return value = "ERR?", true;
    if (field == "TRDL" && n == "TRDL") return value = "1.00E+300", true;
    if (field == "TLVL" && n == "TRLV") return value = "-1.00E+300", true;
    if (field == "INTERVAL" && n == "SARA") return value = "3.00E+38", true;
    if (field == "LENGTH" && n == "SANU") return value = "-7.00E+04", true;
    if (field == "VOLTS" && n == "VDIV") return value = "1.00E-40", true;
    return false;
}

}  // namespace mervasto
