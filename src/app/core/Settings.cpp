#include "app/core/Settings.h"

#include <cctype>
#include <charconv>

#include "common/TextUtil.h"

namespace mervasto {

std::array<ChannelSettings, 4> Settings::defaultChannels() {
    constexpr std::array<int32_t, 4> kBackColors = {0x00FFFF, 0xFF00FF, 0xFFFF00, 0x00FF00};
    std::array<ChannelSettings, 4> ch;
    for (size_t i = 0; i < ch.size(); ++i) {
        ch[i].BackColor = kBackColors[i];
        ch[i].SigName = "Ch" + std::to_string(i + 1);
    }
    return ch;
}

int ChannelTypeIndex(int ch, std::string_view text) {
    const int count = ChannelTypeCount(ch);
    for (int i = 0; i < count; ++i)
        if (kChannelTypes[static_cast<size_t>(i)] == text) return i;
    std::string_view t = TrimBlanks(text);
    int index = -1;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), index);
    if (ec != std::errc() || end != t.data() + t.size() || t.empty()) return -1;
    return index >= 0 && index < count ? index : -1;
}

namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// A check box holds checked or unchecked, nothing else.
bool checkValue(std::string_view text, bool& out) {
    std::string v = lower(TrimBlanks(text));
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

}  // namespace

std::string SetSettingByName(Settings& settings, std::string_view name, std::string_view value) {
    AnalysisSettings& a = settings.analysis;
    struct TextSetting {
        std::string_view name;
        std::string AnalysisSettings::*field;
    };
    static const TextSetting kTexts[] = {
        {"MaxCycles", &AnalysisSettings::MaxCycles},       {"TotalRepeats", &AnalysisSettings::TotalRepeats},
        {"Histerisis", &AnalysisSettings::Histerisis},     {"PLevel", &AnalysisSettings::PLevel},
        {"SmoothingNo", &AnalysisSettings::SmoothingNo},   {"LimitPoints", &AnalysisSettings::LimitPoints},
        {"SampleNo", &AnalysisSettings::SampleNo},         {"SampleIndex", &AnalysisSettings::SampleIndex},
        {"IPAdressText", &AnalysisSettings::IPAdressText}, {"ZoomRate", &AnalysisSettings::ZoomRate},
    };
    struct CheckSetting {
        std::string_view name;
        bool AnalysisSettings::*field;
    };
    static const CheckSetting kChecks[] = {
        {"OmitRangeEffect", &AnalysisSettings::OmitRangeEffect},
        {"RepeatCheck", &AnalysisSettings::RepeatCheck},
        {"DaqCheck", &AnalysisSettings::DaqCheck},
        {"DDSaveCheck", &AnalysisSettings::DDSaveCheck},
        {"WDSaveCheck", &AnalysisSettings::WDSaveCheck},
    };
    const std::string badCheck = "The value of " + std::string(name) + " must be 0, 1, true or false.";

    for (const auto& t : kTexts)
        if (name == t.name) {
            a.*t.field = std::string(value);
            return "";
        }
    for (const auto& c : kChecks)
        if (name == c.name) return checkValue(value, a.*c.field) ? "" : badCheck;
    if (name == "LevelMethod") {
        if (value != kLevelPeaks && value != kLevelHalves) return "LevelMethod must be Peaks or Halves.";
        a.LevelMethod = std::string(value);
        return "";
    }

    // Per-channel settings end in the channel number 1..4.
    if (!name.empty() && name.back() >= '1' && name.back() <= '4') {
        const int ch = name.back() - '1';
        ChannelSettings& c = settings.channels[static_cast<size_t>(ch)];
        std::string_view base = name.substr(0, name.size() - 1);
        if (base == "ChInputSignal") {
            int index = ChannelTypeIndex(ch, value);
            if (index < 0)
                return "ChInputSignal" + std::to_string(ch + 1) + " has no entry " + std::string(value) + ".";
            c.ChInputSignal = index;
            return "";
        }
        if (base == "VRate") {
            c.VRate = std::string(value);
            return "";
        }
        if (base == "SigName") {
            c.SigName = std::string(value);
            return "";
        }
        if (base == "DispOffCheck") return checkValue(value, c.DispOffCheck) ? "" : badCheck;
        if (base == "PPCheck") return checkValue(value, c.PPCheck) ? "" : badCheck;
        if (base == "DutyCheck") return checkValue(value, c.DutyCheck) ? "" : badCheck;
    }
    return "Unknown setting " + std::string(name) + ".";
}

}  // namespace mervasto
