#include "sim/RigolModel.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <utility>

#include "common/Numeric.h"
#include "sim/ScpiHeaders.h"

namespace mervasto {

namespace {

bool Bool(std::string_view argument) {
    const std::string a = UpperCase(argument);
    return a == "1" || a == "ON";
}

}  // namespace

const std::vector<std::string>& RigolModels() {
    static const std::vector<std::string> models = {"DS1104Z",   "DS1054Z",  "DS1074Z",
                                                    "DS1202Z-E", "MSO1104Z", "MSO1074Z"};
    return models;
}

RigolModel::RigolModel(SimOptions options) : DialectModel(std::move(options)) { generateFirstRecord(); }

int RigolModel::channelsOf(const std::string& model) const {
    const size_t z = model.find('Z');
    return z != std::string::npos && z > 0 && model[z - 1] == '2' ? 2 : 4;
}

void RigolModel::acquisitionDone(std::shared_ptr<const SimRecord> record) {
    DialectModel::acquisitionDone(std::move(record));
    run_ = "STOP";
}

std::vector<SimReply> RigolModel::handle(std::string_view line) {
    std::vector<SimReply> out;
    if (const ScpiCommand c = ParseScpiCommand(TrimCommand(line));
        c.query && Matches(c.nodes, {"TRIGger", "STATus"}, nullptr))
        ++statusPolls_;
    if (overridden(line, out)) return out;
    ForEachScpiCommand(line, [&](const ScpiCommand& c) { command(c, out); });
    return out;
}

void RigolModel::command(const ScpiCommand& c, std::vector<SimReply>& out) {
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, nullptr); };
    if (c.query && is({"WAVeform", "DATA"})) return waveData(out);
    if (c.query && is({"DISPlay", "DATA"})) return screenBlock(9, out);
    if (!c.query && is({"SINGle"})) {
        run_ = "WAIT";
        out.push_back({SimReply::How::Arm, {}});
        return;
    }
    std::string reply;
    if (c.query) {
        if (query(c, reply)) return text(reply, out);
    } else if (setting(c)) {
        return;
    }
    // What the instrument does not know: an entry in the error queue, no reply.
    error("-113,\"Undefined header\"");
}

bool RigolModel::query(const ScpiCommand& c, std::string& reply) {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, &n); };
    const SimState& st = opt_.state;
    if (opt_.fault == SimFault::BadSetup && badSetupReply(c, reply)) return true;
    if (is({"*IDN"})) return reply = "RIGOL TECHNOLOGIES," + st.model + ",DS1ZA000000001,00.04.04.SP4", true;
    if (is({"*OPC"})) return reply = "1", true;
    if (is({"SYSTem", "ERRor", "[NEXT]"})) {
        reply = errors_.empty() ? "0,\"No error\"" : errors_.front();
        if (!errors_.empty()) errors_.pop_front();
        return true;
    }
    if (is({"TRIGger", "STATus"})) return reply = run_, true;
    if (is({"TIMebase", "[MAIN]", "SCALe"})) return reply = SciNumber(st.timePerDiv), true;
    if (is({"TIMebase", "[MAIN]", "OFFSet"})) return reply = SciNumber(st.triggerDelay), true;
    if (is({"ACQuire", "TYPE"})) {
        const std::string& m = st.acqMode;
        reply = m == "AVERAGE" ? "AVER" : (m == "PEAK" ? "PEAK" : (m == "HIGH_RES" ? "HRES" : "NORM"));
        return true;
    }
    if (is({"ACQuire", "SRATe"})) return reply = SciNumber(1.0 / xIncrement()), true;
    if (is({"ACQuire", "MDEPth"})) return reply = std::to_string(st.recordLength), true;
    if (is({"TRIGger", "EDGe", "SOURce"})) {
        reply = st.triggerSource.rfind("CH", 0) == 0 ? "CHAN" + st.triggerSource.substr(2) : st.triggerSource;
        return true;
    }
    if (is({"TRIGger", "EDGe", "LEVel"})) return reply = SciNumber(st.triggerLevel), true;
    if (is({"TRIGger", "SWEep"})) return reply = sweep_, true;
    if (is({"CHANnel#", "DISPlay"}) || is({"CHANnel#", "SCALe"}) || is({"CHANnel#", "OFFSet"}) ||
        is({"CHANnel#", "COUPling"}) || is({"CHANnel#", "BWLimit"}) || is({"CHANnel#", "INVert"})) {
        if (n < 1 || n > channels()) return false;
        const SimChannel& ch = st.ch[static_cast<size_t>(n - 1)];
        const std::string& what = c.nodes[1];
        if (NodeIs(what, "DISPlay", nullptr)) reply = ch.trace == "ON" ? "1" : "0";
        if (NodeIs(what, "SCALe", nullptr)) reply = SciNumber(ch.voltsPerDiv);
        if (NodeIs(what, "OFFSet", nullptr)) reply = SciNumber(ch.offset);
        if (NodeIs(what, "COUPling", nullptr))
            reply = ch.coupling.rfind("AC", 0) == 0 ? "AC" : (ch.coupling == "GND" ? "GND" : "DC");
        if (NodeIs(what, "BWLimit", nullptr)) reply = ch.bandwidth == "OFF" ? "OFF" : "20M";
        if (NodeIs(what, "INVert", nullptr)) reply = ch.inverted == "ON" ? "1" : "0";
        return true;
    }
    if (is({"WAVeform", "SOURce"})) return reply = "CHAN" + std::to_string(source_ + 1), true;
    if (is({"WAVeform", "MODE"})) return reply = mode_, true;
    if (is({"WAVeform", "FORMat"})) return reply = format_, true;
    if (is({"WAVeform", "STARt"})) return reply = std::to_string(start_), true;
    if (is({"WAVeform", "STOP"})) return reply = std::to_string(stop_), true;
    if (is({"WAVeform", "PREamble"})) return reply = preamble(), true;
    // The manual cursors: times from the trigger (the legacy state keeps them
    // in divisions from the screen's centre).
    if (is({"CURSor", "MODE"})) {
        reply = st.cursorMode == "DH" || st.cursorMode == "DHDV" || st.cursorMode == "MAN" ? "MAN" : "OFF";
        return true;
    }
    if (is({"CURSor", "MANual", "AXValue"}))
        return reply = SciNumber(st.triggerDelay + st.cursor1 * st.timePerDiv), true;
    if (is({"CURSor", "MANual", "BXValue"}))
        return reply = SciNumber(st.triggerDelay + st.cursor2 * st.timePerDiv), true;
    return false;
}

bool RigolModel::setting(const ScpiCommand& c) {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, &n); };
    SimState& st = opt_.state;
    const std::string a = UpperCase(c.argument);
    if (is({"*CLS"})) return errors_.clear(), true;
    if (is({"RUN"})) return run_ = "RUN", true;
    if (is({"STOP"})) return run_ = "STOP", true;
    if (is({"SYSTem", "LOCKed"})) return true;
    if (is({"TIMebase", "[MAIN]", "SCALe"})) return st.timePerDiv = Val(a), true;
    if (is({"TIMebase", "[MAIN]", "OFFSet"})) return st.triggerDelay = Val(a), true;
    if (is({"TRIGger", "SWEep"})) return sweep_ = a.substr(0, 4), true;
    if (is({"CHANnel#", "DISPlay"}) || is({"CHANnel#", "SCALe"}) || is({"CHANnel#", "OFFSet"})) {
        if (n < 1 || n > channels()) {
            error("-224,\"Illegal parameter value\"");
            return true;
        }
        SimChannel& ch = st.ch[static_cast<size_t>(n - 1)];
        if (NodeIs(c.nodes[1], "DISPlay", nullptr)) ch.trace = Bool(a) ? "ON" : "OFF";
        if (NodeIs(c.nodes[1], "SCALe", nullptr)) ch.voltsPerDiv = Val(a);
        if (NodeIs(c.nodes[1], "OFFSet", nullptr)) ch.offset = Val(a);
        return true;
    }
    if (is({"WAVeform", "SOURce"})) {
        int channel = 0;
        if (NodeIs(a, "CHANnel#", &channel) && channel >= 1 && channel <= channels())
            source_ = channel - 1;
        else
            error("-224,\"Illegal parameter value\"");
        return true;
    }
    if (is({"WAVeform", "MODE"}) || is({"WAVeform", "FORMat"})) {
        const bool mode = NodeIs(c.nodes[1], "MODE", nullptr);
        const std::vector<std::string_view> words = mode ? std::vector<std::string_view>{"NORMal", "MAXimum", "RAW"}
                                                         : std::vector<std::string_view>{"WORD", "BYTE", "ASCii"};
        for (std::string_view w : words)
            if (NodeIs(a, w, nullptr)) {
                (mode ? mode_ : format_) = ShortForm(w);
                return true;
            }
        error("-224,\"Illegal parameter value\"");
        return true;
    }
    if (is({"WAVeform", "STARt"}) || is({"WAVeform", "STOP"})) {
        const double v = Val(a);
        if (!(v >= 1) || v != std::floor(v)) {
            error("-222,\"Data out of range\"");
            return true;
        }
        (NodeIs(c.nodes[1], "STARt", nullptr) ? start_ : stop_) = static_cast<int64_t>(v);
        return true;
    }
    return false;
}

int64_t RigolModel::memoryPoints() const {
    if (!record_ || static_cast<size_t>(source_) >= record_->size()) return 0;
    return std::min<int64_t>(opt_.state.recordLength,
                             static_cast<int64_t>((*record_)[static_cast<size_t>(source_)].size()));
}

// The memory spans twelve divisions of the time base.
double RigolModel::xIncrement() const {
    return opt_.state.timePerDiv * 12.0 / std::max<double>(opt_.state.recordLength, 1);
}

double RigolModel::yIncrement(int ch) const {
    return opt_.state.ch[static_cast<size_t>(ch)].voltsPerDiv / kCodesPerDiv;
}

int RigolModel::yOrigin(int ch) const {
    return static_cast<int>(std::lround(opt_.state.ch[static_cast<size_t>(ch)].offset / yIncrement(ch)));
}

std::string RigolModel::preamble() const {
    const bool raw = mode_ == "RAW";
    const int64_t points = raw ? memoryPoints() : kScreenPoints;
    const double xinc = raw ? xIncrement() : opt_.state.timePerDiv * 12.0 / kScreenPoints;
    const int format = format_ == "WORD" ? 1 : (format_ == "BYTE" ? 0 : 2);
    const int type = raw ? 2 : (mode_ == "MAX" ? 1 : 0);
    return std::to_string(format) + "," + std::to_string(type) + "," + std::to_string(points) + ",1," +
           SciNumber(xinc) + "," + SciNumber(opt_.state.triggerDelay - static_cast<double>(points) / 2.0 * xinc) +
           ",0," + SciNumber(yIncrement(source_)) + "," + std::to_string(yOrigin(source_)) + "," +
           std::to_string(kReference);
}

void RigolModel::waveData(std::vector<SimReply>& out) {
    const bool raw = mode_ == "RAW";
    // The memory is there to read only once the acquisition has stopped.
    if (raw && run_ != "STOP") {
        error("-221,\"Settings conflict\"");
        return block({}, 9, out);
    }
    const int64_t memory = raw ? memoryPoints() : kScreenPoints;
    const int64_t first = raw ? std::max<int64_t>(start_, 1) : 1;
    const int64_t last = raw ? std::min(stop_, memory) : memory;
    const int64_t most = format_ == "BYTE" ? kBytePoints : (format_ == "WORD" ? kBytePoints / 2 : 15625);
    if (raw && stop_ - first + 1 > most) {
        error("-222,\"Data out of range\"");
        return block({}, 9, out);
    }
    const int64_t n = std::max<int64_t>(last - first + 1, 0);
    const std::vector<float>& v = (*record_)[static_cast<size_t>(source_)];
    const double yinc = yIncrement(source_);
    const int yor = yOrigin(source_);
    auto code = [&](int64_t point) {  // point from 1
        const size_t i = raw ? static_cast<size_t>(point - 1)
                             : static_cast<size_t>((point - 1) * static_cast<int64_t>(v.size()) / kScreenPoints);
        const double c = std::nearbyint(static_cast<double>(v[i]) / yinc + yor + kReference);
        return static_cast<uint8_t>(std::clamp(c, 0.0, 255.0));
    };
    std::string payload;
    if (format_ == "ASC") {
        for (int64_t p = first; p <= last; ++p) {
            if (p != first) payload += ',';
            payload += SciNumber((code(p) - yor - kReference) * yinc);
        }
    } else {
        const size_t width = format_ == "WORD" ? 2 : 1;
        payload.assign(static_cast<size_t>(n) * width, '\0');
        for (int64_t p = first; p <= last; ++p)
            payload[static_cast<size_t>(p - first) * width] = static_cast<char>(code(p));
    }
    block(payload, 9, out);
}

// The one malformed setup reply of the BadSetup fault, in this dialect's words.
bool RigolModel::badSetupReply(const ScpiCommand& c, std::string& reply) const {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(c.nodes, pattern, &n); };
    const std::string& field = opt_.badSetupField;
    if (field == "IDN" && is({"*IDN"})) return reply.clear(), true;
    if (field == "TDIV" && is({"TIMebase", "[MAIN]", "SCALe"})) return reply = "ERR?", true;
    if (field == "VDIV" && is({"CHANnel#", "SCALe"})) return reply = "ERR?", true;
    if (field == "OFST" && is({"CHANnel#", "OFFSet"})) return reply = "ERR?", true;
    if (field == "TRDL" && is({"TIMebase", "[MAIN]", "OFFSet"})) return reply = "1.0000E+300", true;
    if (field == "TLVL" && is({"TRIGger", "EDGe", "LEVel"})) return reply = "-1.0000E+300", true;
    if (field == "INTERVAL" && is({"ACQuire", "SRATe"})) return reply = "3.0000E+38", true;
    if (field == "LENGTH" && is({"ACQuire", "MDEPth"})) return reply = "-70000", true;
    if (field == "DTINF" && is({"WAVeform", "PREamble"})) return reply = "0,2,1000", true;
    if (field == "VOLTS" && is({"WAVeform", "PREamble"})) {
        std::vector<std::string> fields;
        for (size_t from = 0, comma = 0; comma != std::string::npos; from = comma + 1) {
            comma = preamble().find(',', from);
            fields.push_back(preamble().substr(from, comma == std::string::npos ? comma : comma - from));
        }
        fields[7] = "1.0000E-40";
        reply.clear();
        for (const auto& f : fields) reply += (reply.empty() ? "" : ",") + f;
        return true;
    }
    return false;
}

}  // namespace mervasto
