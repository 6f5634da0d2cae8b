#include <gtest/gtest.h>

#include "common/TextFile.h"
#include "support/FileBytes.h"
#include "support/TestFolder.h"

#include <filesystem>

#include "app/core/ResumeFile.h"
#include "app/core/SettingsTable.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

class ResumeFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = mervasto::test::FreshTestFolder("mervasto_resume_");
        file_ = (dir_ / "Resume340.txt").string();
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::vector<std::string> lines() const {
        auto ls = test::CrLfLines(test::ReadBytes(file_));
        for (auto& l : ls) l = FromNarrow(l);
        return ls;
    }
    void writeLines(const std::vector<std::string>& ls) const {
        std::string all;
        for (const auto& l : ls) all += ToNarrow(l) + "\r\n";
        test::WriteBytes(file_, all);
    }

    fs::path dir_;
    std::string file_;
};

// Every setting away from its default.
Settings changedSettings() {
    Settings s;
    // name=value pairs, each set by its name.
    const std::string pairs =
        "MaxCycles=2500;TotalRepeats=77;RepeatCheck=1;Histerisis=12.5;PLevel=40;SmoothingNo=5;"
        "LimitPoints=0.2;SampleNo=Board A;SampleIndex=9;IPAdressText=10.0.0.7;ZoomRate=20;DDSaveCheck=1;"
        "WDSaveCheck=1;DaqCheck=1;OmitRangeEffect=1;LevelMethod=Halves;TimeoutSeconds=2.5;SaveWavesCheck=1;"
        "Stacked=1;Comment=x;Encoder=1;EncoderA=3;EncoderB=4;EncoderZ=2;EncoderCountsPerRev=500;"
        "MinStateWidth=5e-05;EdgeTiming=Interpolated;ChInputSignal1=0;ChInputSignal2=Duty;ChInputSignal3=Max;"
        "ChInputSignal4=Gate;VRate2=10;SigName3=Clock;DispOffCheck2=1;DispOffCheck4=1;PPCheck2=1;"
        "DutyCheck3=true;";
    for (size_t at = 0, end; (end = pairs.find(';', at)) != std::string::npos; at = end + 1) {
        const std::string pair = pairs.substr(at, end - at);
        const size_t eq = pair.find('=');
        EXPECT_TRUE(SetSettingByName(s, pair.substr(0, eq), pair.substr(eq + 1)).ok()) << pair;
    }
    s.analysis.Comment = "\nfirst\nsecond";
    for (int i = 0; i < 4; ++i) {
        s.channels[i].BackColor = 0x102030 + i;
        s.channels[i].ForeColor = 0xFFFFFF - i;
    }
    s.windows = {10, -20, 300, 400, 5000, 6000};
    s.RejectStart = 1234;
    s.RejectEnd = -5;
    s.RejectRangeSet = true;
    s.ComparatorFile = "C:\\limits, v2.txt";
    s.OutputFolder = "/data/out";
    s.DetailFileName = "d.csv";
    s.DetailBaseName = "d";
    s.WaveBaseName = "w";
    return s;
}

TEST_F(ResumeFileTest, RoundTripRestoresEverySetting) {
    const Settings saved = changedSettings();
    ASSERT_TRUE(SaveResumeParam(file_, saved).ok());
    Settings loaded;
    EXPECT_TRUE(LoadResumeParam(file_, loaded).complete);
    // Every load puts a line feed before each comment line, the first included.
    EXPECT_EQ(loaded.analysis.Comment, "\n" + saved.analysis.Comment);
    loaded.analysis.Comment = saved.analysis.Comment;
    EXPECT_EQ(ResumeText(loaded), ResumeText(saved));
    EXPECT_EQ(loaded.windows.WaveFormAllTop, 6000);
    EXPECT_EQ(loaded.channels[3].ChInputSignal, 9);
}

TEST_F(ResumeFileTest, WritesTheLabelsAndPrintForms) {
    Settings s;
    s.analysis.Comment = "a\r\nb";
    s.analysis.SaveWavesCheck = true;
    ASSERT_TRUE(SaveResumeParam(file_, s).ok());
    // The defaults' whole file: the legacy lines at their places, the
    // comment's lines between its label and "//", then the lines by label.
    EXPECT_EQ(
        test::ReadBytes(file_),
        ToNarrow("Max周期数,1000\r\nヒステリシス,10\r\nサンプル名称,Sample\r\n追番,1\r\n"
                 "IPアドレス,192.168.1.101\r\n拡大倍率,1\r\n格納選択, 1 , 0 \r\n移動平均回数,1\r\n"
                 "繰返し, 0 ,1000\r\nCh1 信号タイプ, 1 \r\nCh1 のバック色, 65535 \r\n"
                 "Ch1 の文字色, 0 \r\nCh1 V倍率,1.0\r\nCh1 信号名称,Ch1\r\nCh1 表示off, 0 \r\n"
                 "Ch2 信号タイプ, 1 \r\nCh2 のバック色, 16711935 \r\nCh2 の文字色, 0 \r\n"
                 "Ch2 V倍率,1.0\r\nCh2 信号名称,Ch2\r\nCh2 表示off, 0 \r\nCh3 信号タイプ, 1 \r\n"
                 "Ch3 のバック色, 16776960 \r\nCh3 の文字色, 0 \r\nCh3 V倍率,1.0\r\n"
                 "Ch3 信号名称,Ch3\r\nCh3 表示off, 0 \r\nCh4 信号タイプ, 1 \r\n"
                 "Ch4 のバック色, 65280 \r\nCh4 の文字色, 0 \r\nCh4 V倍率,1.0\r\nCh4 信号名称,Ch4\r\n"
                 "Ch4 表示off, 0 \r\nコメント\r\na\r\nb\r\n//\r\n範囲マージン(div),0\r\n"
                 "除外チェック/範囲, 0 , 0 , 0 ,False\r\nScreen Layout, 0 , 0 , 0 , 0 , 0 , 0 \r\n\r\n"
                 "詳細データ格納する/しない, 0 \r\n詳細データ格納パス,,,\r\n"
                 "波形データ格納ファイルヘッダ/チェック,, 0 \r\nトリガチェック, 0 \r\n"
                 "センタレベル,50\r\nLevelMethod,Auto\r\nPPCheck1,0\r\nPPCheck2,0\r\nPPCheck3,0\r\n"
                 "PPCheck4,0\r\nDutyCheck1,0\r\nDutyCheck2,0\r\nDutyCheck3,0\r\nDutyCheck4,0\r\nTimeoutSeconds,10\r\n"
                 "Stacked,0\r\nEncoder,0\r\nEncoderA,1\r\nEncoderB,2\r\nEncoderZ,0\r\nEncoderCountsPerRev,0\r\n"
                 "MinStateWidth,0\r\nEdgeTiming,Samples\r\nEdgeRule,Auto\r\nInstrument,Auto\r\nResultsDb,\r\n"
                 "StationName,\r\n"));

    Settings loaded;
    (void)LoadResumeParam(file_, loaded);
    EXPECT_EQ(loaded.analysis.Comment, "\na\nb");
}

TEST_F(ResumeFileTest, LongCommentShiftsLaterLines) {
    Settings s;
    std::string comment;
    for (int i = 1; i <= 300; ++i) comment += (i > 1 ? "\n" : "") + std::to_string(i);
    s.analysis.Comment = comment;
    s.analysis.EdgeRule = "Schmitt";
    ASSERT_TRUE(SaveResumeParam(file_, s).ok());
    Settings loaded;
    const ResumeLoad load = LoadResumeParam(file_, loaded);
    std::string expected;
    for (int i = 1; i <= 257; ++i) expected += "\n" + std::to_string(i);
    EXPECT_EQ(loaded.analysis.Comment, expected);
    // Comment line 258 (file line 292) lands in LimitPoints's place and has
    // no value: said, and the lines after it are still read at their places.
    EXPECT_EQ(loaded.analysis.LimitPoints, "0");
    ASSERT_FALSE(load.problems.empty());
    EXPECT_EQ(load.problems[0].rfind("line 292 (範囲マージン(div)): LimitPoints has no value", 0), 0u)
        << load.problems[0];
    EXPECT_EQ(loaded.ComparatorFile, "261");
    EXPECT_EQ(loaded.analysis.EdgeRule, "Schmitt");
}

TEST_F(ResumeFileTest, MaxCyclesIsCappedOnLoad) {
    const std::pair<std::string, std::string> cases[] = {
        {" 600000", "500000"}, {"500000", "500000"}, {"499999.4", "499999.4"}, {"abc", "abc"}};
    for (const auto& [stored, expected] : cases) {
        Settings s;
        (void)SaveResumeParam(file_, s);
        auto ls = lines();
        ls[0] = "Max周期数," + stored;
        writeLines(ls);
        Settings loaded;
        EXPECT_TRUE(LoadResumeParam(file_, loaded).complete);
        EXPECT_EQ(loaded.analysis.MaxCycles, expected);
    }
}

// A bad value is said with its line, label and the value kept instead, and
// the lines after it are still read; a line too long or of too many fields
// ends the load and is named; a file that ends early keeps the rest.
TEST_F(ResumeFileTest, LoadReportsBadOrMissingLinesAndReadsOn) {
    const Settings saved = changedSettings();
    (void)SaveResumeParam(file_, saved);
    const auto full = lines();

    // Truncated after the Ch1 block: Ch1 kept, Ch2 onwards defaults.
    writeLines({full.begin(), full.begin() + 15});
    Settings loaded;
    ResumeLoad load = LoadResumeParam(file_, loaded);
    EXPECT_FALSE(load.complete);
    EXPECT_EQ(loaded.analysis.TotalRepeats, "77");
    EXPECT_EQ(loaded.channels[0].ChInputSignal, 0);
    EXPECT_EQ(loaded.channels[1].ChInputSignal, 1);
    EXPECT_EQ(loaded.analysis.PLevel, "50");
    ASSERT_EQ(load.problems.size(), 1u);
    EXPECT_EQ(load.problems[0].rfind("line 16: the file ends before \"Ch2 信号タイプ\"", 0), 0u) << load.problems[0];

    // One line replaced. A comment line of 1 MiB is a setting like any
    // other; a longer line, or a line of more than 1,000 fields, ends the load.
    const size_t comment = 34;  // the first comment line, after "コメント"
    struct Case {
        size_t line;  // 0-based
        std::string text;
        bool complete;
        std::string problem;  // how it starts; "" for none
    };
    const Case cases[] = {
        {16, "Ch2 のバック色,red", true,
         "line 17 (Ch2 のバック色): BackColor2 cannot be \"red\": it takes a whole number. \"16711935\" is used "
         "instead."},
        {9, "Ch1 信号タイプ, 9 ", true,
         "line 10 (Ch1 信号タイプ): ChInputSignal1 cannot be \" 9 \": the list has no such entry. "
         "\"Period\" is used instead."},
        {1, "ヒステリシス,abc", true,
         "line 2 (ヒステリシス): Histerisis cannot be \"abc\": it takes a number from 0 to 50. \"10\" is used "
         "instead."},
        {6, "格納選択, 1 ", true,
         "line 7 (格納選択): SaveScreenCheck has no value on the line. \"0\" is used instead."},
        {24, "Ch3 V倍率,-1e39", true,
         "line 25 (Ch3 V倍率): VRate3 cannot be \"-1e39\": it takes a number from 1e-06 to 1000000."},
        {comment, std::string(size_t{1} << 20, 'c'), true, ""},
        {comment, std::string(5000, ','), true, ""},
        {comment, std::string((size_t{1} << 20) + 1, 'c'), false, "line 35: The line is longer than 1 MiB"},
        {1, "ヒステリシス," + std::string(1000, ','), false, "line 2: The line has more than 1000 fields"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        auto bad = full;
        bad[c.line] = c.text;
        writeLines(bad);
        Settings partial;
        load = LoadResumeParam(file_, partial);
        EXPECT_EQ(load.complete, c.complete);
        ASSERT_EQ(load.problems.size(), c.problem.empty() ? 0u : 1u);
        EXPECT_TRUE(c.problem.empty() || load.problems[0].rfind(c.problem, 0) == 0) << load.problems[0];
        if (!c.complete) continue;
        // The settings after the line are read as saved.
        EXPECT_EQ(partial.channels[1].VRate, "10");
        EXPECT_EQ(partial.analysis.PLevel, "40");
        EXPECT_EQ(partial.analysis.EdgeTiming, "Interpolated");
    }

    // A file from before the optional lines loads whole with their defaults.
    writeLines({full.begin(), full.end() - 22});
    Settings old;
    old.analysis.LevelMethod = "Halves";
    (void)LoadResumeParam(file_, old);
    EXPECT_EQ(old.analysis.PLevel, "40");
    EXPECT_EQ(old.analysis.LevelMethod, "Auto");
}

// The lines after the legacy ones are matched by label: any order, unknown
// labels ignored, a bad value reported and replaced by the default without
// touching the others, an absent one back at its default.
TEST_F(ResumeFileTest, OptionalLinesByLabel) {
    Settings base;
    ASSERT_TRUE(SaveResumeParam(file_, base).ok());
    const auto full = lines();
    const std::vector<std::string> legacy(full.begin(), full.begin() + 46);
    struct Case {
        std::vector<std::string> tail;
        const char* level;
        const char* timeout;
        bool pp3;
        size_t problems;
    };
    const Case cases[] = {
        {{"TimeoutSeconds,4", "PPCheck3,1", "LevelMethod,Halves"}, "Halves", "4", true, 0},
        {{"NewerThanThisProgram,7", "LevelMethod,Halves"}, "Halves", "10", false, 0},
        {{"レベル検出方式,Halves"}, "Halves", "10", false, 0},  // the label of earlier builds
        {{"LevelMethod,Valleys", "TimeoutSeconds,3", "PPCheck3,2"}, "Auto", "3", false, 2},
        {{"TimeoutSeconds,-1", "LevelMethod,Halves", "no comma here", ""}, "Halves", "10", false, 1},
        {{}, "Auto", "10", false, 0},
    };
    for (const auto& c : cases) {
        std::vector<std::string> file = legacy;
        file.insert(file.end(), c.tail.begin(), c.tail.end());
        writeLines(file);
        Settings loaded;
        loaded.analysis.TimeoutSeconds = "99";  // absent means default, not "as before"
        loaded.channels[2].PPCheck = true;
        const ResumeLoad load = LoadResumeParam(file_, loaded);
        const std::string what = c.tail.empty() ? "(none)" : c.tail.front();
        EXPECT_TRUE(load.complete) << what;
        EXPECT_EQ(loaded.analysis.LevelMethod, c.level) << what;
        EXPECT_EQ(loaded.analysis.TimeoutSeconds, c.timeout) << what;
        EXPECT_EQ(loaded.channels[2].PPCheck, c.pp3) << what;
        ASSERT_EQ(load.problems.size(), c.problems) << what;
        if (c.problems) {
            EXPECT_NE(load.problems[0].find("line 47"), std::string::npos) << load.problems[0];
        }
    }
    // Text and file load the same way.
    Settings fromText;
    EXPECT_TRUE(LoadResumeText(ResumeText(changedSettings()), fromText).complete);
    Settings fromFile;
    ASSERT_TRUE(SaveResumeParam(file_, changedSettings()).ok());
    EXPECT_TRUE(LoadResumeParam(file_, fromFile).complete);
    EXPECT_EQ(ResumeText(fromText), ResumeText(fromFile));
}

TEST_F(ResumeFileTest, MissingFileLeavesDefaults) {
    Settings loaded;
    EXPECT_FALSE(LoadResumeParam((dir_ / "none.txt").string(), loaded).complete);
    EXPECT_EQ(ResumeText(loaded), ResumeText(Settings{}));
}

}  // namespace
}  // namespace mervasto
