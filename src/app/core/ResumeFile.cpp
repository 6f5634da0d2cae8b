#include "app/core/ResumeFile.h"

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
constexpr const char* kInputPastEnd = "Input past end of file.";
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

void invalidValue() { throw RuntimeError(ErrorCode::TypeMismatch, "Invalid property value."); }

// A legacy value read back the way the runtime converted it; a value the
// control could not hold ends the load.
void setLegacy(Settings& s, const FieldRef& f, const std::string& text) {
    switch (f.field->kind) {
    case FieldKind::Check: {
        const int32_t v = ToInt32(NumberText(text));
        if (v != 0 && v != 1) invalidValue();
        (void)SetField(s, f, v ? "1" : "0");
        return;
    }
    case FieldKind::Index: {
        const int32_t v = ToInt32(NumberText(text));
        if (v < -1 || v >= ChannelTypeCount(f.ch)) invalidValue();
        s.channels[static_cast<size_t>(f.ch)].ChInputSignal = v;
        return;
    }
    case FieldKind::Integer:
        if (!SetField(s, f, std::to_string(ToInt32(NumberText(text))))) invalidValue();
        return;
    case FieldKind::Flag: (void)SetField(s, f, BoolFromText(text) ? "1" : "0"); return;
    default:
        if (!SetField(s, f, text)) invalidValue();
        return;
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

// Reads the legacy lines in order; throws at the first line that is missing
// or holds a value that cannot be converted.
void readLegacy(const NextLine& next, Settings& s) {
    std::string line;
    auto nextLine = [&]() -> std::string& {
        if (!next(line)) throw RuntimeError(ErrorCode::FileIo, kInputPastEnd);
        return line;
    };
    auto values = [&](const std::vector<std::string_view>& names, int ch) {
        const std::vector<std::string> fields = SplitFields(nextLine());
        for (size_t i = 0; i < names.size(); ++i) {
            if (i + 1 >= fields.size()) throw RuntimeError(ErrorCode::Subscript, "Subscript out of range.");
            const FieldRef f = legacyField(names[i], ch);
            setLegacy(s, f, fields[i + 1]);
            if (f.field->name == "MaxCycles" && RoundHalfEven(Val(s.analysis.MaxCycles)) >= kMaxCyclesCap)
                s.analysis.MaxCycles = "500000";
        }
    };
    const auto& layout = legacyLines();
    for (size_t i = 0; i < layout.size(); ++i) {
        const LegacyLine& l = layout[i];
        switch (l.kind) {
        case Line::Values: values(l.fields, -1); break;
        case Line::ChannelBlock: {
            // The six channel lines come as one block per channel.
            size_t end = i;
            while (end < layout.size() && layout[end].kind == Line::ChannelBlock) ++end;
            for (int ch = 0; ch < kSettingChannels; ++ch)
                for (size_t j = i; j < end; ++j) values(layout[j].fields, ch);
            i = end - 1;
            break;
        }
        case Line::Comment:
            nextLine();  // the label
            s.analysis.Comment.clear();
            for (int n = 0; n < kMaxCommentLines; ++n) {
                if (nextLine() == "//") break;
                s.analysis.Comment += '\n';
                s.analysis.Comment += line;
            }
            break;
        case Line::ComparatorPath: s.ComparatorFile = nextLine(); break;
        }
    }
}

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
            load.problems.push_back("line " + std::to_string(lineNumber) + ": " + set.text() + " The default " +
                                    DefaultText(f) + " is used.");
        }
    }
}

ResumeLoad load(TextLineReader& in, Settings& s) {
    const NextLine next = [&](std::string& line) { return in.next(line); };
    ResumeLoad result;
    result.found = true;
    for (const auto& field : SettingFields()) {
        if (!field.optionalLine) continue;
        for (int ch = field.perChannel ? 0 : -1; ch < (field.perChannel ? kSettingChannels : 0); ++ch)
            (void)SetField(s, {&field, ch}, DefaultText({&field, ch}));
    }
    int linesRead = 0;
    const NextLine counted = [&](std::string& line) {
        if (!next(line)) return false;
        ++linesRead;
        return true;
    };
    try {
        readLegacy(counted, s);
        result.complete = true;
        readOptional(counted, s, result, linesRead);
    } catch (const RuntimeError& e) {
        // A legacy file ends where it cannot be read on; what was read stays.
        // A line too long or of too many fields is said, not passed over.
        if (e.code() == ErrorCode::FileIo && std::string_view(e.what()) != kInputPastEnd)
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
            for (int ch = 0; ch < kSettingChannels; ++ch)
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
        for (int ch = field.perChannel ? 0 : -1; ch < (field.perChannel ? kSettingChannels : 0); ++ch) {
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
