#include "app/core/SettingsTable.h"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

#include "common/Numeric.h"
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
SettingField number(std::string_view name, std::string A::*m, double min, double max) {
    SettingField f{name, FieldKind::Number, m};
    f.min = min;
    f.max = max;
    return f;
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
            text("MaxCycles", &A::MaxCycles),
            text("TotalRepeats", &A::TotalRepeats),
            check("RepeatCheck", &A::RepeatCheck),
            text("Histerisis", &A::Histerisis),
            text("PLevel", &A::PLevel),
            text("SmoothingNo", &A::SmoothingNo),
            text("LimitPoints", &A::LimitPoints),
            text("SampleNo", &A::SampleNo),
            text("SampleIndex", &A::SampleIndex),
            text("Comment", &A::Comment),
            text("IPAdressText", &A::IPAdressText),
            text("ZoomRate", &A::ZoomRate),
            check("SaveWavesCheck", &A::SaveWavesCheck),
            check("SaveScreenCheck", &A::SaveScreenCheck),
            check("DDSaveCheck", &A::DDSaveCheck),
            check("WDSaveCheck", &A::WDSaveCheck),
            check("DaqCheck", &A::DaqCheck),
            check("OmitRangeEffect", &A::OmitRangeEffect),
            channel("ChInputSignal", FieldKind::Index, &C::ChInputSignal),
            channel("BackColor", FieldKind::Integer, &C::BackColor),
            channel("ForeColor", FieldKind::Integer, &C::ForeColor),
            channel("VRate", FieldKind::Text, &C::VRate),
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
            if (d >= firstDigit && d < firstDigit + kSettingChannels) return {&f, d - firstDigit};
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

Outcome SetField(Settings& s, const FieldRef& f, std::string_view text) {
    const SettingField& field = *f.field;
    return withMember(s, f, [&](auto& value) -> Outcome {
        using V = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<V, std::string>) {
            if (field.kind == FieldKind::Choice) {
                for (auto c : field.choices)
                    if (c == text) {
                        value = std::string(text);
                        return Outcome::Ok();
                    }
                std::string words;
                for (auto c : field.choices) words += (words.empty() ? "" : " or ") + std::string(c);
                return {ErrorCode::TypeMismatch, badValue(f, text, "it is " + words + ".")};
            }
            if (field.kind == FieldKind::Number) {
                const std::string_view t = TrimBlanks(text);
                double v = 0;
                auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
                if (t.empty() || ec != std::errc() || end != t.data() + t.size() || !std::isfinite(v) ||
                    v < field.min || v > field.max)
                    return {ErrorCode::TypeMismatch, badValue(f, text,
                                                              "it takes a number from " + ShortestText(field.min) +
                                                                  " to " + ShortestText(field.max) + ".")};
            }
            value = std::string(text);
            return Outcome::Ok();
        } else if constexpr (std::is_same_v<V, bool>) {
            if (!parseCheck(text, value))
                return {ErrorCode::TypeMismatch, badValue(f, text, "it is 0, 1, true or false.")};
            return Outcome::Ok();
        } else {
            if (field.kind == FieldKind::Index) {
                const int index = ChannelTypeIndex(f.ch, text);
                if (index < 0)
                    return {ErrorCode::TypeMismatch,
                            badValue(f, text, "the list of Ch" + std::to_string(f.ch + 1) + " has no such entry.")};
                value = index;
                return Outcome::Ok();
            }
            int32_t v = 0;
            if (!parseWhole(text, field.min, field.max, v))
                return {ErrorCode::TypeMismatch, badValue(f, text, "it takes a whole number.")};
            value = v;
            return Outcome::Ok();
        }
    });
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
