#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "app/core/ResumeFile.h"
#include "cli/Cli.h"
#include "cli/Options.h"
#include "analysis/Jitter.h"
#include "cli/Json.h"

#include "common/PackageVersion.h"
#include "common/TextFile.h"
#include "sim/DsoSimulator.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "support/SeriesFaults.h"
#include "CliRun.h"
#include "support/TestFolder.h"

#include "support/QtTestApp.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

using namespace mervasto;

namespace {

MERVASTO_QT_TEST_APP(QCoreApplication);

class CliTest : public test::CliRun {
protected:
    CliTest() : CliRun("mervasto-cli-") {}
};

TEST_F(CliTest, ExitStatusesOfBadOptionsAndFiles) {
    struct Case {
        std::vector<std::string> args;
        int status;
    };
    const Case cases[] = {
        {{"--help"}, kExitOk},
        {{"--version"}, kExitOk},
        {{}, kExitBadOptions},
        {{"frobnicate"}, kExitBadOptions},
        {{"analyze", "--bogus", "x.csv"}, kExitBadOptions},
        {{"analyze", "--set", "NoSuchBox=1", "x.csv"}, kExitBadOptions},
        {{"analyze", "--set", "ChInputSignal1=Gate", "x.csv"}, kExitBadOptions},
        {{"analyze", "--format", "xml", "x.csv"}, kExitBadOptions},
        {{"analyze", "--set", "SampleNo=../up", "x.csv"}, kExitBadOptions},
        {{"acquire", "--set", "DetailBaseName=a/b", "--ip", "127.0.0.1:1"}, kExitBadOptions},
        {{"analyze"}, kExitBadOptions},
        {{"analyze", "--no-save", "missing.csv"}, kExitFileError},
        {{"analyze", "--jobs", "3", "--no-save", "missing.csv"}, kExitFileError},
        {{"analyze", "--jobs", "0", "x.csv"}, kExitBadOptions},
        {{"analyze", "--jobs", "257", "x.csv"}, kExitBadOptions},
        {{"analyze", "--jobs", "2.5", "x.csv"}, kExitBadOptions},
        {{"acquire"}, kExitBadOptions},
        {{"acquire", "--ip", "127.0.0.1:1", "--repeat", "99999"}, kExitBadOptions},
    };
    for (const auto& c : cases) {
        std::string joined;
        for (const auto& a : c.args) joined += a + " ";
        EXPECT_EQ(run(c.args), c.status) << joined << err.str();
    }
    // The package version moves on; the settings file it reads does not.
    run({"--version"});
    EXPECT_EQ(out.str().rfind("mervasto-cli " + std::string(kPackageVersion) + "\n", 0), 0u) << out.str();
    EXPECT_NE(out.str().find("settings: Resume340.txt (Ver3.40)"), std::string::npos) << out.str();
}

TEST_F(CliTest, AnalyzePrintsJsonAndAppendsResultLines) {
    ASSERT_EQ(run({"analyze", "--format", "json", "--cycles", example("pulses"), example("gated")}), kExitOk)
        << err.str();
    const std::string json = out.str();
    EXPECT_EQ(json.front(), '[');
    for (const char* key : {"\"waveLength\": 10000", "\"anaStart\"", "\"gateEnd\"", "\"rows\"", "\"cycles\"",
                            "\"MidEdge\"", "\"type\": \"Period\"", "\"analysed\": true"})
        EXPECT_NE(json.find(key), std::string::npos) << key;
    const auto lines = outputLines("ResultData.csv");
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2].rfind("Sample1,", 0), 0u);
    EXPECT_EQ(lines[3].rfind("Sample2,", 0), 0u);  // the index advances between files
}

// Jitter in every output form, and beside the result lines in its own file.
TEST_F(CliTest, JitterInJsonTableAndFile) {
    ASSERT_EQ(run({"analyze", "--set", "EdgeTiming=Interpolated", "--format", "json", example("pulses")}), kExitOk)
        << err.str();
    for (const char* key : {"\"jitter\": {", "\"c2cSigma\"", "\"tieRms\"", "\"tiePeakToPeak\"", "\"runs\": 1"})
        EXPECT_NE(out.str().find(key), std::string::npos) << key;
    EXPECT_EQ(out.str().find(kJitterWholeSampleHint), std::string::npos);
    // Whole-sample edges on the example's clean clock: the spread is all rounding.
    ASSERT_EQ(run({"analyze", "--no-save", "--format", "json", example("pulses")}), kExitOk) << err.str();
    EXPECT_NE(out.str().find(std::string("\"note\": \"") + kJitterWholeSampleHint), std::string::npos) << out.str();
    ASSERT_EQ(run({"analyze", "--no-save", example("pulses")}), kExitOk) << err.str();
    const std::string table = out.str();
    const size_t block = table.find("\nJitter\n");
    ASSERT_NE(block, std::string::npos) << table;
    EXPECT_NE(table.find("C2C Min", block), std::string::npos) << table;
    EXPECT_NE(table.find("TIE RMS", block), std::string::npos) << table;
    EXPECT_NE(table.find(kJitterWholeSampleHint, block), std::string::npos) << table;
    const auto lines = outputLines("JitterData.csv");
    ASSERT_EQ(lines.size(), 3u);  // --no-save wrote nothing
    EXPECT_EQ(lines[2].rfind("Sample1,", 0), 0u);
}

TEST_F(CliTest, ComparatorVerdictsDecideTheExitStatus) {
    std::ofstream(dir_ / "pass.txt", std::ios::binary)
        << "% every channel 1..100 cycles\r\n1,1,100\r\n2,1,100\r\n3,1,100\r\n4,1,100\r\n";
    std::ofstream(dir_ / "fail.txt", std::ios::binary) << "1,100,200\r\n";
    std::ofstream(dir_ / "bad.txt", std::ios::binary) << "9,1,2\r\n";
    EXPECT_EQ(run({"analyze", "--no-save", "--comparator", (dir_ / "pass.txt").string(), example("pulses")}), kExitOk)
        << err.str();
    EXPECT_NE(out.str().find("Go"), std::string::npos);
    EXPECT_EQ(run({"analyze", "--no-save", "--comparator", (dir_ / "fail.txt").string(), example("pulses")}), kExitNg);
    EXPECT_NE(out.str().find("NG"), std::string::npos);
    EXPECT_EQ(run({"analyze", "--no-save", "--comparator", (dir_ / "bad.txt").string(), example("pulses")}),
              kExitFileError);
    EXPECT_NE(err.str().find("Illegal Character."), std::string::npos);
    EXPECT_FALSE(FileExists((dir_ / "data" / "OutputData" / "ResultData.csv").string()));
}

// A setting is refused by name and range, from --set before anything runs,
// from a settings file line by line while the run goes on with the value
// named (exit 2 either way); a failure inside the analysis names its channel
// and value and is the file's (exit 1).
TEST_F(CliTest, RefusedSettingsAndAnalysisFailuresSayWhat) {
    std::string settings = ResumeText(Settings{});
    const auto replaceLine = [&](const std::string& head, const std::string& line) {
        const size_t at = settings.find(ToNarrow(head));
        settings.replace(at, settings.find("\r\n", at) - at, ToNarrow(line));
    };
    replaceLine("繰返し,", "繰返し,abc,1000");  // before the channel types, which are still read
    replaceLine("Ch1 信号タイプ,", "Ch1 信号タイプ, 4 ");
    replaceLine("Ch2 V倍率,", "Ch2 V倍率,-1e39");
    std::ofstream(dir_ / "settings.txt", std::ios::binary) << settings;
    const std::string tiny = (dir_ / "tiny.csv").string();
    {
        std::ifstream in(example("pulses"), std::ios::binary);
        std::stringstream all;
        all << in.rdbuf();
        std::string wave = all.str();
        const size_t at = wave.find("Delta (second),");
        wave.replace(at, wave.find("\r\n", at) - at, "Delta (second), 1E-42 ");
        std::ofstream(tiny, std::ios::binary) << wave;
    }
    struct Case {
        std::vector<std::string> args;
        int status;
        std::vector<std::string> says;  // on stderr, or on stdout
    };
    const std::string file = (dir_ / "settings.txt").string();
    const Case cases[] = {
        {{"--set", "PLevel=abc"}, kExitBadOptions, {"PLevel cannot be \"abc\": it takes a number from 0 to 100."}},
        {{"--set", "MaxCycles=1e12"}, kExitBadOptions, {"it takes a whole number from 1 to 500000"}},
        {{"--settings", (dir_ / "missing.txt").string()},
         kExitFileError,
         {"missing.txt: there is no such settings file"}},
        {{"--settings", file},
         kExitBadOptions,
         {file + ", line 9 (繰返し): RepeatCheck cannot be \"abc\": it is 0 or 1. \"0\" is used instead.",
          file + ", line 19 (Ch2 V倍率): VRate2 cannot be \"-1e39\"", "\"type\": \"P.W.\""}},
        {{"--set", "ChInputSignal1=Freq.", tiny}, kExitFileError, {"tiny.csv: Ch1 Freq.: Max 4.99"}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"analyze", "--no-save", "--format", "json"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        if (c.args.back() != tiny) args.push_back(example("pulses"));
        EXPECT_EQ(run(args), c.status) << c.args.back() << ": " << err.str();
        for (const auto& text : c.says)
            EXPECT_NE((err.str() + out.str()).find(text), std::string::npos) << text << "\n" << err.str();
    }

    // --import-interval in seconds or with a unit; "2ms" is not 2 s.
    const std::pair<const char*, double> intervals[] = {{"2e-3", 2e-3},     {"2ms", 2e-3},   {"2 us", 2e-6},
                                                        {"2\u00b5s", 2e-6}, {"500ns", 5e-7}, {"2x", 0},
                                                        {"-1", 0},          {"1e-42", 0},    {"ms", 0}};
    for (const auto& [text, seconds] : intervals) {
        cli::Options o;
        const Outcome parsed = cli::ParseOptions({"analyze", "--import-interval", text, "x.csv"}, o);
        EXPECT_EQ(parsed.ok(), seconds > 0) << text;
        if (seconds > 0) {
            EXPECT_DOUBLE_EQ(o.importInterval, seconds) << text;
        }
    }
}

// A series whose instrument fails in its third pass: exit status 4 with the
// reason, the two result lines before it kept, and the next run connects.
TEST_F(CliTest, InstrumentFailingInASeries) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    for (const auto& c : {test::kFrontEndFault, test::kFrontEndSetupFault}) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(dir_ / "data" / "OutputData" / "ResultData.csv");
        test::ShowInThirdPass(sim, c);
        EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--repeat", "5", "--new-acquisition", "--timeout", "3",
                       "--format", "csv"}),
                  kExitNoInstrument);
        EXPECT_NE(err.str().find("ended after 2 pass(es)"), std::string::npos) << err.str();
        EXPECT_NE(err.str().find("2 pass(es), 2 log row(s), 2 result line(s) written"), std::string::npos) << err.str();
        EXPECT_NE(err.str().find(c.message), std::string::npos) << err.str();
        EXPECT_EQ(outputLines("ResultData.csv").size(), 2u + 2u);

        sim.setCommandHook(nullptr);
        sim.setFault(SimFault::None);
        EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--format", "csv"}), kExitOk) << err.str();
        EXPECT_EQ(outputLines("ResultData.csv").size(), 2u + 3u);
    }
}

// Replies the program cannot measure with (an identification of no known
// model, a record length, trigger or scale no record can be made of) end
// the command with exit status 4 and the reply named: no wave file, no
// result line.
TEST_F(CliTest, RepliesThatCannotBeMeasuredWithWriteNothing) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    sim.setFault(SimFault::BadSetup);
    std::vector<test::SeriesFault> cases = {{"identification", SimFault::BadSetup,
                                             "The DSO's identification (\"*IDN?\") names no model with 2 or 4 "
                                             "channels: \"\"; the link was closed.",
                                             false, "IDN"}};
    for (const auto& c : test::kSeriesFaults)
        if (c.fault == SimFault::BadSetup) cases.push_back(c);
    const auto fetched = dir_ / "fetched.csv";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        sim.setBadSetupField(c.setupField);
        EXPECT_EQ(run({"fetch", "--ip", sim.address(), fetched.string()}), kExitNoInstrument);
        EXPECT_NE(err.str().find(c.message), std::string::npos) << err.str();
        EXPECT_EQ(out.str(), "");
        EXPECT_FALSE(std::filesystem::exists(fetched));

        EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--format", "csv"}), kExitNoInstrument);
        EXPECT_NE(err.str().find(c.message), std::string::npos) << err.str();
        EXPECT_NE(err.str().find("0 pass(es), 0 log row(s), 0 result line(s) written"), std::string::npos) << err.str();
        EXPECT_TRUE(outputLines("ResultData.csv").empty());
    }
}

// Without "New Acquisition" a series makes one pass, as the window's does;
// the command line says so before the pass.
TEST_F(CliTest, RepeatsWithoutNewAcquisitionAreOnePassAndSaySo) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    const std::string warning =
        "mervasto-cli acquire: warning: repeats need \"New Acquisition\" "
        "(--new-acquisition); this run makes one pass, not 3.";
    ASSERT_EQ(run({"acquire", "--ip", sim.address(), "--repeat", "3", "--no-save", "--format", "csv"}), kExitOk)
        << err.str();
    EXPECT_LT(err.str().find(warning), err.str().find("Repeat count=1")) << err.str();
    EXPECT_NE(err.str().find("1 pass(es)"), std::string::npos) << err.str();
    ASSERT_EQ(
        run({"acquire", "--ip", sim.address(), "--repeat", "3", "--new-acquisition", "--no-save", "--format", "csv"}),
        kExitOk);
    EXPECT_EQ(err.str().find("warning"), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("3 pass(es)"), std::string::npos) << err.str();
}

// A detail file the pass cannot write: exit status 1 with the file and the
// reason, after the first pass.
TEST_F(CliTest, APassFileThatCannotBeWritten) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    const auto notAFolder = dir_ / "not-a-folder";
    std::ofstream(notAFolder) << "x";
    EXPECT_EQ(run({"acquire", "--ip", sim.address(), "--repeat", "3", "--new-acquisition", "--set", "DDSaveCheck=1",
                   "--set", "OutputFolder=" + notAFolder.string(), "--format", "csv"}),
              kExitFileError);
    EXPECT_NE(err.str().find("ended after 1 pass(es): " + notAFolder.string()), std::string::npos) << err.str();
}

TEST_F(CliTest, ResultLinesTheFileRefusesArePrinted) {
    std::filesystem::create_directories(dir_ / "data" / "OutputData" / "ResultData.csv");
    EXPECT_EQ(run({"analyze", "--format", "csv", example("pulses"), example("gated")}), kExitFileError);
    EXPECT_NE(err.str().find("Failed to save Test Results. These 2 line(s) belong in"), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("\nSample1,"), std::string::npos);
    EXPECT_NE(err.str().find("\nSample2,"), std::string::npos);
}

TEST_F(CliTest, FailedWritesSayWhichFileAndWhyAndExitOne) {
    const std::string missing = (dir_ / "no-folder").string();
    EXPECT_EQ(run({"make-examples", missing}), kExitFileError);
    EXPECT_EQ(out.str(), "");  // no file is listed that was never written
    EXPECT_EQ(err.str().rfind("mervasto-cli: " + missing + "/", 0), 0u) << err.str();
    EXPECT_NE(err.str().find(": No such file or directory.\n"), std::string::npos) << err.str();

    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    const std::string target = missing + "/fetched.csv";
    EXPECT_EQ(run({"fetch", "--ip", sim.address(), target}), kExitFileError);
    EXPECT_EQ(out.str().find("Saved"), std::string::npos) << out.str();
    EXPECT_EQ(err.str(), "mervasto-cli: " + target + ": No such file or directory.\n");
}

TEST_F(CliTest, RefusedAndCutShortFilesSayWhy) {
    const std::string head = "ModelName,DS-5352\r\nTime/div(second), .001 \r\nCH1 Volt/div, 1 \r\nCH2 Volt/div, 1 \r\n";
    const auto bad = dir_ / "bad.csv";
    std::ofstream(bad, std::ios::binary) << head << "Delta (second), 0 \r\nPoints , 20 \r\nCh1 V,Ch2 V\r\n1,2\r\n";
    for (const char* command : {"info", "analyze"}) {
        EXPECT_EQ(run({command, "--no-save", bad.string()}), kExitFileError) << command;
        EXPECT_NE(
            err.str().find("mervasto-cli: " + bad.string() + ", line 5: \"Delta (second)\" must be a number above 0"),
            std::string::npos)
            << command << ": " << err.str();
    }

    // Cut short: 12 of 40 rows, rounded to 10 samples for the analysis.
    const auto cut = dir_ / "cut.csv";
    {
        std::ofstream f(cut, std::ios::binary);
        f << head << "Delta (second), 1E-06 \r\nPoints , 40 \r\nCh1 V,Ch2 V\r\n";
        for (int k = 0; k < 12; ++k) f << (k % 2 ? " 1 , 0 \r\n" : " 0 , 0 \r\n");
    }
    const std::string warning = cut.string() + ": the file ends after 12 of the 40 sample rows it declares.";
    EXPECT_EQ(run({"analyze", "--no-save", cut.string()}), kExitOk) << err.str();
    EXPECT_NE(err.str().find("mervasto-cli: warning: " + warning), std::string::npos) << err.str();
    EXPECT_EQ(run({"analyze", "--no-save", "--format", "json", cut.string()}), kExitOk) << err.str();
    EXPECT_NE(out.str().find("\"text\": \"" + JsonEscape(warning) + "\""), std::string::npos) << out.str();
}

// True when bytes are well-formed UTF-8.
bool validUtf8(const std::string& s) {
    for (size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const size_t n = c < 0x80                 ? 1
                         : c >= 0xC2 && c <= 0xDF ? 2
                         : c >= 0xE0 && c <= 0xEF ? 3
                         : c >= 0xF0 && c <= 0xF4 ? 4
                                                  : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

TEST(JsonEscapeTest, OutputIsValidUtf8WhateverTheBytes) {
    struct Case {
        std::string in;
        std::string want;
    };
    const Case cases[] = {
        {"plain", "plain"},
        {"q\"b\\n\n\t\x01\x7f", "q\\\"b\\\\n\\n\\t\\u0001\\u007f"},
        {"波形 µs", "波形 µs"},
        {"\xff", "\\ufffd"},
        {"a\x80"
         "b",
         "a\\ufffdb"},                                         // a stray continuation byte
        {"\xc0\xaf", "\\ufffd\\ufffd"},                        // an overlong "/"
        {"\xed\xa0\x80", "\\ufffd\\ufffd\\ufffd"},             // a surrogate
        {"\xf4\x90\x80\x80", "\\ufffd\\ufffd\\ufffd\\ufffd"},  // above U+10FFFF
        {"\xe6\xb3", "\\ufffd\\ufffd"},                        // cut short
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(JsonEscape(c.in), c.want) << c.in;
        EXPECT_TRUE(validUtf8(JsonEscape(c.in))) << c.in;
    }
}

TEST_F(CliTest, JsonOfAFileNameThatIsNoUtf8IsStillUtf8) {
    const auto odd = dir_ / "\xff\xfe-\xe6\xb3.csv";
    std::filesystem::copy_file(example("pulses"), odd);
    ASSERT_EQ(run({"analyze", "--no-save", "--format", "json", odd.string()}), kExitOk) << err.str();
    EXPECT_TRUE(validUtf8(out.str()));
    EXPECT_NE(out.str().find("\\ufffd\\ufffd-\\ufffd\\ufffd.csv"), std::string::npos);
}

// Each failure at the boundary of its handler: one kind, which decides the
// exit status; what has a legacy form is shown by the handler in it and
// marked reported, anything else is left to the front end to show.
TEST_F(CliTest, HandlerOutcomesDecideWhatIsShownAndTheExitStatus) {
    std::ofstream(dir_ / "bad.txt", std::ios::binary) << "9,1,2\r\n";
    struct Case {
        const char* name;
        std::function<Outcome(RunState&, ScriptedUi&)> handler;
        ErrorCode kind;
        const char* shown;  // status panel 1, or "title: text" of the last box; "" for nothing
        int exitStatus;
    };
    const std::string missing = (dir_ / "missing.csv").string();
    const Case cases[] = {
        {"file input",
         [&](RunState& s, ScriptedUi& ui) {
             ui.files = {example("pulses")};
             return s.InputFromFile_Click(ui);
         },
         ErrorCode::None, "Saved Test Results to the ", kExitOk},
        {"missing wave file",
         [&](RunState& s, ScriptedUi& ui) {
             ui.files = {missing};
             return s.InputFromFile_Click(ui);
         },
         ErrorCode::FileNotFound, "Input from File canceled.", kExitFileError},
        {"missing comparator", [&](RunState& s, ScriptedUi& ui) { return s.LoadComparator(ui, missing); },
         ErrorCode::FileNotFound, "No File.", kExitFileError},
        {"bad comparator",
         [&](RunState& s, ScriptedUi& ui) { return s.LoadComparator(ui, (dir_ / "bad.txt").string()); },
         ErrorCode::TypeMismatch, "Confirmation: Illegal Character.", kExitFileError},
        {"unreachable instrument", [](RunState& s, ScriptedUi& ui) { return s.WFStartCommand_Click(ui); },
         ErrorCode::Link, "Confirmation: DSO not connected normally.", kExitNoInstrument},
        {"sample name outside its folder",
         [](RunState& s, ScriptedUi& ui) {
             s.settings().analysis.SampleNo = "../up";
             s.settings().analysis.SaveWavesCheck = true;
             return s.WaveSave_Click(ui);
         },
         ErrorCode::TypeMismatch, "", kExitFileError},
        {"setting written behind the boxes",
         [&](RunState& s, ScriptedUi& ui) {
             s.settings().analysis.MaxCycles = "1e12";
             ui.files = {example("pulses")};
             return s.InputFromFile_Click(ui);
         },
         ErrorCode::BadOption, "", kExitBadOptions},
        {"sample index at its end",
         [&](RunState& s, ScriptedUi& ui) {
             ui.files = {example("pulses"), example("pulses")};
             (void)s.InputFromFile_Click(ui);
             s.settings().analysis.SampleIndex = "32767";
             return s.InputFromFile_Click(ui);
         },
         ErrorCode::BadOption, "Input from File canceled.", kExitBadOptions},
        {"limit beyond 32 bits",
         [&](RunState& s, ScriptedUi& ui) {
             ui.files = {example("pulses")};
             (void)s.InputFromFile_Click(ui);
             Grid grid;
             const auto rows = s.BuildLimitGrid(grid);
             return s.EditLimit(ui, grid, rows, 1, kCycleColLL, "3e9");
         },
         ErrorCode::BadOption, "", kExitBadOptions},
    };
    for (const auto& c : cases) {
        RunState state;
        state.FormLoad((dir_ / "data").string());
        state.settings().analysis.IPAdressText = "127.0.0.1:1";
        ScriptedUi ui;
        const Outcome o = c.handler(state, ui);
        EXPECT_EQ(o.code(), c.kind) << c.name << ": " << o.text();
        EXPECT_EQ(ExitStatusOf(o), c.exitStatus) << c.name;
        const std::string shown = ui.boxes.empty() ? ui.status[1] : ui.boxes.back().title + ": " + ui.boxes.back().text;
        EXPECT_EQ(o.wasReported(), !o.ok() && *c.shown) << c.name;
        if (*c.shown) {
            EXPECT_NE(shown.find(c.shown), std::string::npos) << c.name << ": " << shown;
        }
    }
    EXPECT_EQ(ExitStatusOf({ErrorCode::BadOption, "x"}), kExitBadOptions);
    EXPECT_EQ(ExitStatusOf({ErrorCode::VerdictNg, "x"}), kExitNg);
}

TEST_F(CliTest, UnreachableInstrumentIsExitStatusFour) {
    EXPECT_EQ(run({"readout", "--ip", "127.0.0.1:1"}), kExitNoInstrument);
    EXPECT_EQ(run({"acquire", "--ip", "127.0.0.1:1"}), kExitNoInstrument);
}

}  // namespace
