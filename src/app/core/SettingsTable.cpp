#include "app/core/SettingsTable.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

using A = AnalysisSettings;
using C = ChannelSettings;
using S = Settings;
using W = WindowPositions;

constexpr std::array<std::string_view, 3> kLevelMethods = {kLevelPeaks, kLevelHalves, kLevelAuto};
constexpr std::array<std::string_view, 2> kEdgeTimings = {kEdgeSamples, kEdgeInterpolated};
constexpr std::array<std::string_view, 3> kEdgeRules = {kEdgeRuleLegacy, kEdgeRuleSchmitt, kEdgeRuleAuto};

SettingField text(std::string_view name, std::string A::*m) { return {name, FieldKind::Text, m}; }
SettingField check(std::string_view name, bool A::*m) { return {name, FieldKind::Check, m}; }
SettingField choice(std::string_view name, std::string A::*m, std::span<const std::string_view> words) {
    SettingField f{name, FieldKind::Choice, m};
    f.choices = words;
    return f;
}
// A text box whose text must be a number (or a whole number) within min..max.
SettingField ranged(SettingField f, FieldKind kind, double min, double max) {
    f.kind = kind;
    f.min = min;
    f.max = max;
    return f;
}
SettingField number(std::string_view name, std::string A::*m, double min, double max) {
    return ranged({name, FieldKind::Number, m}, FieldKind::Number, min, max);
}
SettingField whole(std::string_view name, std::string A::*m, double min, double max) {
    return ranged({name, FieldKind::Whole, m}, FieldKind::Whole, min, max);
}
SettingField kept(std::string_view name, std::string S::*m) {
    SettingField f{name, FieldKind::Text, m};
    f.hasControl = false;
    return f;
}
SettingField keptInteger(std::string_view name, int32_t S::*m) {
    SettingField f{name, FieldKind::Integer, m};
    f.hasControl = false;
    f.min = INT32_MIN;
    f.max = INT32_MAX;
    return f;
}
SettingField position(std::string_view name, int32_t W::*m) {
    SettingField f{name, FieldKind::Integer, m};
    f.hasControl = false;
    f.min = INT32_MIN;
    f.max = INT32_MAX;
    return f;
}
template <class M>
SettingField channel(std::string_view name, FieldKind kind, M m) {
    SettingField f{name, kind, m};
    f.perChannel = true;
    return f;
}
SettingField optionalLine(SettingField f, std::string_view legacyLabel = {}) {
    f.optionalLine = true;
    f.legacyLabel = legacyLabel;
    return f;
}

const std::vector<SettingField>& table() {
    static const std::vector<SettingField> fields = [] {
        std::vector<SettingField> t = {
            // The Enter checks lower MaxCycles, TotalRepeats and Histerisis
            // to their maximum; 0 repeats is a run of no passes. The sample
            // index stops one short of the 16-bit end so that the next run
            // can still advance it.
            whole("MaxCycles", &A::MaxCycles, 1, 500000),
            whole("TotalRepeats", &A::TotalRepeats, 0, 16000),
            check("RepeatCheck", &A::RepeatCheck),
            number("Histerisis", &A::Histerisis, 0, 50),
            number("PLevel", &A::PLevel, 0, 100),
            whole("SmoothingNo", &A::SmoothingNo, 1, 100000),
            number("LimitPoints", &A::LimitPoints, 0, 10),
            text("SampleNo", &A::SampleNo),
            whole("SampleIndex", &A::SampleIndex, 0, 32766),
            text("Comment", &A::Comment),
            text("IPAdressText", &A::IPAdressText),
            number("ZoomRate", &A::ZoomRate, 1, 1999),
            check("SaveWavesCheck", &A::SaveWavesCheck),
            check("SaveScreenCheck", &A::SaveScreenCheck),
            check("DDSaveCheck", &A::DDSaveCheck),
            check("WDSaveCheck", &A::WDSaveCheck),
            check("DaqCheck", &A::DaqCheck),
            check("OmitRangeEffect", &A::OmitRangeEffect),
            channel("ChInputSignal", FieldKind::Index, &C::ChInputSignal),
            channel("BackColor", FieldKind::Integer, &C::BackColor),
            channel("ForeColor", FieldKind::Integer, &C::ForeColor),
            // A probe's ratio: far beyond it the volts no longer fit the
            // single precision the results are shown in.
            ranged(channel("VRate", FieldKind::Number, &C::VRate), FieldKind::Number, 1e-6, 1e6),
            channel("SigName", FieldKind::Text, &C::SigName),
            channel("DispOffCheck", FieldKind::Check, &C::DispOffCheck),
            keptInteger("RejectStart", &S::RejectStart),
            keptInteger("RejectEnd", &S::RejectEnd),
            SettingField{"RejectRangeSet", FieldKind::Flag, &S::RejectRangeSet},
            position("MainLeft", &W::MainLeft),
            position("MainTop", &W::MainTop),
            position("WaveFormLeft", &W::WaveFormLeft),
            position("WaveFormTop", &W::WaveFormTop),
            position("WaveFormAllLeft", &W::WaveFormAllLeft),
            position("WaveFormAllTop", &W::WaveFormAllTop),
            kept("ComparatorFile", &S::ComparatorFile),
            kept("OutputFolder", &S::OutputFolder),
            kept("DetailFileName", &S::DetailFileName),
            kept("DetailBaseName", &S::DetailBaseName),
            kept("WaveBaseName", &S::WaveBaseName),
            // Settings newer than the legacy lines, each on its own optional
            // line, written in this order.
            optionalLine(choice("LevelMethod", &A::LevelMethod, kLevelMethods), "レベル検出方式"),
            optionalLine(channel("PPCheck", FieldKind::Check, &C::PPCheck)),
            optionalLine(channel("DutyCheck", FieldKind::Check, &C::DutyCheck)),
            optionalLine(number("TimeoutSeconds", &A::TimeoutSeconds, 0.1, 3600)),
            optionalLine(check("Stacked", &A::Stacked)),
            optionalLine(check("Encoder", &A::Encoder)),
            optionalLine(choice("EncoderA", &A::EncoderA, kEncoderChannels)),
            optionalLine(choice("EncoderB", &A::EncoderB, kEncoderChannels)),
            optionalLine(choice("EncoderZ", &A::EncoderZ, kEncoderIndexChannels)),
            optionalLine(number("EncoderCountsPerRev", &A::EncoderCountsPerRev, 0, 1e9)),
            optionalLine(number("MinStateWidth", &A::MinStateWidth, 0, 1)),
            optionalLine(choice("EdgeTiming", &A::EdgeTiming, kEdgeTimings)),
            optionalLine(choice("EdgeRule", &A::EdgeRule, kEdgeRules)),
            optionalLine(choice("Instrument", &A::Instrument, kInstrumentChoices)),
            optionalLine(text("ResultsDb", &A::ResultsDb)),
            optionalLine(text("StationName", &A::StationName)),
        };
        for (auto& f : t)
            if (f.kind == FieldKind::Check || f.kind == FieldKind::Flag) f.max = 1;
        // Colours, reject range and positions are kept values, not controls.
        for (auto& f : t)
            if (f.name == "BackColor" || f.name == "ForeColor") {
                f.hasControl = false;
                f.min = INT32_MIN;
                f.max = INT32_MAX;
            }
        return t;
    }();
    return fields;
}

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool parseCheck(std::string_view text, bool& out) {
    const std::string v = lower(TrimBlanks(text));
    if (v == "1" || v == "true") {
        out = true;
        return true;
    }
    if (v == "0" || v == "false") {
        out = false;
        return true;
    }
    return false;
}

bool parseWhole(std::string_view text, double min, double max, int32_t& out) {
    const std::string_view t = TrimBlanks(text);
    int64_t v = 0;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    if (t.empty() || ec != std::errc() || end != t.data() + t.size()) return false;
    if (static_cast<double>(v) < min || static_cast<double>(v) > max) return false;
    out = static_cast<int32_t>(v);
    return true;
}

// The member a field reads and writes, for one settings object and channel.
template <class Set, class F>
decltype(auto) withMember(Set& s, const FieldRef& f, F&& use) {
    const size_t ch = static_cast<size_t>(std::max(f.ch, 0));
    return std::visit(
        [&](auto m) -> decltype(auto) {
            using M = decltype(m);
            if constexpr (std::is_same_v<M, std::string A::*> || std::is_same_v<M, bool A::*>)
                return use(s.analysis.*m);
            else if constexpr (std::is_same_v<M, std::string C::*> || std::is_same_v<M, bool C::*> ||
                               std::is_same_v<M, int C::*>)
                return use(s.channels[ch].*m);
            else if constexpr (std::is_same_v<M, int32_t W::*>)
                return use(s.windows.*m);
            else
                return use(s.*m);
        },
        f.field->member);
}

std::string badValue(const FieldRef& f, std::string_view text, std::string_view what) {
    return FieldName(f) + " cannot be " + (text.empty() ? std::string("empty") : "\"" + std::string(text) + "\"") +
           ": " + std::string(what);
}

// The whole text as a finite number, as the runtime reads one (blanks
// around it, an exponent).
bool parseNumber(std::string_view text, double& v) {
    try {
        v = NumberText(text);
    } catch (const RuntimeError&) {
        return false;
    }
    return std::isfinite(v);
}

// Locale-free and short: "0.1", "500000", "1e-06".
std::string limitText(double v) {
    if (v == RoundHalfEven(v) && std::fabs(v) <= 1e9) return std::to_string(static_cast<int64_t>(v));
    std::array<char, 32> buf{};
    const auto [end, ec] = std::to_chars(buf.data(), buf.data() + buf.size(), v);
    return ec == std::errc() ? std::string(buf.data(), end) : ShortestText(v);
}

}  // namespace

std::span<const SettingField> SettingFields() { return table(); }

namespace {
// A per-channel field's name ends in its channel's digit, counted from
// firstDigit ('1' on the command line, '0' for the controls).
FieldRef findIn(std::string_view name, char firstDigit, bool controlsOnly) {
    for (const auto& f : table()) {
        if (controlsOnly && !f.hasControl) continue;
        if (!f.perChannel) {
            if (f.name == name) return {&f, -1};
            continue;
        }
        if (name.size() == f.name.size() + 1 && name.substr(0, f.name.size()) == f.name) {
            const char d = name.back();
            if (d >= firstDigit && d < firstDigit + kChannels) return {&f, d - firstDigit};
        }
    }
    return {};
}
}  // namespace

FieldRef FindField(std::string_view name) { return findIn(name, '1', false); }

FieldRef FindControlField(std::string_view object) { return findIn(object, '0', true); }

std::string FieldName(const FieldRef& f) {
    std::string n(f.field->name);
    if (f.field->perChannel) n += std::to_string(f.ch + 1);
    return n;
}

std::string ControlName(const FieldRef& f) {
    std::string n(f.field->name);
    if (f.field->perChannel) n += std::to_string(f.ch);
    return n;
}

std::string FieldText(const Settings& s, const FieldRef& f) {
    return withMember(s, f, [&](const auto& value) -> std::string {
        using V = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<V, std::string>)
            return value;
        else if constexpr (std::is_same_v<V, bool>)
            return value ? "1" : "0";
        else
            return std::to_string(value);
    });
}

Outcome CheckField(const FieldRef& f, std::string_view text) {
    const SettingField& field = *f.field;
    const auto refused = [&](std::string_view what) {
        return Outcome(ErrorCode::TypeMismatch, badValue(f, text, what));
    };
    switch (field.kind) {
    case FieldKind::Text: return Outcome::Ok();
    case FieldKind::Choice: {
        for (auto c : field.choices)
            if (c == text) return Outcome::Ok();
        std::string words;
        for (auto c : field.choices) words += (words.empty() ? "" : " or ") + std::string(c);
        return refused("it is " + words + ".");
    }
    case FieldKind::Number:
    case FieldKind::Whole: {
        double v = 0;
        if (!parseNumber(text, v) || v < field.min || v > field.max ||
            (field.kind == FieldKind::Whole && v != RoundHalfEven(v)))
            return refused("it takes " + RangeText(field) + ".");
        return Outcome::Ok();
    }
    case FieldKind::Check:
    case FieldKind::Flag: {
        bool on = false;
        return parseCheck(text, on) ? Outcome::Ok() : refused("it is 0, 1, true or false.");
    }
    case FieldKind::Index:
        if (ChannelTypeIndex(f.ch, text) < 0)
            return refused("the list of Ch" + std::to_string(f.ch + 1) + " has no such entry.");
        return Outcome::Ok();
    case FieldKind::Integer: {
        int32_t v = 0;
        return parseWhole(text, field.min, field.max, v) ? Outcome::Ok() : refused("it takes a whole number.");
    }
    }
    return Outcome::Ok();
}

Outcome SetField(Settings& s, const FieldRef& f, std::string_view text) {
    if (Outcome checked = CheckField(f, text); !checked) return checked;
    return withMember(s, f, [&](auto& value) -> Outcome {
        using V = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<V, std::string>) {
            value = std::string(text);
        } else if constexpr (std::is_same_v<V, bool>) {
            (void)parseCheck(text, value);
        } else if (f.field->kind == FieldKind::Index) {
            value = ChannelTypeIndex(f.ch, text);
        } else {
            int32_t v = 0;
            (void)parseWhole(text, f.field->min, f.field->max, v);
            value = v;
        }
        return Outcome::Ok();
    });
}

std::string RangeText(const SettingField& f) {
    if (f.kind != FieldKind::Number && f.kind != FieldKind::Whole) return {};
    return std::string(f.kind == FieldKind::Whole ? "a whole number" : "a number") + " from " + limitText(f.min) +
           " to " + limitText(f.max);
}

Outcome CheckSettings(const Settings& s, std::span<const std::string_view> names) {
    for (const auto& field : table()) {
        if (std::find(names.begin(), names.end(), field.name) == names.end()) continue;
        for (int ch = field.perChannel ? 0 : -1; ch < (field.perChannel ? kChannels : 0); ++ch)
            if (Outcome ok = CheckField({&field, ch}, FieldText(s, {&field, ch})); !ok) return ok;
    }
    return Outcome::Ok();
}

std::string DefaultText(const FieldRef& f) {
    static const Settings defaults;
    return FieldText(defaults, f);
}

Outcome SetSettingByName(Settings& s, std::string_view name, std::string_view value) {
    const FieldRef f = FindField(name);
    if (!f) return {ErrorCode::TypeMismatch, "Unknown setting " + std::string(name) + "."};
    return SetField(s, f, value);
}

}  // namespace mervasto
