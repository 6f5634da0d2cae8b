#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include "app/core/DataFolders.h"
#include "app/core/Settings.h"
#include "app/core/SettingsTable.h"
#include "app/core/Startup.h"
#include "app/core/Version.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

TEST(SettingsTest, SetSettingByName) {
    EXPECT_EQ(CaptionSuffix(), "(Ver3.40)");
    // Every number box takes what its range says, nothing else.
    struct Case {
        const char* name;
        std::vector<const char*> takes, refuses;
    };
    const Case cases[] = {
        {"MaxCycles", {"2000", " 500000 "}, {"abc", "1e12", "0"}},
        {"Histerisis", {"50"}, {"abc", "200"}},
        {"PLevel", {"100"}, {"200", "abc", ""}},
        {"TotalRepeats", {"0"}, {"-5", "2.5"}},
        {"SmoothingNo", {"4"}, {"-3"}},
        {"SampleIndex", {"32766"}, {"32767", "3e9"}},
        {"LimitPoints", {"0.5"}, {"abc"}},
        {"ZoomRate", {}, {"2000"}},
        {"VRate1", {"1e-3"}, {"-1e39"}},
        {"ChInputSignal1", {"Duty"}, {"Pulse"}},
        {"ChInputSignal2", {"5"}, {}},
        {"ChInputSignal4", {"Gate"}, {}},
        {"ChInputSignal3", {}, {"Gate", "9"}},
        {"DispOffCheck2", {"true"}, {"2"}},
        {"RepeatCheck", {"1"}, {}},
        {"DaqCheck", {}, {"yes"}},
        {"LevelMethod", {"Halves", "Auto"}, {"Valleys"}},
        {"VRate3", {"10"}, {}},
        {"SigName5", {}, {"x"}},
        {"NoSuchSetting", {}, {"1"}},
        {"PPCheck4", {"FALSE"}, {}},
        {"SaveWavesCheck", {"1"}, {}},
        {"Comment", {"a, b"}, {}},
        {"TimeoutSeconds", {"0.5"}, {"0", "ten"}},
        {"RejectStart", {"12"}, {"1.5"}},
        {"BackColor1", {"65280"}, {}},
        {"VRate0", {}, {"1"}},
        {"Encoder", {"1"}, {}},
        {"EncoderA", {"3"}, {"0"}},
        {"EncoderB", {}, {"5"}},
        {"EncoderZ", {"0"}, {"Ch3"}},
        {"EncoderCountsPerRev", {"1024"}, {"-1"}},
        {"MinStateWidth", {"50e-6"}, {"-1e-6", "x"}},
        {"EdgeTiming", {"Interpolated"}, {"Linear"}},
        {"EdgeRule", {"Schmitt", "Legacy"}, {"legacy"}},
    };
    for (const auto& c : cases)
        for (const auto* values : {&c.takes, &c.refuses})
            for (const char* value : *values) {
                Settings s;
                Outcome set = SetSettingByName(s, c.name, value);
                EXPECT_EQ(set.ok(), values == &c.takes) << c.name << "=" << value << ": " << set.text();
            }
    Settings s;
    EXPECT_EQ(SetSettingByName(s, "SampleIndex", "32767").text(),
              "SampleIndex cannot be \"32767\": it takes a whole number from 0 to 32766.");
    (void)SetSettingByName(s, "ChInputSignal4", "Gate");
    (void)SetSettingByName(s, "ChInputSignal2", "5");
    (void)SetSettingByName(s, "DispOffCheck2", "true");
    (void)SetSettingByName(s, "SigName3", "Clock");
    EXPECT_EQ(s.channels[3].ChInputSignal, 9);
    EXPECT_EQ(s.channels[1].signalText(), "Freq.");
    EXPECT_TRUE(s.channels[1].DispOffCheck);
    EXPECT_EQ(s.channels[2].SigName, "Clock");
}

// Every field is found again by its command-line and control names, and
// takes its own default text back.
TEST(SettingsTest, TableNamesAndDefaults) {
    std::set<std::string> names, controls;
    for (const auto& field : SettingFields()) {
        for (int ch = field.perChannel ? 0 : -1; ch < (field.perChannel ? kChannels : 0); ++ch) {
            const FieldRef f{&field, ch};
            EXPECT_TRUE(names.insert(FieldName(f)).second) << FieldName(f);
            EXPECT_EQ(FindField(FieldName(f)), f) << FieldName(f);
            if (field.hasControl) {
                EXPECT_TRUE(controls.insert(ControlName(f)).second) << ControlName(f);
                EXPECT_EQ(FindControlField(ControlName(f)), f) << ControlName(f);
            }
            Settings s;
            EXPECT_TRUE(SetField(s, f, DefaultText(f)).ok()) << FieldName(f);
        }
    }
    EXPECT_EQ(FieldName(FindControlField("VRate1")), "VRate2");
}

TEST(StartupTest, ClampsAndRepairs) {
    struct Case {
        const char* repeats;
        const char* cycles;
        const char* smoothing;
        const char* repeatsAfter;
        const char* cyclesAfter;
        const char* smoothingAfter;
    };
    const Case cases[] = {
        {"0", "600000", "0", "1", "500000", "1"},
        {"20000", "abc", "-3", "16000", "1", "1"},
        {"abc", "1000", "7", "1", "1000", "7"},
        {"12.5", "0.4", "0.9", "12", "1", "1"},
    };
    for (const auto& c : cases) {
        Settings s;
        s.analysis.TotalRepeats = c.repeats;
        s.analysis.MaxCycles = c.cycles;
        s.analysis.SmoothingNo = c.smoothing;
        s.channels[2].ChInputSignal = -1;
        ApplyStartupSettings(s, "/d");
        EXPECT_EQ(s.analysis.TotalRepeats, c.repeatsAfter) << c.repeats;
        EXPECT_EQ(s.analysis.MaxCycles, c.cyclesAfter) << c.cycles;
        EXPECT_EQ(s.analysis.SmoothingNo, c.smoothingAfter) << c.smoothing;
        EXPECT_EQ(s.channels[2].ChInputSignal, 1);
    }
}

TEST(StartupTest, FirstStartBuildsOutputNames) {
    Settings s;
    EXPECT_EQ(ApplyStartupSettings(s, "/data"), 1);
    EXPECT_EQ(s.analysis.TotalRepeats, "1000");
    EXPECT_EQ(s.analysis.MaxCycles, "1000");
    EXPECT_EQ(s.OutputFolder, JoinPath("/data", "Outputdata"));
    EXPECT_EQ(s.DetailBaseName, "Sample1_Detail");
    EXPECT_EQ(s.WaveBaseName, "Sample1_Wave");
    EXPECT_EQ(s.DetailFileName, "Sample1_Detail.csv");

    // A stored output folder keeps the stored names.
    Settings kept;
    kept.OutputFolder = "/elsewhere";
    kept.DetailBaseName = "x";
    ApplyStartupSettings(kept, "/data");
    EXPECT_EQ(kept.OutputFolder, "/elsewhere");
    EXPECT_EQ(kept.DetailBaseName, "x");
    EXPECT_EQ(kept.WaveBaseName, "");
}

TEST(DataFoldersTest, CreatesTheTreeAndOneOutputFolder) {
    const fs::path root = fs::temp_directory_path() / "mervasto_datafolder_test";
    fs::remove_all(root);
    const std::string folder = PrepareDataFolder((root / "Mervasto").string());
    EXPECT_EQ(folder, (root / "Mervasto").string());
    for (const char* sub : {"OutputData", "Parameter", "Debug"})
        EXPECT_TRUE(fs::is_directory(root / "Mervasto" / sub)) << sub;
    EXPECT_TRUE(fs::is_directory(root / "Mervasto" / "Outputdata"));
    std::ofstream(root / "Mervasto" / "Outputdata" / "r.csv") << "x";
    EXPECT_TRUE(fs::exists(root / "Mervasto" / "OutputData" / "r.csv"));
    // A second start finds everything in place.
    EXPECT_EQ(PrepareDataFolder((root / "Mervasto").string()), folder);
    EXPECT_EQ(ResumeFileName(folder), JoinPath(JoinPath(folder, "Parameter"), "Resume340.txt"));
    fs::remove_all(root);

    EXPECT_EQ(JoinPath("a", "b"), std::string("a") + kPathSeparator + "b");
    EXPECT_EQ(JoinPath(std::string("a") + kPathSeparator, "b"), std::string("a") + kPathSeparator + "b");
    EXPECT_NE(DefaultDataFolder().find("Mervasto"), std::string::npos);
#ifdef _WIN32
    // Where the settings of earlier installations already are.
    EXPECT_EQ(ResumeFileName(DefaultDataFolder()), "C:\\ProgramData\\Mervasto\\Parameter\\Resume340.txt");
#endif
}

}  // namespace
}  // namespace mervasto
