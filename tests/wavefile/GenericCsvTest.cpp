#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <algorithm>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/TestFolder.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

constexpr int kRows = 2000;
constexpr double kDt = 1e-6;
constexpr double kT0 = -1e-3;

// Pulses 0/5 V, a 3.3 V clock at 25 % duty, a few millivolts of noise, and a
// slow ramp: enough to tell the columns apart.
float sampleOf(int ch, int k) {
    switch (ch) {
    case 0: return (k / 50) % 2 ? 5.0f : 0.0f;
    case 1: return k % 64 < 16 ? 3.3f : 0.0f;
    case 2: return static_cast<float>((k * 7919 % 21) - 10) * 0.001f;
    default: return static_cast<float>(k % 400) * 0.01f;
    }
}

std::string floatText(float v) {
    char buf[32];
    return std::string(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
}
std::string doubleText(double v, int digits = 9) {
    char buf[64];
    return std::string(buf, std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, digits).ptr);
}

enum class Header { None, Plain, NameThenUnits, XAxis };

struct Layout {
    const char* what;
    std::string delim;
    bool decimalComma;
    Header header;
    int signals;
    bool timeColumn;
    double timeScale;      // 1 for seconds, 1e6 for µs
    const char* timeName;  // header of the time column
    double voltScale;      // 1 for volts, 1000 for mV
    const char* voltUnit;  // "(V)", "[mV]"
    std::string metadata;  // lines before the header
};

std::string number(double v, bool decimalComma, bool asFloat) {
    std::string s = asFloat ? floatText(static_cast<float>(v)) : doubleText(v);
    if (decimalComma)
        for (char& c : s)
            if (c == '.') c = ',';
    return s;
}

std::string makeFile(const Layout& L) {
    std::string out = L.metadata;
    auto row = [&](const std::vector<std::string>& cells) {
        for (size_t i = 0; i < cells.size(); ++i) out += (i ? L.delim : "") + cells[i];
        out += "\r\n";
    };
    std::vector<std::string> names, units;
    if (L.timeColumn) {
        names.push_back(L.timeName);
        units.push_back("s");
    }
    for (int c = 0; c < L.signals; ++c) {
        const std::string n = std::to_string(c + 1);
        switch (L.header) {
        case Header::Plain: names.push_back("CH" + n + L.voltUnit); break;
        case Header::NameThenUnits: names.push_back("C" + n); break;
        case Header::XAxis: names.push_back(n); break;
        case Header::None: break;
        }
        units.push_back(L.header == Header::XAxis ? "Volt" : "V");
    }
    if (L.header != Header::None) row(names);
    if (L.header == Header::NameThenUnits || L.header == Header::XAxis) row(units);
    for (int k = 0; k < kRows; ++k) {
        std::vector<std::string> cells;
        if (L.timeColumn) cells.push_back(number((kT0 + k * kDt) * L.timeScale, L.decimalComma, false));
        for (int c = 0; c < L.signals; ++c)
            cells.push_back(L.voltScale == 1 ? number(sampleOf(c, k), L.decimalComma, true)
                                             : number(sampleOf(c, k) * L.voltScale, L.decimalComma, false));
        row(cells);
    }
    return out;
}

TEST(GenericCsvTest, EveryLayoutGivesTheSameRecord) {
    const Layout layouts[] = {
        {"comma, Time(s)", ",", false, Header::Plain, 2, true, 1, "Time(s)", 1, "(V)", ""},
        {"semicolon, decimal comma, names then units", ";", true, Header::NameThenUnits, 3, true, 1, "TIME", 1, "", ""},
        {"tab, µs and mV", "\t", false, Header::Plain, 4, true, 1e6, "Time [\xC2\xB5s]", 1000, " [mV]", ""},
        {"blanks, x-axis and units line", "  ", false, Header::XAxis, 2, true, 1, "x-axis", 1, "", ""},
        {"blanks, decimal comma", " ", true, Header::Plain, 1, true, 1, "Second", 1, "(V)", ""},
        {"metadata block then comma", ",", false, Header::Plain, 3, true, 1, "time", 1, "(V)",
         "Model,Other scope\r\nRecord Length,2000\r\nVertical Units,V\r\n\r\n"},
        {"no time column, interval in metadata", ",", false, Header::Plain, 2, false, 1, "", 1, "(V)",
         "Sample Interval,1e-06\r\n"},
        {"no header, semicolon, dt line", ";", true, Header::None, 3, false, 1, "", 1, "", "dt;0,000001\r\n"},
        {"no header, time column", ",", false, Header::None, 2, true, 1, "", 1, "", ""},
    };
    for (const auto& L : layouts) {
        SCOPED_TRACE(L.what);
        DsoSetup setup;
        WaveRecord record;
        const std::string bytes = makeFile(L);
        const WaveCsvLoadResult r = LoadAnyWaveCsvBytes(bytes, "cap.csv", setup, record);
        ASSERT_TRUE(r.ok()) << r.outcome.text();
        EXPECT_TRUE(r.generic);
        EXPECT_EQ(r.rowsRead, kRows);
        const int channels = L.signals <= 2 ? 2 : 4;
        EXPECT_EQ(setup.ChannelCount, channels);
        EXPECT_EQ(setup.Model, channels == 2 ? "IMPORT-2" : "IMPORT-4");
        EXPECT_EQ(setup.RecordLength, kRows);
        EXPECT_NEAR(setup.SampleInterval, kDt, kDt * 1e-6);
        if (L.timeColumn) {
            // The file's own first time is where the record starts.
            const double first = -(static_cast<double>(setup.TriggerDelay) + 5.0 * setup.TimePerDiv);
            EXPECT_NEAR(first, kT0, kDt * 1e-3);
        }
        for (int ch = 1; ch <= channels; ++ch) EXPECT_EQ(setup.TraceOn[ch], ch <= L.signals ? "ON" : "OFF") << ch;
        for (int c = 0; c < L.signals; ++c)
            for (int k = 0; k < kRows; k += 7) {
                if (L.voltScale == 1)
                    ASSERT_EQ(record.wave[c][k], sampleOf(c, k)) << "ch " << c + 1 << " row " << k;
                else
                    ASSERT_NEAR(record.wave[c][k], sampleOf(c, k), 1e-6) << "ch " << c + 1 << " row " << k;
            }
    }
}

TEST(GenericCsvTest, IntervalFromTheCommandLineForBareColumns) {
    const std::string bytes = "0.5\n1.5\n0.5\n1.5\n";
    WaveImportOptions options;
    options.sampleInterval = 2e-3;
    DsoSetup setup;
    WaveRecord record;
    WaveCsvLoadResult r = LoadAnyWaveCsvBytes(bytes, "bare.csv", setup, record, options);
    ASSERT_TRUE(r.ok()) << r.outcome.text();
    EXPECT_FLOAT_EQ(setup.SampleInterval, 2e-3f);
    EXPECT_EQ(record.wave[0][1], 1.5f);
    r = LoadAnyWaveCsvBytes(bytes, "bare.csv", setup, record);
    EXPECT_FALSE(r.ok());
    EXPECT_NE(r.outcome.text().find("--import-interval"), std::string::npos) << r.outcome.text();
}

TEST(GenericCsvTest, TimeColumnMustBeEvenlySpaced) {
    struct Case {
        const char* what;
        std::function<double(int)> time;
        int digits;
        int badRow;  // 0: accepted; -1: refused at some row
    };
    const int n = 1000;
    const Case cases[] = {
        {"exact", [](int k) { return k * 1e-6; }, 12, 0},
        {"jitter below 1 %", [](int k) { return k * 1e-6 + (k % 3 == 1 ? 0.5e-8 : 0.0); }, 12, 0},
        // Spread evenly, the gap leaves the rows around it off their places.
        {"a gap of ten samples", [](int k) { return (k < 500 ? k : k + 10) * 1e-6; }, 12, -1},
        {"one row out of place", [](int k) { return k == 321 ? 321.05e-6 : k * 1e-6; }, 12, 322},
        // A long capture printed to 6 digits: the rounding is far above 1 %.
        {"6 significant digits", [](int k) { return 1e-3 + k * 1e-9; }, 6, 0},
        // Past 1 ms the same digits stand for ten times coarser steps.
        {"6 significant digits across a decade", [](int k) { return 0.999e-3 + k * 2e-9; }, 6, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::string bytes = "Time(s),CH1(V)\n";
        for (int k = 0; k < n; ++k) bytes += doubleText(c.time(k), c.digits) + "," + (k % 10 < 5 ? "1" : "0") + "\n";
        DsoSetup setup;
        WaveRecord record;
        const WaveCsvLoadResult r = LoadGenericCsvBytes(bytes, "t.csv", setup, record);
        if (c.badRow < 0) {
            EXPECT_FALSE(r.ok());
            EXPECT_NE(r.outcome.text().find("not evenly spaced"), std::string::npos) << r.outcome.text();
        } else if (c.badRow) {
            EXPECT_FALSE(r.ok());
            EXPECT_NE(r.outcome.text().find("row " + std::to_string(c.badRow) + " "), std::string::npos)
                << r.outcome.text();
        } else {
            EXPECT_TRUE(r.ok()) << r.outcome.text();
        }
    }
}

TEST(GenericCsvTest, BadInputSaysWhy) {
    struct Case {
        const char* what;
        std::string bytes;
        const char* says;  // part of the error text; "" for an accepted file
        const char* warns;
    };
    std::string wide = "Time,A,B,C,D,E,F\n";
    for (int k = 0; k < 10; ++k) wide += std::to_string(k) + "e-6,1,2,3,4,5,6\n";
    const Case cases[] = {
        {"prose", "Dear user,\nthis is a letter.\nRegards\n", "not a wave file", ""},
        {"empty", "", "not a wave file", ""},
        {"a word among the numbers", "Time,CH1\n0,1\n1e-6,2\n2e-6,abc\n3e-6,1\n", "line 4: \"abc\" in column 2", ""},
        {"an empty column", "Time,CH1,CH2\n0,1,\n1e-6,2,\n2e-6,1,\n", "column 3 (\"CH2\") is empty", ""},
        {"a short row", "Time,CH1,CH2\n0,1,2\n1e-6,2,1\n2e-6,1,1\n3e-6\n", "line 5: column 2", ""},
        {"time going backwards", "Time,CH1\n3e-6,1\n2e-6,2\n1e-6,1\n", "does not increase", ""},
        {"no signal column", "Time\n0\n1e-6\n2e-6\n", "no signal column", ""},
        {"six signal columns", wide, "", "the first 4 are taken"},
        {"own header cut before its samples", "ModelName,DS-5354\nDelta (second), 1E-06 \n", "not a wave file", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        DsoSetup setup;
        WaveRecord record;
        const WaveCsvLoadResult r = LoadAnyWaveCsvBytes(c.bytes, "bad.csv", setup, record);
        if (*c.says) {
            EXPECT_FALSE(r.ok());
            EXPECT_EQ(r.outcome.text().rfind("bad.csv", 0), 0u) << r.outcome.text();
            EXPECT_NE(r.outcome.text().find(c.says), std::string::npos) << r.outcome.text();
        } else {
            EXPECT_TRUE(r.ok()) << r.outcome.text();
        }
        if (*c.warns) {
            ASSERT_EQ(r.warnings.size(), 1u);
            EXPECT_NE(r.warnings[0].find(c.warns), std::string::npos) << r.warnings[0];
            EXPECT_EQ(setup.ChannelCount, 4);
            EXPECT_EQ(record.wave[3][2], 4.0f);
        }
    }
}

TEST(GenericCsvTest, TwoReadersGiveWhatOneGives) {
    // A long file is read by two threads; a fault past the middle must name
    // the same line, and a clean file give the same record.
    auto file = [](int badRow, const char* cell) {
        std::string bytes = "Time(s),CH1(V),CH2(V)\r\n\r\n";
        for (int k = 0; k < 3000; ++k) {
            bytes += doubleText(k * 1e-6) + "," + (k == badRow ? cell : floatText(sampleOf(0, k))) + "," +
                     floatText(sampleOf(3, k)) + "\r\n";
            if (k % 100 == 0) bytes += "\r\n";
        }
        return bytes;
    };
    struct Case {
        int badRow;
        const char* cell;
        const char* says;
    };
    const Case cases[] = {{-1, "", ""},
                          {2500, "x1", "\"x1\" in column 2"},
                          {2999, "", "column 2 (\"CH1(V)\") is empty"},
                          {10, "1..", "not a number"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.badRow);
        const std::string bytes = file(c.badRow, c.cell);
        WaveImportOptions one;
        WaveImportOptions two;
        two.own.splitBytes = 1024;
        DsoSetup s1, s2;
        WaveRecord r1, r2;
        const WaveCsvLoadResult a = LoadGenericCsvBytes(bytes, "split.csv", s1, r1, one);
        const WaveCsvLoadResult b = LoadGenericCsvBytes(bytes, "split.csv", s2, r2, two);
        EXPECT_EQ(a.outcome, b.outcome);
        EXPECT_EQ(a.outcome.text(), b.outcome.text());
        EXPECT_NE(a.outcome.text().find(c.says), std::string::npos) << a.outcome.text();
        // A refused file keeps the rows before the fault, however it was read.
        ASSERT_EQ(a.rowsRead, b.rowsRead);
        for (int ch = 0; ch < 2; ++ch)
            EXPECT_TRUE(std::equal(r1.wave[ch].begin(), r1.wave[ch].begin() + a.rowsRead, r2.wave[ch].begin()));
        if (c.badRow < 0) {
            ASSERT_TRUE(a.ok()) << a.outcome.text();
            EXPECT_EQ(s1.RecordLength, 3000);
            EXPECT_EQ(s1.VoltsPerDiv, s2.VoltsPerDiv);
            EXPECT_EQ(s1.Offset, s2.Offset);
            for (int ch = 0; ch < 2; ++ch)
                EXPECT_TRUE(std::equal(r1.wave[ch].begin(), r1.wave[ch].begin() + 3000, r2.wave[ch].begin()));
        } else {
            // The line: two header lines, a blank one every hundred rows.
            const int line = 3 + c.badRow + (c.badRow - 1) / 100 + 1;
            EXPECT_NE(a.outcome.text().find("line " + std::to_string(line) + ":"), std::string::npos)
                << a.outcome.text();
        }
    }
}

// Sample texts of every length an export prints, read by the generic reader,
// against the correctly rounded float of std::from_chars: the 8- and 9-digit
// texts most exports write, and texts on and beside the points halfway
// between two floats, where a double rounded again to float can go wrong.
TEST(GenericCsvTest, SamplesAreTheNearestFloat) {
    std::vector<std::string> texts;
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> volts(-12.0f, 12.0f);
    char buf[64];
    for (int i = 0; i < 3000; ++i) {
        const float f = volts(rng);
        for (int digits : {6, 8, 9, 12}) {
            std::snprintf(buf, sizeof buf, "%.*g", digits, static_cast<double>(f));
            texts.emplace_back(buf);
        }
        // Halfway to the next float, exactly and a hair either side.
        const double mid = (static_cast<double>(f) + static_cast<double>(std::nextafter(f, 100.0f))) / 2;
        for (double m : {mid, std::nextafter(mid, 0.0), std::nextafter(mid, 100.0)}) {
            for (int digits : {16, 17}) {
                std::snprintf(buf, sizeof buf, "%.*g", digits, m);
                texts.emplace_back(buf);
            }
        }
    }
    // Leading zeros, plain decimals at the edges of the eight-character
    // steps (8, 16 and 17 places), digits beyond what a mantissa takes, the
    // float range's ends, signs and exponent forms.
    for (const char* t : {"0.000012345678",
                          "000123.5",
                          "0.1234567812345678",
                          "0.12345678123456789",
                          "1.2345678e3",
                          "0.00000000",
                          "1.00000000",
                          "9.9999999999999999",
                          "0.0000000000000001",
                          "-0.00000000000000000000123456",
                          "12345678901234567890123",
                          "0.1234567890123456789",
                          "1234567.25",
                          "00000000",
                          "-0",
                          "7",
                          "1e-7",
                          "12345678e-9",
                          "0.1",
                          "-0.8325195",
                          "+1.5",
                          "16777216",
                          "16777217",
                          "3.4028235e38",
                          "1e-10",
                          "1.17549435E-38",
                          "0.000000001",
                          "123456789012345678901",
                          "2.5e-3",
                          "7E-03",
                          "99999999.5",
                          "0.30000001192092896"})
        texts.emplace_back(t);
    // Each text twice: inside the row, where the reader has the following
    // characters to read ahead into, and as the row's last field.
    std::string file = "Time(s),CH1(V),CH2(V)\r\n";
    for (size_t k = 0; k < texts.size(); ++k) file += std::to_string(k) + "e-6," + texts[k] + "," + texts[k] + "\r\n";

    DsoSetup setup;
    WaveRecord record;
    const WaveCsvLoadResult r = LoadGenericCsvBytes(file, "numbers.csv", setup, record);
    ASSERT_TRUE(r.ok()) << r.outcome.text();
    ASSERT_EQ(static_cast<size_t>(r.rowsRead), texts.size());
    for (size_t k = 0; k < texts.size(); ++k) {
        std::string_view t = texts[k];
        if (t.front() == '+') t.remove_prefix(1);  // from_chars takes no plus sign
        float want = 0;
        ASSERT_EQ(std::from_chars(t.data(), t.data() + t.size(), want).ec, std::errc()) << t;
        ASSERT_EQ(record.wave[0][k], want) << t;
        ASSERT_EQ(record.wave[1][k], want) << t;
    }
}

TEST(GenericCsvTest, RowsBeyondTheLongestRecordAreRefused) {
    WaveImportOptions options;
    options.sampleInterval = 1e-9;
    std::string bytes;
    bytes.reserve(2 * (kMaxSamples + 1));
    for (int32_t k = 0; k < kMaxSamples; ++k) bytes += k & 64 ? "1\n" : "0\n";
    DsoSetup setup;
    WaveRecord record;
    WaveCsvLoadResult r = LoadGenericCsvBytes(bytes, "long.csv", setup, record, options);
    ASSERT_TRUE(r.ok()) << r.outcome.text();
    EXPECT_EQ(r.rowsRead, kMaxSamples);
    EXPECT_EQ(setup.RecordLength, 5000010);
    bytes += "1\n";
    r = LoadGenericCsvBytes(bytes, "long.csv", setup, record, options);
    EXPECT_FALSE(r.ok());
    EXPECT_NE(r.outcome.text().find("more than 5000011 rows"), std::string::npos) << r.outcome.text();
}

TEST(GenericCsvTest, VoltsPerDivisionFromTheOneTwoFiveSeries) {
    struct Case {
        double range, floor;
        float vdiv;
    };
    const Case cases[] = {
        {5.0, 0, 1.0f}, {8.0, 0, 1.0f},     {8.01, 0, 2.0f},   {0.3, 0, 0.05f},
        {3.3, 0, 0.5f}, {0.0, 1e-3, 1e-3f}, {0.02, 0.2, 0.2f}, {120, 0, 20.0f},
    };
    for (const auto& c : cases) EXPECT_FLOAT_EQ(VoltsPerDivFor(c.range, c.floor), c.vdiv) << c.range;

    // Noise beside pulses gets the record's floor, not a scale of its own
    // that would blow it up to full screen.
    std::string bytes = "Time(s),CH1(V),CH2(V),CH3(V)\n";
    for (int k = 0; k < 100; ++k)
        bytes += doubleText(k * 1e-6) + "," + floatText(sampleOf(0, k)) + "," + floatText(sampleOf(2, k)) + "," +
                 floatText(sampleOf(1, k)) + "\n";
    DsoSetup setup;
    WaveRecord record;
    ASSERT_TRUE(LoadGenericCsvBytes(bytes, "n.csv", setup, record).ok());
    EXPECT_FLOAT_EQ(setup.VoltsPerDiv[1], 1.0f);
    EXPECT_FLOAT_EQ(setup.VoltsPerDiv[2], 0.2f);
    EXPECT_FLOAT_EQ(setup.VoltsPerDiv[3], 0.5f);
    EXPECT_FLOAT_EQ(setup.Offset[1], -2.5f);
    EXPECT_EQ(setup.TraceOn[4], "OFF");
}

class GenericCsvFileTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = test::FreshTestFolder("mervasto_generic_"); }
    void TearDown() override { fs::remove_all(dir_); }
    std::string path(const char* name) const { return (dir_ / name).string(); }
    fs::path dir_;
};

TEST_F(GenericCsvFileTest, OwnLayoutIsRecognisedAndBothConvertBack) {
    // A generic capture saved in the program's own layout and in the generic
    // one loads back to the same samples, interval and start time.
    Layout L{"", ",", false, Header::Plain, 3, true, 1, "Time(s)", 1, "(V)", ""};
    std::ofstream(path("in.csv"), std::ios::binary) << makeFile(L);
    DsoSetup setup;
    WaveRecord record;
    WaveCsvLoadResult r = LoadAnyWaveCsv(path("in.csv"), setup, record);
    ASSERT_TRUE(r.ok()) << r.outcome.text();
    EXPECT_EQ(setup.DateTime.size(), 19u) << setup.DateTime;
    ASSERT_TRUE(SaveGenericCsv(path("generic.csv"), setup, record));
    ASSERT_TRUE(SaveWaveCsv(path("own.csv"), setup, record));

    for (const char* name : {"generic.csv", "own.csv"}) {
        SCOPED_TRACE(name);
        DsoSetup back;
        WaveRecord again;
        r = LoadAnyWaveCsv(path(name), back, again);
        ASSERT_TRUE(r.ok()) << r.outcome.text();
        EXPECT_EQ(r.generic, std::string(name) == "generic.csv");
        EXPECT_EQ(back.ChannelCount, 4);
        EXPECT_EQ(back.RecordLength, kRows);
        EXPECT_NEAR(back.SampleInterval, kDt, kDt * 1e-6);
        EXPECT_NEAR(-(static_cast<double>(back.TriggerDelay) + 5.0 * back.TimePerDiv), kT0, kDt * 1e-2);
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < kRows; k += 13) ASSERT_NEAR(again.wave[c][k], record.wave[c][k], 1e-6) << c << " " << k;
    }
}

TEST(GenericCsvTest, OwnLayoutNeedsItsHeaderKeys) {
    struct Case {
        const char* head;
        bool own;
    };
    const Case cases[] = {
        {"ModelName,DS-5354\r\nDelta (second), 1E-06 \r\nPoints , 10 \r\nCh1 V,Ch2 V\r\n", true},
        {"\r\nModelName,X\r\nTime/div(second), 1 \r\nDelta (second), 1 \r\nPoints , 1 \r\nCh1 V,Ch2 V\r\n", true},
        {"ModelName,DS-5354\r\nDelta (second), 1E-06 \r\nCh1 V,Ch2 V\r\n", false},
        {"Delta (second), 1E-06 \r\nModelName,DS-5354\r\nPoints , 10 \r\nCh1 V,Ch2 V\r\n", false},
        {"Time(s),CH1(V)\r\n0,1\r\n", false},
    };
    for (const auto& c : cases) EXPECT_EQ(IsOwnWaveLayout(c.head), c.own) << c.head;
}

}  // namespace
}  // namespace mervasto
