#pragma once

#include "common/Channels.h"
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "app/core/Settings.h"
#include "common/Outcome.h"

namespace mervasto {

// The one list of settings. Each field names its control (the window binds a
// control of that object name to it), its member in Settings, how its value
// is written and checked, and, for settings newer than the legacy resume
// lines, the label of its optional resume line. The resume file, --set on
// the command line and the window all go through this table, so a new
// setting is one row here and one member in Settings.

enum class FieldKind {
    Text,     // a text box: any text, as typed (numbers are read from it when used)
    Number,   // a text box that only takes a number within min..max
    Whole,    // a text box that only takes a whole number within min..max
    Check,    // a check box: 0/1 (also true/false)
    Index,    // a list selection: the entry's index or its text
    Choice,   // one of a few fixed words
    Integer,  // a whole number kept with the settings (colours, positions, ranges)
    Flag,     // a kept true/false value ("True"/"False" in the resume file)
};

// Where a field lives in Settings.
using FieldMember =
    std::variant<std::string AnalysisSettings::*, bool AnalysisSettings::*, std::string ChannelSettings::*,
                 bool ChannelSettings::*, int ChannelSettings::*, int32_t Settings::*, bool Settings::*,
                 std::string Settings::*, int32_t WindowPositions::*>;

struct SettingField {
    std::string_view name;  // object name of the control; per channel, the name before the channel
    FieldKind kind;
    FieldMember member;
    bool perChannel = false;
    bool hasControl = true;  // a control of the main window shows it
    // Numbers and whole numbers: the accepted range. Choices: the words.
    double min = 0;
    double max = 0;
    std::span<const std::string_view> choices = {};
    // Newer settings live on optional "Label,value" lines after the legacy
    // lines; the label is the --set name. Empty for a field on a legacy line.
    bool optionalLine = false;
    std::string_view legacyLabel = {};  // an older label the reader also accepts
};

// Every field, in the order the optional resume lines are written.
std::span<const SettingField> SettingFields();

// The field of a name as the window or the command line gives it, and its
// channel (0-based; -1 for a field that is not per channel). Per-channel
// fields take the channel number after the name: 1..4 on the command line
// and in the resume file ("VRate2"), 0..3 as object names of the window's
// controls ("VRate1" is Ch2's box).
struct FieldRef {
    const SettingField* field = nullptr;
    int ch = -1;
    explicit operator bool() const { return field != nullptr; }
    bool operator==(const FieldRef& o) const { return field == o.field && ch == o.ch; }
};
FieldRef FindField(std::string_view name);           // "VRate2" = Ch2
FieldRef FindControlField(std::string_view object);  // "VRate1" = Ch2

// The --set name ("VRate2") and the control's object name ("VRate1").
std::string FieldName(const FieldRef& f);
std::string ControlName(const FieldRef& f);

// The value as the command line and the optional resume lines write it:
// texts as they stand, checks and flags as 1/0, selections as their index,
// choices as their word, whole numbers in decimal.
std::string FieldText(const Settings& s, const FieldRef& f);

// Sets a field from such a text (a selection also by its list text, a check
// also as true/false). A value the control could not hold is refused with
// the reason, which names the setting and what it takes, and leaves the
// field as it was.
Outcome SetField(Settings& s, const FieldRef& f, std::string_view text);
// The same check without setting anything.
Outcome CheckField(const FieldRef& f, std::string_view text);

// What a number field takes, as the refusals and the tool tips say it:
// "a number from 0 to 100", "a whole number from 1 to 500000"; empty for
// other fields.
std::string RangeText(const SettingField& f);

// The named fields (per-channel ones on every channel) checked as SetField
// would check them: the first refusal, or ok.
Outcome CheckSettings(const Settings& s, std::span<const std::string_view> names);

// The field's value in a default Settings.
std::string DefaultText(const FieldRef& f);

// NAME=VALUE as typed on a command line.
Outcome SetSettingByName(Settings& s, std::string_view name, std::string_view value);

}  // namespace mervasto
