#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

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
    struct Case {
        const char* name;
        const char* value;
        bool ok;
    };
    const Case cases[] = {
        {"MaxCycles", "2000", true},
        {"Histerisis", "abc", false},
        // Every number box takes what its range says, nothing else.
        {"Histerisis", "50", true},
        {"Histerisis", "200", false},
        {"PLevel", "100", true},
        {"PLevel", "200", false},
        {"PLevel", "abc", false},
        {"PLevel", "", false},
        {"MaxCycles", "abc", false},
        {"MaxCycles", "1e12", false},
        {"MaxCycles", "0", false},
        {"MaxCycles", " 500000 ", true},
        {"TotalRepeats", "0", true},
        {"TotalRepeats", "-5", false},
        {"TotalRepeats", "2.5", false},
        {"SmoothingNo", "4", true},
        {"SmoothingNo", "-3", false},
        {"SampleIndex", "32766", true},
        {"SampleIndex", "32767", false},
        {"SampleIndex", "3e9", false},
        {"LimitPoints", "0.5", true},
        {"LimitPoints", "abc", false},
        {"ZoomRate", "2000", false},
        {"VRate1", "-1e39", false},
        {"VRate1", "1e-3", true},
        {"ChInputSignal1", "Duty", true},
        {"ChInputSignal2", "5", true},
        {"ChInputSignal4", "Gate", true},
        {"ChInputSignal3", "Gate", false},
        {"ChInputSignal3", "9", false},
        {"ChInputSignal1", "Pulse", false},
        {"DispOffCheck2", "true", true},
        {"DispOffCheck2", "2", false},
        {"RepeatCheck", "1", true},
        {"DaqCheck", "yes", false},
        {"LevelMethod", "Halves", true},
        {"LevelMethod", "Valleys", false},
        {"VRate3", "10", true},
        {"SigName5", "x", false},
        {"NoSuchSetting", "1", false},
        {"PPCheck4", "FALSE", true},
        {"SaveWavesCheck", "1", true},
        {"Comment", "a, b", true},
        {"TimeoutSeconds", "0.5", true},
        {"TimeoutSeconds", "0", false},
        {"TimeoutSeconds", "ten", false},
        {"RejectStart", "12", true},
        {"RejectStart", "1.5", false},
        {"BackColor1", "65280", true},
        {"VRate0", "1", false},
        {"Encoder", "1", true},
        {"EncoderA", "3", true},
        {"EncoderA", "0", false},
        {"EncoderB", "5", false},
        {"EncoderZ", "0", true},
        {"EncoderZ", "Ch3", false},
        {"EncoderCountsPerRev", "1024", true},
        {"EncoderCountsPerRev", "-1", false},
        {"MinStateWidth", "50e-6", true},
        {"MinStateWidth", "-1e-6", false},
        {"MinStateWidth", "x", false},
        {"EdgeTiming", "Interpolated", true},
        {"EdgeTiming", "Linear", false},
        {"LevelMethod", "Auto", true},
        {"EdgeRule", "Schmitt", true},
        {"EdgeRule", "Legacy", true},
        {"EdgeRule", "legacy", false},
    };
    for (const auto& c : cases) {
        Settings s;
        Outcome set = SetSettingByName(s, c.name, c.value);
        EXPECT_EQ(set.ok(), c.ok) << c.name << "=" << c.value << ": " << set.text();
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
