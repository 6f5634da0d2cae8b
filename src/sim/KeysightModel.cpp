#include "sim/KeysightModel.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "common/Numeric.h"

namespace mervasto {

namespace {

constexpr const char* kUndefinedHeader = "-113,\"Undefined header\"";
constexpr const char* kIllegalValue = "-224,\"Illegal parameter value\"";

std::string Flag(bool on) { return on ? "1" : "0"; }

}  // namespace

const std::vector<std::string>& KeysightModels() {
    static const std::vector<std::string> models = {"DSOX3024T", "DSOX1204G", "DSOX1102G", "EDUX1002A",
                                                    "DSOX2004A", "MSOX3054A", "DSOX4024A", "MSOX4104A"};
    return models;
}

KeysightModel::KeysightModel(SimOptions options) : DialectModel(std::move(options)) { generateFirstRecord(); }

int KeysightModel::channelsOf(const std::string& model) const { return model.size() > 7 && model[7] == '2' ? 2 : 4; }

void KeysightModel::acquisitionDone(std::shared_ptr<const SimRecord> record) {
    DialectModel::acquisitionDone(std::move(record));
    running_ = false;
    triggered_ = true;
}

std::vector<SimReply> KeysightModel::handle(std::string_view line) {
    std::vector<SimReply> out;
    if (const ScpiCommand c = ParseScpiCommand(TrimCommand(line)); c.query && Matches(c.nodes, {"TER"}, nullptr))
        ++statusPolls_;
    if (overridden(line, out)) return out;
    ForEachScpiCommand(line, [&](const ScpiCommand& c) { command(c, out); });
    return out;
}

void KeysightModel::command(const ScpiCommand& c, std::vector<SimReply>& out) {
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, nullptr); };
    if (c.query && is({"WAVeform", "DATA"})) return waveData(out);
    if (c.query && is({"DISPlay", "DATA"})) return screenBlock(8, out);
    if (!c.query && (is({"SINGle"}) || is({"DIGitize"}))) {
        running_ = true;
        triggered_ = false;
        out.push_back({SimReply::How::Arm, {}});
        return;
    }
    std::string reply;
    if (c.query) {
        if (query(c, reply)) return text(reply, out);
    } else if (setting(c)) {
        return;
    }
    error(kUndefinedHeader);
}

bool KeysightModel::query(const ScpiCommand& c, std::string& reply) {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, &n); };
    const SimState& st = opt_.state;
    if (opt_.fault == SimFault::BadSetup && badSetupReply(c, reply)) return true;
    if (is({"*IDN"})) return reply = "KEYSIGHT TECHNOLOGIES," + st.model + ",MY00000001,07.50.2021102830", true;
    if (is({"*OPC"})) return reply = "1", true;
    if (is({"SYSTem", "ERRor"})) {
        reply = errors_.empty() ? "+0,\"No error\"" : errors_.front();
        if (!errors_.empty()) errors_.pop_front();
        return true;
    }
    if (is({"TER"})) return reply = std::exchange(triggered_, false) ? "+1" : "+0", true;
    if (is({"OPERegister", "CONDition"})) return reply = running_ ? "+8" : "+0", true;
    if (is({"TIMebase", "SCALe"})) return reply = SciNumber(st.timePerDiv), true;
    if (is({"TIMebase", "POSition"})) return reply = SciNumber(st.triggerDelay), true;
    if (is({"ACQuire", "TYPE"})) {
        const std::string& m = st.acqMode;
        reply = m == "AVERAGE" ? "AVER" : (m == "PEAK" ? "PEAK" : (m == "HIGH_RES" ? "HRES" : "NORM"));
        return true;
    }
    if (is({"ACQuire", "SRATe"})) return reply = SciNumber(st.recordLength / (st.timePerDiv * kDivisions)), true;
    if (is({"ACQuire", "POINts"})) return reply = std::to_string(st.recordLength), true;
    if (is({"TRIGger", "[EDGE]", "SOURce"})) {
        reply = st.triggerSource.rfind("CH", 0) == 0 ? "CHAN" + st.triggerSource.substr(2) : "EXT";
        return true;
    }
    if (is({"TRIGger", "[EDGE]", "LEVel"})) return reply = SciNumber(st.triggerLevel), true;
    if (is({"TRIGger", "SWEep"})) return reply = st.triggerMode == "AUTO" ? "AUTO" : "NORM", true;
    if (is({"CHANnel#", "DISPlay"}) || is({"CHANnel#", "SCALe"}) || is({"CHANnel#", "OFFSet"}) ||
        is({"CHANnel#", "COUPling"}) || is({"CHANnel#", "BWLimit"}) || is({"CHANnel#", "INVert"})) {
        if (n < 1 || n > channels()) return false;
        const SimChannel& ch = st.ch[static_cast<size_t>(n - 1)];
        const std::string& what = c.nodes[1];
        if (NodeIs(what, "DISPlay", nullptr)) reply = Flag(ch.trace == "ON");
        if (NodeIs(what, "SCALe", nullptr)) reply = SciNumber(ch.voltsPerDiv);
        // The volts at the screen's centre.
        if (NodeIs(what, "OFFSet", nullptr)) reply = SciNumber(-ch.offset);
        if (NodeIs(what, "COUPling", nullptr)) reply = ch.coupling.rfind("AC", 0) == 0 ? "AC" : "DC";
        if (NodeIs(what, "BWLimit", nullptr)) reply = Flag(ch.bandwidth != "OFF");
        if (NodeIs(what, "INVert", nullptr)) reply = Flag(ch.inverted == "ON");
        return true;
    }
    if (is({"WAVeform", "SOURce"})) return reply = "CHAN" + std::to_string(source_ + 1), true;
    if (is({"WAVeform", "FORMat"})) return reply = format_, true;
    if (is({"WAVeform", "BYTeorder"})) return reply = byteOrder_, true;
    if (is({"WAVeform", "POINts", "MODE"})) return reply = pointsMode_, true;
    if (is({"WAVeform", "POINts"})) return reply = std::to_string(points()), true;
    if (is({"WAVeform", "PREamble"})) return reply = preamble(), true;
    // The markers: times from the trigger (the state keeps them in divisions).
    if (is({"MARKer", "MODE"})) {
        reply = st.cursorMode == "DH" || st.cursorMode == "DHDV" || st.cursorMode == "MAN" ? "MAN" : "OFF";
        return true;
    }
    if (is({"MARKer", "X1Position"})) return reply = SciNumber(st.triggerDelay + st.cursor1 * st.timePerDiv), true;
    if (is({"MARKer", "X2Position"})) return reply = SciNumber(st.triggerDelay + st.cursor2 * st.timePerDiv), true;
    return false;
}

bool KeysightModel::setting(const ScpiCommand& c) {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, &n); };
    const std::string a = UpperCase(c.argument);
    auto word = [&](std::initializer_list<std::string_view> words, std::string& into) {
        for (std::string_view w : words)
            if (NodeIs(a, w, nullptr)) return into = ShortForm(w), true;
        error(kIllegalValue);
        return true;
    };
    if (is({"*CLS"})) return errors_.clear(), triggered_ = false, true;
    if (is({"RUN"})) return running_ = true, true;
    if (is({"STOP"})) return running_ = false, true;
    if (is({"SYSTem", "LOCK"})) return true;
    if (is({"TIMebase", "SCALe"})) return opt_.state.timePerDiv = Val(a), true;
    if (is({"CHANnel#", "DISPlay"}) || is({"CHANnel#", "SCALe"}) || is({"CHANnel#", "OFFSet"})) {
        if (n < 1 || n > channels()) return error(kIllegalValue), true;
        SimChannel& ch = opt_.state.ch[static_cast<size_t>(n - 1)];
        if (NodeIs(c.nodes[1], "DISPlay", nullptr)) ch.trace = a == "1" || a == "ON" ? "ON" : "OFF";
        if (NodeIs(c.nodes[1], "SCALe", nullptr)) ch.voltsPerDiv = Val(a);
        if (NodeIs(c.nodes[1], "OFFSet", nullptr)) ch.offset = -Val(a);
        return true;
    }
    if (is({"WAVeform", "SOURce"})) {
        int channel = 0;
        if (NodeIs(a, "CHANnel#", &channel) && channel >= 1 && channel <= channels())
            source_ = channel - 1;
        else
            error(kIllegalValue);
        return true;
    }
    if (is({"WAVeform", "FORMat"})) return word({"WORD", "BYTE", "ASCii"}, format_);
    if (is({"WAVeform", "BYTeorder"})) return word({"LSBFirst", "MSBFirst"}, byteOrder_);
    if (is({"WAVeform", "POINts", "MODE"})) return word({"NORMal", "MAXimum", "RAW"}, pointsMode_);
    if (is({"WAVeform", "UNSigned"})) return true;
    if (is({"WAVeform", "POINts"})) {
        const double v = Val(a);
        if (NodeIs(a, "MAXimum", nullptr))
            pointsAsked_ = 0;
        else if (v >= 100 && v == std::floor(v))
            pointsAsked_ = static_cast<int64_t>(v);
        else
            error(kIllegalValue);
        return true;
    }
    return false;
}

// The raw acquisition record once stopped; while running, and in NORMal
// mode, the measurement record. Fewer points asked for, fewer given.
int64_t KeysightModel::points() const {
    const int64_t memory = opt_.state.recordLength;
    const int64_t most = pointsMode_ == "NORM" || running_ ? std::min(memory, kMeasurementPoints) : memory;
    return pointsAsked_ > 0 ? std::min(most, pointsAsked_) : most;
}

double KeysightModel::yReference() const { return format_ == "WORD" ? 32768.0 : 128.0; }

// The codes span ten divisions.
double KeysightModel::yIncrement() const {
    return opt_.state.ch[static_cast<size_t>(source_)].voltsPerDiv * 10.0 / (2 * yReference());
}

std::string KeysightModel::preamble() const {
    const SimState& st = opt_.state;
    const int64_t n = points();
    const double xinc = st.timePerDiv * kDivisions / static_cast<double>(n);
    const int format = format_ == "WORD" ? 1 : (format_ == "BYTE" ? 0 : 4);
    const std::string& m = st.acqMode;
    const int type = m == "PEAK" ? 1 : (m == "AVERAGE" ? 2 : (m == "HIGH_RES" ? 3 : 0));
    return std::to_string(format) + "," + std::to_string(type) + "," + std::to_string(n) + ",1," + SciNumber(xinc) +
           "," + SciNumber(st.triggerDelay - static_cast<double>(n) / 2.0 * xinc) + ",0," + SciNumber(yIncrement()) +
           "," + SciNumber(-st.ch[static_cast<size_t>(source_)].offset) + "," +
           std::to_string(static_cast<int>(yReference()));
}

void KeysightModel::waveData(std::vector<SimReply>& out) {
    const int64_t n = points();
    const std::vector<float>& v = (*record_)[static_cast<size_t>(source_)];
    const int64_t memory = std::min<int64_t>(opt_.state.recordLength, static_cast<int64_t>(v.size()));
    const double yinc = yIncrement();
    const double yorigin = -opt_.state.ch[static_cast<size_t>(source_)].offset;
    const double top = 2 * yReference() - 1;
    auto code = [&](int64_t k) {
        const auto i = static_cast<size_t>(k * memory / std::max<int64_t>(n, 1));
        return static_cast<uint32_t>(std::clamp(std::nearbyint((v[i] - yorigin) / yinc + yReference()), 0.0, top));
    };
    std::string payload;
    if (format_ == "ASC") {
        for (int64_t k = 0; k < n; ++k)
            payload += (k ? "," : "") + SciNumber((code(k) - yReference()) * yinc + yorigin);
    } else if (format_ == "BYTE") {
        payload.resize(static_cast<size_t>(n));
        for (int64_t k = 0; k < n; ++k) payload[static_cast<size_t>(k)] = static_cast<char>(code(k));
    } else {
        payload.resize(static_cast<size_t>(n) * 2);
        const size_t hi = byteOrder_ == "LSBF" ? 1 : 0;
        for (int64_t k = 0; k < n; ++k) {
            const uint32_t w = code(k);
            payload[static_cast<size_t>(2 * k) + hi] = static_cast<char>(w >> 8);
            payload[static_cast<size_t>(2 * k) + 1 - hi] = static_cast<char>(w & 0xFF);
        }
    }
    block(payload, 8, out);
}

// The one malformed setup reply of the BadSetup fault, in this dialect's words.
bool KeysightModel::badSetupReply(const ScpiCommand& c, std::string& reply) const {
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, nullptr); };
    const std::string& field = opt_.badSetupField;
    if (field == "IDN" && is({"*IDN"})) return reply.clear(), true;
    if (field == "TDIV" && is({"TIMebase", "SCALe"})) return reply = "ERR?", true;
    if (field == "VDIV" && is({"CHANnel#", "SCALe"})) return reply = "ERR?", true;
    if (field == "OFST" && is({"CHANnel#", "OFFSet"})) return reply = "ERR?", true;
    if (field == "TRDL" && is({"TIMebase", "POSition"})) return reply = "+1.0E+300", true;
    if (field == "TLVL" && is({"TRIGger", "[EDGE]", "LEVel"})) return reply = "-1.0E+300", true;
    if (field == "INTERVAL" && is({"ACQuire", "SRATe"})) return reply = "+3.0E+38", true;
    if (field == "LENGTH" && is({"ACQuire", "POINts"})) return reply = "-70000", true;
    if (field == "DTINF" && is({"WAVeform", "PREamble"})) return reply = "0,0,1000", true;
    if (field == "VOLTS" && is({"WAVeform", "PREamble"})) {
        std::string p = preamble();
        const size_t at = [&] {
            size_t pos = 0;
            for (int i = 0; i < 7; ++i) pos = p.find(',', pos) + 1;
            return pos;
        }();
        reply = p.substr(0, at) + "1.0E-40" + p.substr(p.find(',', at));
        return true;
    }
    return false;
}

}  // namespace mervasto
