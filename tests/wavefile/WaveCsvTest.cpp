#include <gtest/gtest.h>

#include "common/TextFile.h"
#include "support/FileBytes.h"
#include "support/TestFolder.h"

#include <cstring>
#include <filesystem>
#include <functional>
#include <random>

#include "common/LineScanner.h"
#include "common/TextUtil.h"
#include "wavefile/WaveCsv.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

class WaveCsvTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = mervasto::test::FreshTestFolder("mervasto_wavecsv_"); }
    void TearDown() override { fs::remove_all(dir_); }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    void writeFile(const std::string& name, const std::string& bytes) const { test::WriteBytes(path(name), bytes); }
    std::string readFile(const std::string& name) const { return test::ReadBytes(path(name)); }

    fs::path dir_;
};

DsoSetup fourChannelSetup(int32_t length) {
    DsoSetup s;
    s.Model = "DS-5354";
    s.ChannelCount = 4;
    s.InfoDigit = "1.00";
    s.DateTime = "2026/11/23 10:00:00";
    s.TimePerDiv = 0.001f;
    s.TriggerDelay = 0.0002f;
    s.SampleInterval = 1e-6f;
    s.AcqMode = "NORMAL";
    s.RecordLength = length;
    for (int i = 1; i <= 4; ++i) {
        s.trace(i - 1).TraceOn = "ON";
        s.trace(i - 1).VoltsPerDiv = 0.5f * i;
        s.trace(i - 1).Offset = -0.25f * i;
        s.trace(i - 1).Coupling = "DC";
        s.trace(i - 1).BandwidthLimit = "OFF";
    }
    return s;
}

std::string header(const std::string& model, const std::string& points, const std::string& columns) {
    return "ModelName," + model + "\r\nTime/div(second), .001 \r\nDelta (second), 1E-06 \r\nPoints ," + points +
           "\r\n" + columns + "\r\n";
}

TEST_F(WaveCsvTest, RoundTripKeepsEveryFloatAndTheHeader) {
    const int32_t n = 1000;
    DsoSetup setup = fourChannelSetup(n);
    WaveRecord rec;
    rec.ensureLength(n);
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> bits;
    for (int c = 0; c < 4; ++c)
        for (int k = 0; k < n; ++k) {
            float v;
            do {
                uint32_t b = bits(rng);
                std::memcpy(&v, &b, sizeof v);
            } while (!std::isfinite(v));
            rec.wave[c][k] = v;
        }
    rec.wave[0][0] = 0.0f;
    rec.wave[1][0] = -0.5f;
    rec.wave[2][0] = 1e-5f;
    rec.wave[3][0] = 1.25f;
    ASSERT_TRUE(SaveWaveCsv(path("w.csv"), setup, rec));

    const std::string text = readFile("w.csv");
    EXPECT_NE(text.find("Acquisition Time, 2026/11/23"), std::string::npos);
    EXPECT_NE(text.find("Time/div(second), .001 \r\n"), std::string::npos);
    EXPECT_NE(text.find("Trigger Address, 520 \r\n"), std::string::npos);
    EXPECT_NE(text.find("CH4 Display,ON\r\nCH1 Volt/div, .5 \r\n"), std::string::npos);
    EXPECT_NE(
        text.find("CH4 Bandwidth,OFF\r\nPoints , 1000 \r\nCh1 V,Ch2 V,Ch3 V,Ch4 V\r\n 0 ,-.5 , 1E-05 , 1.25 \r\n"),
        std::string::npos);

    DsoSetup back;
    WaveRecord got;
    auto r = LoadWaveCsv(path("w.csv"), back, got);
    ASSERT_TRUE(r.ok()) << r.outcome.text();
    EXPECT_EQ(back.DateTime, " 2026/11/23 10:00:00");
    EXPECT_EQ(back.trace(0).Coupling, "");  // not read back
    EXPECT_EQ(got.WaveLength, 0);           // left to the caller
    // The print form reads back to the same float, so equal files mean
    // every header value and sample came back identically.
    back.DateTime = setup.DateTime;
    for (int t = 0; t < kSetupTraces; ++t) {
        back.trace(t).Coupling = setup.trace(t).Coupling;
        back.trace(t).BandwidthLimit = setup.trace(t).BandwidthLimit;
    }
    ASSERT_TRUE(SaveWaveCsv(path("again.csv"), back, got));
    EXPECT_EQ(readFile("again.csv"), text);
    EXPECT_EQ(got.wave[3][n - 1], rec.wave[3][n - 1]);
}

std::string rowsOf(int n, const std::function<std::string(int)>& row) {
    std::string text;
    for (int k = 0; k < n; ++k) text += row(k) + "\r\n";
    return text;
}

// A file reads the same whatever was read before it: the setup starts afresh,
// Ch3 and Ch4 are empty unless the file gives them and its model records
// them, and the samples the length rounded to tens claims repeat the last row.
TEST_F(WaveCsvTest, AFileReadsTheSameAfterAnyOther) {
    const std::string before =
        "ModelName,DS-5354\r\nFileVersion,9\r\nTime/div(second), 1 \r\nDelta (second), 1E-03 "
        "\r\nCH3 Volt/div, 2 \r\nPoints ,30\r\nCh1 V,Ch2 V,Ch3 V,Ch4 V\r\n" +
        rowsOf(30, [](int) { return "9,9,9,9"; });
    const auto pair = [](int k) { return std::to_string(k) + "," + std::to_string(-k); };
    const auto four = [](int k) { return std::to_string(k) + ",0,1," + std::to_string(2 * k); };
    struct Case {
        const char* name;
        std::string text;
        int32_t length;
        bool ch34;
        float last;  // Ch1 from the last row to the record's end
    };
    const Case cases[] = {
        {"two channels", header("DS-5352", "6", "Ch1 V,Ch2 V") + rowsOf(6, pair), 10, false, 5},
        {"four by the model, two columns", header("DS-5354", "16", "Ch1 V,Ch2 V") + rowsOf(16, pair), 20, false, 15},
        {"two by the model, four columns", header("DS-5352", "24", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + rowsOf(24, four), 20,
         false, 19},
        {"four channels", header("DS-5354", "16", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + rowsOf(16, four), 20, true, 15},
        {"no rows", header("DS-5354", "0", "Ch1 V,Ch2 V,Ch3 V,Ch4 V"), 0, false, 0},
    };
    writeFile("before.csv", before);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile("c.csv", c.text);
        DsoSetup fresh, after;
        WaveRecord alone, second;
        ASSERT_TRUE(LoadWaveCsv(path("c.csv"), fresh, alone).ok());
        ASSERT_TRUE(LoadWaveCsv(path("before.csv"), after, second).ok());
        ASSERT_TRUE(LoadWaveCsv(path("c.csv"), after, second).ok());
        EXPECT_EQ(after.RecordLength, c.length);
        EXPECT_EQ(after.InfoDigit, "");
        EXPECT_EQ(after.trace(2).VoltsPerDiv, 0.0f);
        EXPECT_EQ(fresh.RecordLength, after.RecordLength);
        EXPECT_EQ(fresh.ChannelCount, after.ChannelCount);
        for (size_t ch = 0; ch < 4; ++ch) {
            if (ch >= 2 && !c.ch34) {
                EXPECT_TRUE(alone.wave[ch].empty() && second.wave[ch].empty()) << "Ch" << ch + 1;
                continue;
            }
            ASSERT_GE(second.wave[ch].size(), static_cast<size_t>(c.length));
            for (int32_t k = 0; k < c.length; ++k) ASSERT_EQ(second.wave[ch][k], alone.wave[ch][k]) << ch << ", " << k;
        }
        for (int32_t k = c.length - 4; k >= 0 && k < c.length; ++k)
            EXPECT_EQ(second.wave[0][k], std::min<float>(k, c.last));
        if (c.ch34) {
            EXPECT_EQ(second.wave[3][c.length - 1], 2 * c.last);
        }
    }

    // Within one file a short row still takes columns 3 and 4 of the last
    // longer row, and one before any longer row has 0 there.
    writeFile("mixed.csv",
              header("DS-5354", "5", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + "0,0\r\n1,2,3,4\r\n5,6\r\n9,10,11,12\r\n13,14\r\n");
    DsoSetup s;
    WaveRecord rec;
    ASSERT_TRUE(LoadWaveCsv(path("before.csv"), s, rec).ok());
    ASSERT_TRUE(LoadWaveCsv(path("mixed.csv"), s, rec).ok());
    EXPECT_EQ(rec.wave[2][0], 0.0f);
    EXPECT_EQ(rec.wave[2][2], 3.0f);
    EXPECT_EQ(rec.wave[3][4], 12.0f);
}

TEST_F(WaveCsvTest, ChannelCountDecidesColumnsAndHeaderLines) {
    struct Case {
        std::string model;
        int16_t count;
        const char* columns;
        const char* lastDisplay;
        const char* absentDisplay;
    };
    const Case cases[] = {
        {"DS-5353", 3, "Ch1 V,Ch2 V,Ch3 V,Ch4 V\r\n", "CH3 Display", "CH4 Display"},
        {"DS-5351", 1, "Ch1 V,Ch2 V,Ch3 V,Ch4 V\r\n", "CH1 Display", "CH2 Display"},
        {"DS-5352", 2, "Ch1 V,Ch2 V\r\n", "CH2 Display", "CH3 Display"},
    };
    for (const auto& c : cases) {
        DsoSetup s = fourChannelSetup(10);
        s.Model = c.model;
        s.ChannelCount = c.count;
        WaveRecord rec;
        rec.ensureLength(10);
        ASSERT_TRUE(SaveWaveCsv(path("c.csv"), s, rec));
        std::string text = readFile("c.csv");
        EXPECT_NE(text.find(c.columns), std::string::npos) << c.model;
        EXPECT_NE(text.find(c.lastDisplay), std::string::npos) << c.model;
        EXPECT_EQ(text.find(c.absentDisplay), std::string::npos) << c.model;
        const std::string row = c.count == 2 ? "\r\n 0 , 0 \r\n" : "\r\n 0 , 0 , 0 , 0 \r\n";
        EXPECT_NE(text.find(row), std::string::npos) << c.model;

        DsoSetup back;
        WaveRecord got;
        ASSERT_TRUE(LoadWaveCsv(path("c.csv"), back, got).ok());
        EXPECT_EQ(back.ChannelCount, c.count);
        EXPECT_EQ(back.RecordLength, 10);
    }
}

// The length is the rows read rounded to tens; "Points" caps the rows read.
TEST_F(WaveCsvTest, RowCountIsRoundedToTensAndPointsLimitsTheRows) {
    const std::tuple<const char*, int, int32_t, int32_t> cases[] = {{"99999", 10005, 10005, 10000},
                                                                    {"99999", 10015, 10015, 10020},
                                                                    {"99999", 10006, 10006, 10010},
                                                                    {"99999", 4, 4, 0},
                                                                    {" 20 ", 30, 20, 20}};
    for (const auto& [points, rows, read, expected] : cases) {
        writeFile("r.csv", header("DS-5354", points, "Ch1 V,Ch2 V,Ch3 V,Ch4 V") +
                               rowsOf(rows, [](int k) { return " " + std::to_string(k) + " , 2 , 3 , 4 "; }));
        DsoSetup s;
        WaveRecord rec;
        auto r = LoadWaveCsv(path("r.csv"), s, rec);
        ASSERT_TRUE(r.ok());
        EXPECT_EQ(r.rowsRead, read);
        EXPECT_EQ(s.RecordLength, expected) << rows;
        EXPECT_TRUE(expected == 0 || rec.wave[0][read - 1] == read - 1.0f) << rows;
        for (const auto& w : rec.wave) EXPECT_GE(static_cast<int32_t>(w.size()), expected);
    }
}

TEST_F(WaveCsvTest, BadFilesEndCleanlyKeepingWhatWasRead) {
    struct Case {
        const char* name;
        std::string text;
        bool fails;
        int32_t recordLength;
        const char* model;
    };
    const std::string good = header("DS-5352", "20", "Ch1 V,Ch2 V");
    const Case cases[] = {
        {"empty", "", false, 0, ""},
        {"no data line", "ModelName,DS-5352\r\nPoints , 20 \r\n", false, 0, "DS-5352"},
        {"truncated rows", good + "1,2\r\n3,4\r\n5,", false, 0, "DS-5352"},
        {"bad header value", "ModelName,DS-5354\r\nTime/div(second),fast\r\nPoints , 20 \r\n", true, 0, "DS-5354"},
        {"bad channel digit", "ModelName,DS-5354\r\nCH7 Offset, .5 \r\nPoints , 20 \r\n", true, 0, "DS-5354"},
        {"bad points", "ModelName,DS-5354\r\nPoints ,many\r\n", true, 0, "DS-5354"},
    };
    for (const auto& c : cases) {
        writeFile("b.csv", c.text);
        DsoSetup s;
        WaveRecord rec;
        auto r = LoadWaveCsv(path("b.csv"), s, rec);
        EXPECT_EQ(!r.ok(), c.fails) << c.name;
        EXPECT_EQ(r.outcome.text().empty(), !c.fails) << c.name;
        EXPECT_EQ(s.RecordLength, c.recordLength) << c.name;
        EXPECT_EQ(s.Model, c.model) << c.name;
    }

    DsoSetup s;
    WaveRecord rec;
    auto r = LoadWaveCsv(path("missing.csv"), s, rec);
    EXPECT_FALSE(r.ok());

    // Samples before a fault stay.
    writeFile("late.csv", good + "1,2\r\n3,4\r\nCH9 Volt/div, 1 \r\n5,6\r\n");
    r = LoadWaveCsv(path("late.csv"), s, rec);
    EXPECT_FALSE(r.ok());
    EXPECT_EQ(r.rowsRead, 2);
    EXPECT_EQ(rec.wave[0][1], 3.0f);
    EXPECT_EQ(s.RecordLength, 20);
}

// Each file read from disk and from memory: both ways must say the same.
struct BothWays {
    WaveCsvLoadResult result;
    DsoSetup setup;
    WaveRecord record;
};

TEST_F(WaveCsvTest, RefusedFilesNameTheFileTheLineAndTheField) {
    const std::string head = header("DS-5352", "20", "Ch1 V,Ch2 V");
    const std::string rows = "1,2\r\n3,4\r\n";
    struct Case {
        const char* name;
        std::string text;
        std::string where;  // how the text starts, after the file name
        const char* says;   // and something it says
        int32_t rowsRead;
    };
    const Case cases[] = {
        {"zero interval", "ModelName,DS-5352\r\nDelta (second), 0 \r\n", ", line 2: ", "\"Delta (second)\" must", 0},
        {"negative interval", "Delta (second),-1E-06 \r\n", ", line 1: ", "above 0", 0},
        {"huge interval", "Delta (second), 1E+39 \r\n", ", line 1: ", "\"Delta (second)\"", 0},
        {"huge time base", "Time/div(second), 1E+39 \r\n", ", line 1: ", "\"Time/div(second)\"", 0},
        {"no interval", "ModelName,DS-5352\r\nPoints , 2 \r\nCh1 V,Ch2 V\r\n1,2\r\n", ": ", "\"Delta\"", 1},
        {"line too long", head + rows + std::string(kMaxLineBytes + 1, '7') + "\r\n5,6\r\n", ", line 8: ", "1 MiB", 2},
        {"too many fields", head + rows + std::string(kMaxFields, ',') + "\r\n5,6\r\n", ", line 8: ", "1000 fields", 2},
        {"header of too many fields", "ModelName,DS-5352" + std::string(kMaxFields, ',') + "\r\n",
         ", line 1: ", "1000 fields", 0},
    };
    for (const auto& c : cases) {
        writeFile("bad.csv", c.text);
        BothWays ways[2];
        for (int way = 0; way < 2; ++way) {
            auto& w = ways[way];
            w.result = way == 0 ? LoadWaveCsv(path("bad.csv"), w.setup, w.record)
                                : LoadWaveCsvBytes(c.text, path("bad.csv"), w.setup, w.record);
            EXPECT_FALSE(w.result.ok()) << c.name;
            EXPECT_EQ(w.result.outcome.text().rfind(path("bad.csv") + c.where, 0), 0u)
                << c.name << ": " << w.result.outcome.text();
            EXPECT_NE(w.result.outcome.text().find(c.says), std::string::npos)
                << c.name << ": " << w.result.outcome.text();
            EXPECT_EQ(w.result.rowsRead, c.rowsRead) << c.name;
        }
        EXPECT_EQ(ways[0].result.outcome.text(), ways[1].result.outcome.text()) << c.name;
    }
}

TEST_F(WaveCsvTest, WarningsOfFilesThatStillLoad) {
    struct Case {
        const char* name;
        std::string text;
        std::vector<std::string> warnings;  // after the file name and ": "
        int16_t channels;
        int32_t declared;
    };
    const std::string rows = "1,2,3,4\r\n5,6,7,8\r\n9,10,11,12\r\n";
    const std::string cutShort = "the file ends after 3 of the 20 sample rows it declares.";
    const Case cases[] = {
        {"whole", header("DS-5354", "3", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + rows, {}, 4, 3},
        {"cut short", header("DS-5354", "20", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + rows, {cutShort}, 4, 20},
        {"no points line", "ModelName,DS-5354\r\nDelta (second), 1E-06 \r\nCh1 V\r\n" + rows, {}, 4, -1},
        {"model with trailing blanks", header("DS-5354  ", "3", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + rows, {}, 4, 3},
        {"model without a count",
         header("DS-535X", "20", "Ch1 V,Ch2 V,Ch3 V,Ch4 V") + rows,
         {cutShort, "The model name \"DS-535X\" gives no channel count; Ch3 and Ch4 are left out."},
         0,
         20},
    };
    for (const auto& c : cases) {
        writeFile("w.csv", c.text);
        DsoSetup s;
        s.ChannelCount = 1;  // a stale count the file's model name replaces
        WaveRecord rec;
        auto r = LoadWaveCsv(path("w.csv"), s, rec);
        ASSERT_TRUE(r.ok()) << c.name << ": " << r.outcome.text();
        std::vector<std::string> want;
        for (const auto& w : c.warnings) want.push_back(path("w.csv") + ": " + w);
        EXPECT_EQ(r.warnings, want) << c.name;
        EXPECT_EQ(s.ChannelCount, c.channels) << c.name;
        EXPECT_EQ(r.rowsDeclared, c.declared) << c.name;
        EXPECT_EQ(r.channelCountNote.empty(), c.channels == 2 || c.channels == 4) << c.name;
    }
}

TEST_F(WaveCsvTest, FailedWritesKeepTheOldFileAndSayWhy) {
    DsoSetup setup = fourChannelSetup(10);
    WaveRecord rec;
    rec.ensureLength(10);
    const std::string missing = path("no-folder/w.csv");
    const Outcome noFolder = SaveWaveCsv(missing, setup, rec);
    EXPECT_EQ(noFolder.text(), missing + ": No such file or directory.");
    const Outcome noTable = AppendWaveTable(missing, rec, 10, {true, true, true, true});
    EXPECT_EQ(noTable.text(), missing + ": No such file or directory.");
    EXPECT_FALSE(fs::exists(path("no-folder")));

    // A folder where the file should be: nothing is replaced, nothing left.
    fs::create_directories(path("taken.csv"));
    EXPECT_FALSE(SaveWaveCsv(path("taken.csv"), setup, rec));
    EXPECT_TRUE(fs::is_directory(path("taken.csv")));
    size_t entries = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator(dir_)) ++entries;
    EXPECT_EQ(entries, 1u);
}

TEST_F(WaveCsvTest, WaveTableListsShownChannelsAndAppends) {
    WaveRecord rec;
    rec.ensureLength(3);
    rec.wave[0] = {0.25f, -1.5f, 1e-5f};
    rec.wave[2] = {1.0f, 2.0f, 3.0f};
    ASSERT_TRUE(AppendWaveTable(path("t.csv"), rec, 2, {true, false, true, false}));
    ASSERT_TRUE(AppendWaveTable(path("t.csv"), rec, 1, {false, false, false, false}));
    EXPECT_EQ(readFile("t.csv"), ToNarrow("//波形のcsv形式ファイル\r\nAddress,Ch1(V),Ch3(V)\r\n0,0.25,1\r\n1,-1.5,2\r\n"
                                          "//波形のcsv形式ファイル\r\nAddress\r\n0\r\n"));
}

}  // namespace
}  // namespace mervasto
