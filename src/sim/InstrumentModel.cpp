#include "sim/InstrumentModel.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "common/Numeric.h"
#include "sim/Scenario.h"

namespace mervasto {

namespace {

int ChannelsOf(const std::string& model) { return model.size() >= 7 && model[6] == '2' ? 2 : 4; }

std::string SciText(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4E", v);
    return buf;
}

std::string_view Trim(std::string_view s) { return TrimCommand(s); }

bool StartsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

}  // namespace

int32_t SimCounts(float volts, double voltsPerDiv, double offset, bool word) {
    const double perDiv = word ? 8192.0 : 32.0;
    const double lo = word ? -32768.0 : -128.0;
    const double hi = word ? 32767.0 : 127.0;
    if (!(voltsPerDiv != 0)) return 0;
    const double c = std::nearbyint((volts + offset) / voltsPerDiv * perDiv);
    return static_cast<int32_t>(std::clamp(c, lo, hi));
}

std::string SimDtinf(const SimState& state) {
    std::vector<std::string> f(25);
    for (size_t i = 0; i < f.size(); ++i) f[i] = "Info Field " + std::to_string(i) + " = 0";
    f[0] = "Model Name = " + state.model;
    f[1] = "Data Info = 1";
    f[2] = "Record Time = " + QDateTime::currentDateTime().toString("yyyy/MM/dd hh:mm:ss").toStdString();
    // "Record Length = " and "Segment Count = " are both 16 characters long:
    // the number starts at the 17th.
    const bool two = ChannelsOf(state.model) == 2;
    f[two ? 15 : 23] = "Record Length = " + std::to_string(state.recordLength);
    f[two ? 23 : 15] = "Segment Count = 1";
    std::string out;
    for (size_t i = 0; i < f.size(); ++i) out += (i ? "," : "") + f[i];
    return out;
}

InstrumentModel::InstrumentModel(SimOptions options) : DialectModel(std::move(options)) { generateFirstRecord(); }

int InstrumentModel::channelsOf(const std::string& model) const { return ChannelsOf(model); }

void InstrumentModel::acquisitionDone(std::shared_ptr<const SimRecord> record) {
    DialectModel::acquisitionDone(std::move(record));
    acquired_ = true;
}

std::vector<SimReply> InstrumentModel::handle(std::string_view line) {
    std::vector<SimReply> out;
    if (Trim(line) == "TESR?") ++statusPolls_;
    if (overridden(line, out)) return out;
    std::string_view rest = line;
    while (!rest.empty()) {
        const size_t semi = rest.find(';');
        statement(Trim(rest.substr(0, semi)), out);
        if (semi == std::string_view::npos) break;
        rest.remove_prefix(semi + 1);
    }
    return out;
}

void InstrumentModel::statement(std::string_view cmd, std::vector<SimReply>& out) {
    if (cmd == "DTWAVE?") return block(waveBlock(), 8, out);
    if (cmd == "TSCRN? PNG" || cmd == "TSCRN?") return block(screenBlock(), 8, out);
    if (cmd == "WSGL") {
        acquired_ = false;
        out.push_back({SimReply::How::Arm, {}});
        return;
    }
    std::string reply;
    if (answer(cmd, reply)) text(reply, out);
}

// Settings are applied; queries fill `out` and return true.
bool InstrumentModel::answer(std::string_view cmd, std::string& out) {
    SimState& st = opt_.state;
    auto arg = [&](std::string_view head) { return std::string(Trim(cmd.substr(head.size()))); };
    if (opt_.fault == SimFault::BadSetup && badSetupReply(cmd, out)) return true;
    if (cmd == "*IDN?") return out = "MERVASTO SIMULATOR," + st.model + ",0001,1.00", true;
    if (cmd == "DTINF?") return out = SimDtinf(st), true;
    if (cmd == "TDIV?") return out = SciText(st.timePerDiv), true;
    if (cmd == "TRDL?") return out = SciText(st.triggerDelay), true;
    if (cmd == "ACQ?") return out = st.acqMode, true;
    if (cmd == "TSRC?") return out = st.triggerSource, true;
    if (cmd == "TLVL?") return out = SciText(st.triggerLevel), true;
    if (cmd == "TRMD?") return out = st.triggerMode, true;
    if (cmd == "HCUR?") return out = SciText(st.cursor1) + "," + SciText(st.cursor2), true;
    if (cmd == "CURM?") return out = st.cursorMode, true;
    if (cmd == "TESR?") {
        out = acquired_ ? "1" : "0";
        acquired_ = false;
        return true;
    }
    if (StartsWith(cmd, "TDIV ")) return st.timePerDiv = Val(arg("TDIV ")), false;
    if (StartsWith(cmd, "TRDL ")) return st.triggerDelay = Val(arg("TRDL ")), false;
    if (StartsWith(cmd, "ACQ ")) return st.acqMode = arg("ACQ "), false;
    if (StartsWith(cmd, "CURM ")) return st.cursorMode = arg("CURM "), false;
    if (StartsWith(cmd, "HCUR ")) {
        const std::string a = arg("HCUR ");
        const size_t comma = a.find(',');
        st.cursor1 = Val(a.substr(0, comma));
        st.cursor2 = comma == std::string::npos ? 0.0 : Val(a.substr(comma + 1));
        return false;
    }
    if (StartsWith(cmd, "DTFORM ")) return word_ = arg("DTFORM ") == "WORD", false;
    if (StartsWith(cmd, "DTBORD ")) return lowFirst_ = arg("DTBORD ") == "L/H", false;
    if (StartsWith(cmd, "DTPOINTS ")) return points_ = static_cast<int64_t>(Val(arg("DTPOINTS "))), false;
    if (StartsWith(cmd, "DTSTART ")) return start_ = static_cast<int64_t>(Val(arg("DTSTART "))), false;
    if (StartsWith(cmd, "WAVESRC ")) return source_ = arg("WAVESRC "), false;
    if (cmd.size() >= 3 && cmd[0] == 'C' && cmd[1] >= '1' && cmd[1] <= '4' && cmd[2] == ':') {
        SimChannel& c = st.ch[static_cast<size_t>(cmd[1] - '1')];
        const std::string_view what = cmd.substr(3);
        if (what == "VDIV?") return out = SciText(c.voltsPerDiv), true;
        if (what == "OFST?") return out = SciText(c.offset), true;
        if (what == "TRA?") return out = c.trace, true;
        if (what == "CPL?") return out = c.coupling, true;
        if (what == "BWL?") return out = c.bandwidth, true;
        if (what == "INV?") return out = c.inverted, true;
        if (StartsWith(what, "VDIV ")) return c.voltsPerDiv = Val(what.substr(5)), false;
        if (StartsWith(what, "OFST ")) return c.offset = Val(what.substr(5)), false;
        if (StartsWith(what, "INV ")) return c.inverted = std::string(Trim(what.substr(4))), false;
        if (StartsWith(what, "TRA ")) return c.trace = std::string(Trim(what.substr(4))), false;
    }
    // "*ESE 255", "STOP;ROLL OFF;DISP OFF", "DISP ON", "GTL" and anything
    // unknown change nothing the host can see. An unknown query still
    // gets a line so that the host does not hang on it.
    if (!cmd.empty() && cmd.back() == '?') return out.clear(), true;
    return false;
}

// The one malformed setup reply of the BadSetup fault, when cmd asks for it.
bool InstrumentModel::badSetupReply(std::string_view cmd, std::string& out) const {
    const std::string& field = opt_.badSetupField;
    const SimState& st = opt_.state;
    if (field == "IDN" && cmd == "*IDN?") return out.clear(), true;
    if (field == "DTINF" && cmd == "DTINF?") {
        out = "Model Name = " + st.model + ",Data Info = 1,Record Time = 2026/01/01 00:00:00";
        return true;
    }
    if (field == "LENGTH" && cmd == "DTINF?") {
        SimState negative = st;
        negative.recordLength = -70000;
        out = SimDtinf(negative);
        return true;
    }
    // Numbers a float cannot carry, or ones that leave nothing to measure with.
    struct Spoilt {
        const char* field;
        std::string_view query;  // after the channel prefix for the per-channel ones
        bool perChannel;
        const char* reply;
    };
    static constexpr Spoilt kSpoilt[] = {
        {"TDIV", "TDIV?", false, "ERR?"},         {"VDIV", "VDIV?", true, "ERR?"},
        {"OFST", "OFST?", true, "ERR?"},          {"TRDL", "TRDL?", false, "1.0000E+300"},
        {"TLVL", "TLVL?", false, "-1.0000E+300"}, {"INTERVAL", "TDIV?", false, "1.0000E-44"},
        {"VOLTS", "VDIV?", true, "1.0000E-40"},
    };
    const bool channelQuery = cmd.size() > 3 && cmd[0] == 'C' && cmd[2] == ':';
    for (const Spoilt& s : kSpoilt) {
        if (field != s.field) continue;
        if (s.perChannel ? channelQuery && cmd.substr(3) == s.query : cmd == s.query) {
            out = s.reply;
            return true;
        }
    }
    return false;
}

std::string InstrumentModel::waveBlock() const {
    const SimRecord& rec = *record_;
    const bool math = source_ == "MATH";
    size_t ch = 0;
    if (!math && source_.size() == 3 && source_[2] >= '1' && source_[2] <= '4')
        ch = static_cast<size_t>(source_[2] - '1');
    const bool present = math ? rec.size() >= 2 : ch < rec.size();
    // The record in hand may still be the one before a length change.
    int64_t len = opt_.state.recordLength;
    if (present) len = std::min<int64_t>(len, static_cast<int64_t>(rec[math ? 1 : ch].size()));
    const int64_t start = std::clamp<int64_t>(start_, 0, std::max<int64_t>(len, 0));
    const int64_t n = std::clamp<int64_t>(points_, 0, std::max<int64_t>(len - start, 0));
    const SimChannel& scale = opt_.state.ch[math ? 0 : ch];
    const int width = word_ ? 2 : 1;
    std::string payload(static_cast<size_t>(n * width), '\0');
    if (!present) return payload;
    auto* out = reinterpret_cast<uint8_t*>(payload.data());
    for (int64_t k = 0; k < n; ++k) {
        const size_t i = static_cast<size_t>(start + k);
        const float v = math ? rec[0][i] - rec[1][i] : rec[ch][i];
        const int32_t c = SimCounts(v, scale.voltsPerDiv, scale.offset, word_);
        if (word_) {
            const auto u = static_cast<uint16_t>(static_cast<int16_t>(c));
            out[2 * k + (lowFirst_ ? 1 : 0)] = static_cast<uint8_t>(u >> 8);
            out[2 * k + (lowFirst_ ? 0 : 1)] = static_cast<uint8_t>(u & 0xFF);
        } else {
            out[k] = static_cast<uint8_t>(static_cast<int8_t>(c));
        }
    }
    return payload;
}

std::string InstrumentModel::screenBlock() const {
    // With a size asked for: a tiny picture, padded after its end chunk.
    const bool sized = opt_.screenBytes > 0;
    const std::vector<uint8_t> png = SimScreenPng(sized ? SimRecord{} : *record_, opt_.state);
    std::string out(png.begin(), png.end());
    if (sized) out.resize(static_cast<size_t>(opt_.screenBytes), '\0');
    return out;
}

}  // namespace mervasto
