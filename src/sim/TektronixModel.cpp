#include "sim/TektronixModel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "common/Numeric.h"
#include "sim/ScpiHeaders.h"

namespace mervasto {

namespace {

// NR3 as the instrument writes it: 1.0000E-03.
std::string Nr3(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4E", v);
    return buf;
}

// A whole text that is a number (NR1, NR2 or NR3).
bool IsNumber(std::string_view text) {
    if (text.empty()) return false;
    try {
        (void)NumberText(text);
        return true;
    } catch (...) {
        return false;
    }
}

constexpr int kExecutionError = 16;
constexpr int kCommandError = 32;

}  // namespace

const std::vector<std::string>& TektronixModels() {
    static const std::vector<std::string> models = {"MSO44", "MSO46", "MSO24",  "MSO22",   "MDO34",
                                                    "MDO32", "MSO54", "MSO64B", "TBS2104", "TBS2072"};
    return models;
}

TektronixModel::TektronixModel(SimOptions options) : DialectModel(std::move(options)) { generateFirstRecord(); }

int TektronixModel::channelsOf(const std::string& model) const {
    // The digit after the series (MSO44), the last of a TBS2000's four; at most the four simulated.
    const char d = model.rfind("TBS", 0) == 0 ? model.back() : (model.size() > 4 ? model[4] : '4');
    return std::clamp(d - '0', 2, 4);
}

void TektronixModel::acquisitionDone(std::shared_ptr<const SimRecord> record) {
    DialectModel::acquisitionDone(std::move(record));
    acquiring_ = false;
}

bool TektronixModel::selects() const {
    const std::string& m = opt_.state.model;
    return m.rfind("TBS", 0) == 0 || m.rfind("MDO3", 0) == 0;
}

std::string TektronixModel::word(std::string_view pattern) const {
    return verbose_ ? UpperCase(pattern) : ShortForm(pattern);
}

void TektronixModel::event(int code, const std::string& text, int statusBit) {
    events_.push_back({code, text});
    status_ |= statusBit;
}

std::vector<SimReply> TektronixModel::handle(std::string_view line) {
    std::vector<SimReply> out;
    if (overridden(line, out)) return out;
    std::vector<std::string> texts;
    std::vector<std::string> path;  // where a header without a leading ":" continues
    ForEachScpiCommand(line, [&](const ScpiCommand& c) {
        Unit u = c;
        if (u.nodes.front().rfind('*', 0) != 0) {
            if (!u.rooted) u.nodes.insert(u.nodes.begin(), path.begin(), path.end());
            path.assign(u.nodes.begin(), u.nodes.end() - 1);
        }
        unit(u, texts, out);
    });
    if (!texts.empty()) {
        std::string joined;
        for (const std::string& t : texts) joined += (joined.empty() ? "" : ";") + t;
        text(joined, out);
    }
    return out;
}

void TektronixModel::unit(const Unit& u, std::vector<std::string>& texts, std::vector<SimReply>& out) {
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(u.nodes, pattern, nullptr); };
    if (u.query && is({"ACQuire", "STATE"})) ++statusPolls_;
    if (u.query && is({"CURVe"})) return curve(texts, out);
    if (!u.query && is({"ACQuire", "STATE"})) {
        const std::string a = UpperCase(u.argument);
        const bool run = a == "RUN" || a == "ON" || (IsNumber(a) && Val(a) != 0);
        if (!run && a != "STOP" && a != "OFF" && !IsNumber(a))
            return event(224, "Illegal parameter value", kExecutionError);
        acquiring_ = run;
        if (run && sequence_) out.push_back({SimReply::How::Arm, {}});
        return;
    }
    std::string reply;
    if (u.query) {
        if (query(u, reply)) {
            if (header_ && u.nodes.front().front() != '*') {
                std::string h;
                for (const std::string& n : u.nodes) h += ":" + n;
                reply = h + " " + reply;
            }
            texts.push_back(reply);
            return;
        }
    } else if (setting(u)) {
        return;
    }
    std::string h;
    for (const std::string& n : u.nodes) h += (h.empty() ? "" : ":") + n;
    event(113, "Undefined header; Command not found: " + h + (u.query ? "?" : ""), kCommandError);
}

bool TektronixModel::query(const Unit& u, std::string& reply) {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(u.nodes, pattern, &n); };
    const SimState& st = opt_.state;
    if (opt_.fault == SimFault::BadSetup && badSetupReply(u, reply)) return true;
    if (is({"*IDN"})) return reply = "TEKTRONIX," + st.model + ",C000001,CF:91.1CT FV:1.44.3.433", true;
    if (is({"*OPC"})) return reply = "1", true;
    if (is({"*ESR"})) {
        // Reading the register makes its events readable and drops those it made readable before.
        events_.erase(events_.begin(), events_.begin() + static_cast<std::ptrdiff_t>(summarized_));
        summarized_ = events_.size();
        reply = std::to_string(std::exchange(status_, 0));
        return true;
    }
    if (is({"ALLEv"}) || is({"EVMsg"})) {
        if (summarized_ == 0) {
            reply = events_.empty() ? "0,\"No events to report; queue empty\""
                                    : "1,\"No events to report; new events pending *ESR?\"";
            return true;
        }
        const size_t count = is({"EVMsg"}) ? 1 : summarized_;
        for (size_t i = 0; i < count; ++i)
            reply += (i ? "," : "") + std::to_string(events_[i].code) + ",\"" + events_[i].text + "\"";
        events_.erase(events_.begin(), events_.begin() + static_cast<std::ptrdiff_t>(count));
        summarized_ -= count;
        return true;
    }
    if (is({"HEADer"})) return reply = header_ ? "1" : "0", true;
    if (is({"VERBose"})) return reply = verbose_ ? "1" : "0", true;
    if (is({"HORizontal", "SCAle"})) return reply = Nr3(st.timePerDiv), true;
    if (is({"HORizontal", "RECOrdlength"})) return reply = std::to_string(st.recordLength), true;
    if (is({"HORizontal", "SAMPLERate"})) return reply = Nr3(1.0 / xIncrement()), true;
    if (is({"HORizontal", "DELay", "TIMe"})) return reply = Nr3(st.triggerDelay), true;
    if (is({"HORizontal", "POSition"})) return reply = Nr3(50), true;
    if (is({"ACQuire", "STATE"})) return reply = acquiring_ ? "1" : "0", true;
    if (is({"ACQuire", "STOPAfter"})) return reply = word(sequence_ ? "SEQuence" : "RUNSTop"), true;
    if (is({"ACQuire", "MODe"})) {
        const std::string& m = st.acqMode;
        reply = word(m == "AVERAGE" ? "AVErage" : m == "PEAK" ? "PEAKdetect" : m == "HIGH_RES" ? "HIRes" : "SAMple");
        return true;
    }
    if (is({"TRIGger", "A", "EDGE", "SOUrce"})) return reply = st.triggerSource, true;
    if (is({"TRIGger", "A", "LEVel", "CH#"})) return n >= 1 && n <= channels() && (reply = Nr3(st.triggerLevel), true);
    if (is({"TRIGger", "A", "MODe"})) return reply = word(st.triggerMode == "AUTO" ? "AUTO" : "NORMal"), true;
    if ((!selects() && is({"DISplay", "GLObal", "CH#", "STATE"})) || (selects() && is({"SELect", "CH#"})))
        return n >= 1 && n <= channels() && (reply = st.ch[static_cast<size_t>(n - 1)].trace == "ON" ? "1" : "0", true);
    if (is({"CH#", "SCAle"}) || is({"CH#", "OFFSet"}) || is({"CH#", "POSition"}) || is({"CH#", "COUPling"}) ||
        is({"CH#", "BANdwidth"}) || is({"CH#", "INVert"})) {
        if (n < 1 || n > channels()) return false;
        const auto i = static_cast<size_t>(n - 1);
        const SimChannel& ch = st.ch[i];
        const std::string& what = u.nodes[1];
        if (NodeIs(what, "SCAle", nullptr)) reply = Nr3(ch.voltsPerDiv);
        if (NodeIs(what, "OFFSet", nullptr)) reply = Nr3(yZero(n - 1));
        if (NodeIs(what, "POSition", nullptr)) reply = Nr3(position_[i]);
        if (NodeIs(what, "COUPling", nullptr)) reply = ch.coupling.rfind("AC", 0) == 0 ? "AC" : "DC";
        if (NodeIs(what, "BANdwidth", nullptr)) reply = Nr3(ch.bandwidth == "OFF" ? 500e6 : 20e6);
        if (NodeIs(what, "INVert", nullptr)) reply = ch.inverted == "ON" ? "1" : "0";
        return true;
    }
    if (is({"DATa", "SOUrce"})) return reply = "CH" + std::to_string(source_ + 1), true;
    if (is({"DATa", "ENCdg"})) {
        reply = ascii_ ? word("ASCIi") : word(std::string(msbFirst_ ? "" : "S") + (signed_ ? "RIBinary" : "RPBinary"));
        return true;
    }
    if (is({"DATa", "WIDth"}) || is({"WFMOutpre", "BYT_Nr"})) return reply = std::to_string(width_), true;
    if (is({"DATa", "STARt"})) return reply = std::to_string(start_), true;
    if (is({"DATa", "STOP"})) return reply = std::to_string(stop_), true;
    if (is({"WFMOutpre", "BIT_Nr"})) return reply = std::to_string(8 * width_), true;
    if (is({"WFMOutpre", "BYT_Or"})) return reply = msbFirst_ ? "MSB" : "LSB", true;
    if (is({"WFMOutpre", "BN_Fmt"})) return reply = signed_ ? "RI" : "RP", true;
    if (is({"WFMOutpre", "ENCdg"})) return reply = word(ascii_ ? "ASCii" : "BINary"), true;
    if (is({"WFMOutpre", "NR_Pt"})) return reply = std::to_string(curvePoints()), true;
    if (is({"WFMOutpre", "XINcr"})) return reply = Nr3(xIncrement()), true;
    if (is({"WFMOutpre", "XZEro"})) {
        // The trigger at the record's middle, moved by the delay.
        const double first = st.triggerDelay - st.recordLength / 2.0 * xIncrement();
        return reply = Nr3(first + static_cast<double>(start_ - 1) * xIncrement()), true;
    }
    if (is({"WFMOutpre", "YMUlt"})) return reply = Nr3(yMult(source_)), true;
    if (is({"WFMOutpre", "YOFf"})) return reply = Nr3(yOff(source_)), true;
    if (is({"WFMOutpre", "YZEro"})) return reply = Nr3(yZero(source_)), true;
    return false;
}

bool TektronixModel::setting(const Unit& u) {
    int n = 0;
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(u.nodes, pattern, &n); };
    const std::string a = UpperCase(u.argument);
    auto flag = [&](bool& to) {
        if (a == "1" || a == "ON" || a == "0" || a == "OFF")
            to = a == "1" || a == "ON";
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    };
    if (is({"*CLS"})) {
        events_.clear();
        summarized_ = 0;
        status_ = 0;
        return true;
    }
    if (is({"HEADer"})) return flag(header_);
    if (is({"VERBose"})) return flag(verbose_);
    if (is({"UNLock"}) || is({"LOCk"})) return true;
    if (is({"HORizontal", "SCAle"})) {
        if (IsNumber(a) && Val(a) > 0)
            opt_.state.timePerDiv = Val(a);
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if (is({"ACQuire", "STOPAfter"})) {
        if (NodeIs(a, "SEQuence", nullptr) || NodeIs(a, "RUNSTop", nullptr))
            sequence_ = NodeIs(a, "SEQuence", nullptr);
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if ((!selects() && is({"DISplay", "GLObal", "CH#", "STATE"})) || (selects() && is({"SELect", "CH#"})) ||
        is({"CH#", "SCAle"}) || is({"CH#", "OFFSet"}) || is({"CH#", "POSition"}))
        return channelSetting(u, n);
    if (is({"DATa", "SOUrce"})) {
        int channel = 0;
        if (NodeIs(a, "CH#", &channel) && channel >= 1 && channel <= channels())
            source_ = channel - 1;
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if (is({"DATa", "ENCdg"})) {
        const std::vector<std::string_view> words = {"RIBinary", "SRIbinary", "RPBinary", "SRPbinary", "ASCIi"};
        const auto w =
            std::find_if(words.begin(), words.end(), [&](std::string_view w) { return NodeIs(a, w, nullptr); });
        if (w == words.end()) {
            event(224, "Illegal parameter value", kExecutionError);
            return true;
        }
        ascii_ = *w == "ASCIi";
        msbFirst_ = w->front() != 'S';
        signed_ = *w == "RIBinary" || *w == "SRIbinary";
        return true;
    }
    if (is({"DATa", "WIDth"}) || is({"WFMOutpre", "BYT_Nr"})) {
        if (a == "1" || a == "2")
            width_ = a == "1" ? 1 : 2;
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if (is({"WFMOutpre", "BYT_Or"})) {
        if (a == "MSB" || a == "LSB")
            msbFirst_ = a == "MSB";
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if (is({"DATa", "STARt"}) || is({"DATa", "STOP"})) {
        const double v = IsNumber(a) ? Val(a) : 0;
        if (!(v >= 1) || v != std::floor(v))
            event(222, "Data out of range", kExecutionError);
        else
            (NodeIs(u.nodes[1], "STARt", nullptr) ? start_ : stop_) = static_cast<int64_t>(v);
        return true;
    }
    return false;
}

bool TektronixModel::channelSetting(const Unit& u, int n) {
    if (n < 1 || n > channels()) return false;
    const auto i = static_cast<size_t>(n - 1);
    SimChannel& ch = opt_.state.ch[i];
    const std::string a = UpperCase(u.argument);
    const std::string& what = u.nodes.back();
    if (NodeIs(what, "STATE", nullptr) || NodeIs(what, "CH#", nullptr)) {
        if (a == "1" || a == "ON" || a == "0" || a == "OFF")
            ch.trace = a == "1" || a == "ON" ? "ON" : "OFF";
        else
            event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if (!IsNumber(a)) {
        event(224, "Illegal parameter value", kExecutionError);
        return true;
    }
    if (NodeIs(what, "SCAle", nullptr)) ch.voltsPerDiv = Val(a);
    if (NodeIs(what, "OFFSet", nullptr)) ch.offset = -Val(a);
    if (NodeIs(what, "POSition", nullptr)) position_[i] = Val(a);
    return true;
}

int64_t TektronixModel::memoryPoints() const {
    if (!record_ || static_cast<size_t>(source_) >= record_->size()) return 0;
    return std::min<int64_t>(opt_.state.recordLength,
                             static_cast<int64_t>((*record_)[static_cast<size_t>(source_)].size()));
}

int64_t TektronixModel::curvePoints() const {
    return std::max<int64_t>(std::min(stop_, memoryPoints()) - start_ + 1, 0);
}

// The record spans the screen's ten divisions.
double TektronixModel::xIncrement() const {
    return opt_.state.timePerDiv * 10.0 / std::max<double>(opt_.state.recordLength, 1);
}

double TektronixModel::yMult(int ch) const {
    return opt_.state.ch[static_cast<size_t>(ch)].voltsPerDiv / (kCodesPerDiv * (width_ == 2 ? 256 : 1));
}

double TektronixModel::yOff(int ch) const {
    const double codesPerDiv = kCodesPerDiv * (width_ == 2 ? 256 : 1);
    return position_[static_cast<size_t>(ch)] * codesPerDiv + (signed_ ? 0 : (width_ == 2 ? 32768 : 128));
}

double TektronixModel::yZero(int ch) const {
    return 0.0 - opt_.state.ch[static_cast<size_t>(ch)].offset;  // never -0
}

void TektronixModel::curve(std::vector<std::string>& texts, std::vector<SimReply>& out) {
    // What a line asked before the curve goes first.
    if (!texts.empty()) {
        std::string joined;
        for (const std::string& t : texts) joined += (joined.empty() ? "" : ";") + t;
        text(joined, out);
        texts.clear();
    }
    if (acquiring_ || stop_ > memoryPoints()) {
        event(acquiring_ ? 221 : 222, acquiring_ ? "Settings conflict; acquisition running" : "Data out of range",
              kExecutionError);
        return block({}, 1, out);
    }
    const int64_t n = curvePoints();
    const std::vector<float>& v = (*record_)[static_cast<size_t>(source_)];
    const double ymult = yMult(source_), yoff = yOff(source_), yzero = yZero(source_);
    const double lowest = signed_ ? (width_ == 2 ? -32768 : -128) : 0;
    const double highest = lowest + (width_ == 2 ? 65535 : 255);
    auto code = [&](int64_t k) {
        return static_cast<int32_t>(
            std::clamp(std::nearbyint((v[static_cast<size_t>(k)] - yzero) / ymult + yoff), lowest, highest));
    };
    std::string payload;
    if (ascii_) {
        for (int64_t k = start_ - 1; k < start_ - 1 + n; ++k)
            payload += (payload.empty() ? "" : ",") + std::to_string(code(k));
        return text(payload, out);
    }
    payload.resize(static_cast<size_t>(n * width_));
    char* p = payload.data();
    for (int64_t k = start_ - 1; k < start_ - 1 + n; ++k) {
        const auto c = static_cast<uint32_t>(code(k));
        if (width_ == 1) {
            *p++ = static_cast<char>(c & 0xFF);
        } else {
            const auto hi = static_cast<char>(c >> 8 & 0xFF), lo = static_cast<char>(c & 0xFF);
            *p++ = msbFirst_ ? hi : lo;
            *p++ = msbFirst_ ? lo : hi;
        }
    }
    block(payload, static_cast<int>(std::to_string(payload.size()).size()), out);
}

// The one malformed setup reply of the BadSetup fault, in this dialect's words.
bool TektronixModel::badSetupReply(const Unit& u, std::string& reply) const {
    auto is = [&](const std::vector<std::string_view>& pattern) { return Matches(u.nodes, pattern, nullptr); };
    const std::string& field = opt_.badSetupField;
    if (field == "IDN" && is({"*IDN"})) return reply.clear(), true;
    if (field == "TDIV" && is({"HORizontal", "SCAle"})) return reply = "ERR?", true;
    if (field == "VDIV" && is({"CH#", "SCAle"})) return reply = "ERR?", true;
    if (field == "OFST" && is({"CH#", "OFFSet"})) return reply = "ERR?", true;
    if (field == "TRDL" && is({"HORizontal", "DELay", "TIMe"})) return reply = "1.0000E+300", true;
    if (field == "TLVL" && is({"TRIGger", "A", "LEVel", "CH#"})) return reply = "-1.0000E+300", true;
    if (field == "INTERVAL" && is({"HORizontal", "SAMPLERate"})) return reply = "3.0000E+38", true;
    if (field == "LENGTH" && is({"HORizontal", "RECOrdlength"})) return reply = "-70000", true;
    if (field == "DTINF" && is({"WFMOutpre", "XINcr"})) return reply = "ERR?", true;
    if (field == "VOLTS" && is({"WFMOutpre", "YMUlt"})) return reply = "1.0000E-40", true;
    return false;
}

}  // namespace mervasto
