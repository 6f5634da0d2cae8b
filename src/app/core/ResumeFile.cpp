#include "app/core/ResumeFile.h"

#include <vector>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

constexpr int kMaxCommentLines = 257;
constexpr double kMaxCyclesCap = 500000;

std::string num(int64_t v) { return PrintForm(v); }
std::string num(bool v) { return PrintForm(int64_t{v ? 1 : 0}); }

void invalidValue() { throw RuntimeError(ErrorCode::TypeMismatch, "Invalid property value."); }

class ResumeReader {
public:
    explicit ResumeReader(std::string_view fileName) { in_.open(fileName); }

    std::string line() {
        std::string s;
        if (!in_.next(s)) throw RuntimeError(ErrorCode::FileIo, "Input past end of file.");
        return s;
    }
    // Splits the next line; field 0 is the label.
    const std::vector<std::string>& fields() {
        fields_ = SplitFields(line());
        return fields_;
    }
    const std::string& text(size_t i) const {
        if (i >= fields_.size()) throw RuntimeError(ErrorCode::Subscript, "Subscript out of range.");
        return fields_[i];
    }
    int32_t number(size_t i) const { return ToInt32(NumberText(text(i))); }
    bool check(size_t i) const {
        int32_t v = number(i);
        if (v != 0 && v != 1) invalidValue();
        return v == 1;
    }

private:
    TextLineReader in_;
    std::vector<std::string> fields_;
};

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

}  // namespace

int SaveResumeParam(std::string_view fileName, const Settings& s) {
    const AnalysisSettings& a = s.analysis;
    std::string out;
    auto line = [&](std::string_view label, std::string_view value) {
        out.append(label);
        out.append(value);
        out.append("\r\n");
    };
    line("Max周期数,", a.MaxCycles);
    line("ヒステリシス,", a.Histerisis);
    line("サンプル名称,", a.SampleNo);
    line("追番,", a.SampleIndex);
    line("IPアドレス,", a.IPAdressText);
    line("拡大倍率,", a.ZoomRate);
    line("格納選択,", num(a.SaveWavesCheck) + "," + num(a.SaveScreenCheck));
    line("移動平均回数,", a.SmoothingNo);
    line("繰返し,", num(a.RepeatCheck) + "," + a.TotalRepeats);
    for (size_t i = 0; i < s.channels.size(); ++i) {
        const ChannelSettings& c = s.channels[i];
        const std::string ch = "Ch" + std::to_string(i + 1);
        line(ch + " 信号タイプ,", num(int64_t{c.ChInputSignal}));
        line(ch + " のバック色,", num(int64_t{c.BackColor}));
        line(ch + " の文字色,", num(int64_t{c.ForeColor}));
        line(ch + " V倍率,", c.VRate);
        line(ch + " 信号名称,", c.SigName);
        line(ch + " 表示off,", num(c.DispOffCheck));
    }
    line("コメント", "");
    appendCommentLines(out, a.Comment);
    line("//", "");
    line("範囲マージン(div),", a.LimitPoints);
    line("除外チェック/範囲,", num(a.OmitRangeEffect) + "," + num(int64_t{s.RejectStart}) + "," +
                                   num(int64_t{s.RejectEnd}) + "," + BoolText(s.RejectRangeSet));
    const WindowPositions& w = s.windows;
    line("Screen Layout,", num(int64_t{w.MainLeft}) + "," + num(int64_t{w.MainTop}) + "," +
                               num(int64_t{w.WaveFormLeft}) + "," + num(int64_t{w.WaveFormTop}) + "," +
                               num(int64_t{w.WaveFormAllLeft}) + "," + num(int64_t{w.WaveFormAllTop}));
    line(s.ComparatorFile, "");
    line("詳細データ格納する/しない,", num(a.DDSaveCheck));
    line("詳細データ格納パス,", s.OutputFolder + "," + s.DetailFileName + "," + s.DetailBaseName);
    line("波形データ格納ファイルヘッダ/チェック,", s.WaveBaseName + "," + num(a.WDSaveCheck));
    line("トリガチェック,", num(a.DaqCheck));
    line("センタレベル,", a.PLevel);
    line("レベル検出方式,", a.LevelMethod);
    return WriteFileReplacing(fileName, ToNarrow(out)) ? 0 : -1;
}

int LoadResumeParam(std::string_view fileName, Settings& s) {
    AnalysisSettings& a = s.analysis;
    try {
        ResumeReader r(fileName);
        r.fields();
        a.MaxCycles = r.text(1);
        if (RoundHalfEven(Val(a.MaxCycles)) >= kMaxCyclesCap) a.MaxCycles = "500000";
        r.fields();
        a.Histerisis = r.text(1);
        r.fields();
        a.SampleNo = r.text(1);
        r.fields();
        a.SampleIndex = r.text(1);
        r.fields();
        a.IPAdressText = r.text(1);
        r.fields();
        a.ZoomRate = r.text(1);
        r.fields();
        a.SaveWavesCheck = r.check(1);
        a.SaveScreenCheck = r.check(2);
        r.fields();
        a.SmoothingNo = r.text(1);
        r.fields();
        a.RepeatCheck = r.check(1);
        a.TotalRepeats = r.text(2);
        for (size_t i = 0; i < s.channels.size(); ++i) {
            ChannelSettings& c = s.channels[i];
            r.fields();
            int32_t index = r.number(1);
            if (index < -1 || index >= ChannelTypeCount(static_cast<int>(i))) invalidValue();
            c.ChInputSignal = index;
            r.fields();
            c.BackColor = r.number(1);
            r.fields();
            c.ForeColor = r.number(1);
            r.fields();
            c.VRate = r.text(1);
            r.fields();
            c.SigName = r.text(1);
            r.fields();
            c.DispOffCheck = r.check(1);
        }
        r.line();  // the comment's label
        a.Comment.clear();
        for (int i = 0; i < kMaxCommentLines; ++i) {
            std::string l = r.line();
            if (l == "//") break;
            a.Comment += '\n';
            a.Comment += l;
        }
        r.fields();
        a.LimitPoints = r.text(1);
        r.fields();
        a.OmitRangeEffect = r.check(1);
        s.RejectStart = r.number(2);
        s.RejectEnd = r.number(3);
        s.RejectRangeSet = BoolFromText(r.text(4));
        r.fields();
        WindowPositions& w = s.windows;
        w.MainLeft = r.number(1);
        w.MainTop = r.number(2);
        w.WaveFormLeft = r.number(3);
        w.WaveFormTop = r.number(4);
        w.WaveFormAllLeft = r.number(5);
        w.WaveFormAllTop = r.number(6);
        s.ComparatorFile = r.line();
        r.fields();
        a.DDSaveCheck = r.check(1);
        r.fields();
        s.OutputFolder = r.text(1);
        s.DetailFileName = r.text(2);
        s.DetailBaseName = r.text(3);
        r.fields();
        s.WaveBaseName = r.text(1);
        a.WDSaveCheck = r.check(2);
        r.fields();
        a.DaqCheck = r.check(1);
        r.fields();
        a.PLevel = r.text(1);
        // Files of earlier builds end here.
        a.LevelMethod = std::string(kLevelPeaks);
        r.fields();
        const std::string& method = r.text(1);
        if (method != kLevelPeaks && method != kLevelHalves) invalidValue();
        a.LevelMethod = method;
    } catch (const RuntimeError&) {
        return -1;
    }
    return 0;
}

}  // namespace mervasto
