#include "app/core/ResumeFile.h"

#include <cmath>
#include <functional>
#include <vector>

#include "app/core/SettingsTable.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

constexpr int kMaxCommentLines = 257;
constexpr double kMaxCyclesCap = 500000;

// The legacy lines, in file order: a label and the fields its values fill.
// Per-channel lines ("Ch<i> ...") are repeated for the four channels; three
// lines follow rules of their own.
enum class Line { Values, ChannelBlock, Comment, ComparatorPath };
struct LegacyLine {
    Line kind;
    std::string_view label;                     // for a channel line, the text after "Ch<i> "
    std::vector<std::string_view> fields = {};  // field names (per channel: without the number)
};

const std::vector<LegacyLine>& legacyLines() {
    static const std::vector<LegacyLine> lines = {
        {Line::Values, "Max周期数,", {"MaxCycles"}},
        {Line::Values, "ヒステリシス,", {"Histerisis"}},
        {Line::Values, "サンプル名称,", {"SampleNo"}},
        {Line::Values, "追番,", {"SampleIndex"}},
        {Line::Values, "IPアドレス,", {"IPAdressText"}},
        {Line::Values, "拡大倍率,", {"ZoomRate"}},
        {Line::Values, "格納選択,", {"SaveWavesCheck", "SaveScreenCheck"}},
        {Line::Values, "移動平均回数,", {"SmoothingNo"}},
        {Line::Values, "繰返し,", {"RepeatCheck", "TotalRepeats"}},
        {Line::ChannelBlock, "信号タイプ,", {"ChInputSignal"}},
        {Line::ChannelBlock, "のバック色,", {"BackColor"}},
        {Line::ChannelBlock, "の文字色,", {"ForeColor"}},
        {Line::ChannelBlock, "V倍率,", {"VRate"}},
        {Line::ChannelBlock, "信号名称,", {"SigName"}},
        {Line::ChannelBlock, "表示off,", {"DispOffCheck"}},
        {Line::Comment, "コメント"},
        {Line::Values, "範囲マージン(div),", {"LimitPoints"}},
        {Line::Values, "除外チェック/範囲,", {"OmitRangeEffect", "RejectStart", "RejectEnd", "RejectRangeSet"}},
        {Line::Values,
         "Screen Layout,",
         {"MainLeft", "MainTop", "WaveFormLeft", "WaveFormTop", "WaveFormAllLeft", "WaveFormAllTop"}},
        {Line::ComparatorPath, ""},
        {Line::Values, "詳細データ格納する/しない,", {"DDSaveCheck"}},
        {Line::Values, "詳細データ格納パス,", {"OutputFolder", "DetailFileName", "DetailBaseName"}},
        {Line::Values, "波形データ格納ファイルヘッダ/チェック,", {"WaveBaseName", "WDSaveCheck"}},
        {Line::Values, "トリガチェック,", {"DaqCheck"}},
        {Line::Values, "センタレベル,", {"PLevel"}},
    };
    return lines;
}

FieldRef legacyField(std::string_view name, int ch) {
    FieldRef f = FindField(ch < 0 ? std::string(name) : std::string(name) + std::to_string(ch + 1));
    if (!f) throw RuntimeError(ErrorCode::Internal, "The resume layout names no setting " + std::string(name) + ".");
    return f;
}

// A legacy value as the runtime printed it: texts as they stand, numbers in
// the print form (" 1 "), true/false as "True"/"False".
std::string legacyText(const Settings& s, const FieldRef& f) {
    std::string plain = FieldText(s, f);
    switch (f.field->kind) {
    case FieldKind::Check:
    case FieldKind::Index:
    case FieldKind::Integer: return PrintForm(static_cast<int64_t>(NumberText(plain)));
    case FieldKind::Flag: return BoolText(plain == "1");
    default: return plain;
    }
}

// The text a problem says is used instead of a refused value.
std::string shownValue(const Settings& s, const FieldRef& f) {
    const std::string text = FieldText(s, f);
    if (f.field->kind == FieldKind::Flag) return BoolText(text == "1");
    if (f.field->kind == FieldKind::Index) {
        const int index = s.channels[static_cast<size_t>(f.ch)].ChInputSignal;
        if (index >= 0) return "\"" + std::string(kChannelTypes[static_cast<size_t>(index)]) + "\"";
    }
    return "\"" + text + "\"";
}

// Texts the start-up puts right by its own rules (Max Periods and Total
// Repeats clamped into their ranges, a smoothing below 1 made 1) are kept as
// they stand, as they always were.
bool repairedAtStart(const FieldRef& f, std::string_view text) {
    const std::string_view name = f.field->name;
    return name == "MaxCycles" || name == "TotalRepeats" || (name == "SmoothingNo" && !(Val(text) >= 1));
}

// The text member of a setting kept as it stands.
std::string& keptText(Settings& s, const FieldRef& f) {
    return s.analysis.*std::get<std::string AnalysisSettings::*>(f.field->member);
}

// A legacy value read back the way the runtime converted it. A value the
// control could not hold is refused with the reason; the field keeps the
// value it had.
Outcome setLegacy(Settings& s, const FieldRef& f, const std::string& text) {
    const auto refused = [&](const char* what) {
        return Outcome(ErrorCode::TypeMismatch, FieldName(f) + " cannot be \"" + text + "\": " + what);
    };
    double v = 0;
    const bool number = [&] {
        try {
            v = NumberText(text);
            return std::isfinite(v);
        } catch (const RuntimeError&) {
            return false;
        }
    }();
    switch (f.field->kind) {
    case FieldKind::Check: {
        if (!number || (RoundHalfEven(v) != 0 && RoundHalfEven(v) != 1)) return refused("it is 0 or 1.");
        return SetField(s, f, RoundHalfEven(v) != 0 ? "1" : "0");
    }
    case FieldKind::Index:
        if (!number || RoundHalfEven(v) < -1 || RoundHalfEven(v) >= ChannelTypeCount(f.ch))
            return refused("the list has no such entry.");
        s.channels[static_cast<size_t>(f.ch)].ChInputSignal = static_cast<int>(RoundHalfEven(v));
        return Outcome::Ok();
    case FieldKind::Integer:
        if (!number || RoundHalfEven(v) < f.field->min || RoundHalfEven(v) > f.field->max)
            return refused("it takes a whole number.");
        return SetField(s, f, std::to_string(static_cast<int64_t>(RoundHalfEven(v))));
    case FieldKind::Flag: {
        bool on = false;
        try {
            on = BoolFromText(text);
        } catch (const RuntimeError&) {
            return refused("it is True or False.");
        }
        return SetField(s, f, on ? "1" : "0");
    }
    default:
        if (repairedAtStart(f, text)) {
            keptText(s, f) = text;
            return Outcome::Ok();
        }
        return SetField(s, f, text);
    }
}

// The comment is written line by line; the reader gives each back behind a
// line feed.
void appendCommentLines(std::string& out, std::string_view comment) {
    size_t start = 0;
    while (true) {
        size_t end = comment.find_first_of("\r\n", start);
        out.append(comment.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        out.append("\r\n");
        if (end == std::string_view::npos) break;
        start = end + 1;
        if (comment[end] == '\r' && start < comment.size() && comment[start] == '\n') ++start;
    }
}

using NextLine = std::function<bool(std::string&)>;

// Reads the legacy lines in order, each at its place whatever the lines
// before it held: a value that cannot be taken is a problem of its own (the
// setting keeps its value), and the file ending early ends the reading.
// A line the reader cannot take at all (too long, too many fields) throws.
class LegacyReader {
public:
    LegacyReader(const NextLine& next, Settings& s, ResumeLoad& load) : next_(next), s_(s), load_(load) {}

    // True when every line was there.
    bool read() {
        const auto& layout = legacyLines();
        for (size_t i = 0; i < layout.size(); ++i) {
            const LegacyLine& l = layout[i];
            switch (l.kind) {
            case Line::Values:
                if (!values(l.label, l.fields, -1)) return false;
                break;
            case Line::ChannelBlock: {
                // The six channel lines come as one block per channel.
                size_t end = i;
                while (end < layout.size() && layout[end].kind == Line::ChannelBlock) ++end;
                for (int ch = 0; ch < kChannels; ++ch)
                    for (size_t j = i; j < end; ++j)
                        if (!values("Ch" + std::to_string(ch + 1) + " " + std::string(layout[j].label),
                                    layout[j].fields, ch))
                            return false;
                i = end - 1;
                break;
            }
            case Line::Comment:
                if (!nextLine(l.label)) return false;
                s_.analysis.Comment.clear();
                for (int n = 0; n < kMaxCommentLines; ++n) {
                    if (!nextLine("//")) return false;
                    if (line_ == "//") break;
                    s_.analysis.Comment += '\n';
                    s_.analysis.Comment += line_;
                }
                break;
            case Line::ComparatorPath:
                if (!nextLine("the comparator file")) return false;
                s_.ComparatorFile = line_;
                break;
            }
        }
        return true;
    }
    int linesRead() const { return lineNumber_; }

private:
    bool nextLine(std::string_view label) {
        if (next_(line_)) {
            ++lineNumber_;
            return true;
        }
        load_.problems.push_back("line " + std::to_string(lineNumber_ + 1) + ": the file ends before \"" +
                                 std::string(unlabelled(label)) + "\"; the settings from there on keep their values.");
        return false;
    }

    bool values(std::string_view label, const std::vector<std::string_view>& names, int ch) {
        if (!nextLine(label)) return false;
        const std::vector<std::string> fields = SplitFields(line_);
        for (size_t i = 0; i < names.size(); ++i) {
            const FieldRef f = legacyField(names[i], ch);
            const std::string before = shownValue(s_, f);
            Outcome set = i + 1 < fields.size()
                              ? setLegacy(s_, f, fields[i + 1])
                              : Outcome(ErrorCode::Subscript, FieldName(f) + " has no value on the line.");
            if (!set)
                load_.problems.push_back("line " + std::to_string(lineNumber_) + " (" + std::string(unlabelled(label)) +
                                         "): " + set.text() + " " + before + " is used instead.");
            if (f.field->name == "MaxCycles" && RoundHalfEven(Val(s_.analysis.MaxCycles)) >= kMaxCyclesCap)
                s_.analysis.MaxCycles = "500000";
        }
        return true;
    }

    // The label as people read it, without the comma that ends it.
    static std::string_view unlabelled(std::string_view label) {
        return !label.empty() && label.back() == ',' ? label.substr(0, label.size() - 1) : label;
    }

    const NextLine& next_;
    Settings& s_;
    ResumeLoad& load_;
    std::string line_;
    int lineNumber_ = 0;
};

// The optional lines: "Label,value", any order, unknown labels ignored.
void readOptional(const NextLine& next, Settings& s, ResumeLoad& load, int lineNumber) {
    std::string line;
    while (next(line)) {
        ++lineNumber;
        const size_t comma = line.find(',');
        if (comma == std::string::npos) continue;
        const std::string_view label = std::string_view(line).substr(0, comma);
        const std::string_view value = std::string_view(line).substr(comma + 1);
        FieldRef f = FindField(label);
        if (!f || !f.field->optionalLine) {
            f = {};
            for (const auto& field : SettingFields())
                if (field.optionalLine && !field.legacyLabel.empty() && field.legacyLabel == label) f = {&field, -1};
        }
        if (!f || !f.field->optionalLine) continue;
        Outcome set = SetField(s, f, value);
        if (!set) {
            (void)SetField(s, f, DefaultText(f));
            load.problems.push_back("line " + std::to_string(lineNumber) + " (" + std::string(label) +
                                    "): " + set.text() + " " + shownValue(s, f) + " is used instead.");
        }
    }
}

ResumeLoad load(TextLineReader& in, Settings& s) {
    const NextLine next = [&](std::string& line) { return in.next(line); };
    ResumeLoad result;
    result.found = true;
    for (const auto& field : SettingFields()) {
        if (!field.optionalLine) continue;
        for (int ch = field.perChannel ? 0 : -1; ch < (field.perChannel ? kChannels : 0); ++ch)
            (void)SetField(s, {&field, ch}, DefaultText({&field, ch}));
    }
    LegacyReader legacy(next, s, result);
    try {
        result.complete = legacy.read();
        if (result.complete) readOptional(next, s, result, legacy.linesRead());
    } catch (const RuntimeError& e) {
        // A line too long or of too many fields cannot be placed: the
        // reading ends there, and says so.
        result.complete = false;
        result.problems.push_back("line " + std::to_string(in.lineNumber()) + ": " + e.what());
    }
    return result;
}

}  // namespace

std::string ResumeText(const Settings& s) {
    std::string out;
    auto line = [&](std::string_view label, std::string_view value) {
        out.append(label);
        out.append(value);
        out.append("\r\n");
    };
    auto values = [&](std::string_view label, const std::vector<std::string_view>& names, int ch) {
        std::string v;
        for (size_t i = 0; i < names.size(); ++i) {
            if (i) v += ',';
            v += legacyText(s, legacyField(names[i], ch));
        }
        line(label, v);
    };
    const auto& layout = legacyLines();
    for (size_t i = 0; i < layout.size(); ++i) {
        const LegacyLine& l = layout[i];
        switch (l.kind) {
        case Line::Values: values(l.label, l.fields, -1); break;
        case Line::ChannelBlock: {
            size_t end = i;
            while (end < layout.size() && layout[end].kind == Line::ChannelBlock) ++end;
            for (int ch = 0; ch < kChannels; ++ch)
                for (size_t j = i; j < end; ++j)
                    values("Ch" + std::to_string(ch + 1) + " " + std::string(layout[j].label), layout[j].fields, ch);
            i = end - 1;
            break;
        }
        case Line::Comment:
            line(l.label, "");
            appendCommentLines(out, s.analysis.Comment);
            line("//", "");
            break;
        case Line::ComparatorPath: line(s.ComparatorFile, ""); break;
        }
    }
    for (const auto& field : SettingFields()) {
        if (!field.optionalLine) continue;
        for (int ch = field.perChannel ? 0 : -1; ch < (field.perChannel ? kChannels : 0); ++ch) {
            const FieldRef f{&field, ch};
            line(FieldName(f) + ",", FieldText(s, f));
        }
    }
    return ToNarrow(out);
}

Outcome SaveResumeParam(std::string_view fileName, const Settings& s) {
    Outcome written = WriteFileReplacing(fileName, ResumeText(s));
    if (written) return written;
    return {written.code(), "The settings could not be written to " + written.text()};
}

ResumeLoad LoadResumeParam(std::string_view fileName, Settings& s) {
    TextLineReader in;
    try {
        in.open(fileName);
    } catch (const RuntimeError&) {
        return {};
    }
    return load(in, s);
}

ResumeLoad LoadResumeText(std::string_view bytes, Settings& s) {
    TextLineReader in;
    in.openBytes(bytes);
    return load(in, s);
}

}  // namespace mervasto
