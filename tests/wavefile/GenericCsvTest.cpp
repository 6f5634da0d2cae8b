#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <algorithm>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

#include "support/FileBytes.h"
#include "support/TestFolder.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/GenericCsvLayout.h"
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

// How the rows of the known capture are written.
struct Rows {
    enum Time { None, Seconds, Index } time = Seconds;
    std::string sep = ",";
    bool decimalComma = false;
    int signals = 2;
    double timeScale = 1;                // 1e3 for a column in ms
    double voltScale = 1;                // 1e3 for columns in mV
    std::vector<std::string> side = {};  // cells before the samples, row by row ...
    std::string before = "";             // ... and after those rows
    bool trailingSep = false;
    int first = 0;  // the capture's first channel in these columns
};

std::string number(double v, bool decimalComma, bool asFloat) {
    std::string s = asFloat ? floatText(static_cast<float>(v)) : doubleText(v);
    if (decimalComma)
        for (char& c : s)
            if (c == '.') c = ',';
    return s;
}

std::string rowsOf(const Rows& f) {
    std::string out;
    for (int k = 0; k < kRows; ++k) {
        std::vector<std::string> cells;
        if (f.time == Rows::Seconds) cells.push_back(number((kT0 + k * kDt) * f.timeScale, f.decimalComma, false));
        if (f.time == Rows::Index) cells.push_back(std::to_string(k));
        for (int c = 0; c < f.signals; ++c)
            cells.push_back(f.voltScale == 1 ? number(sampleOf(f.first + c, k), f.decimalComma, true)
                                             : number(sampleOf(f.first + c, k) * f.voltScale, f.decimalComma, false));
        out += k < static_cast<int>(f.side.size()) ? f.side[static_cast<size_t>(k)] : f.before;
        for (size_t i = 0; i < cells.size(); ++i) out += (i ? f.sep : "") + cells[i];
        out += (f.trailingSep ? f.sep : "") + "\r\n";
    }
    return out;
}

// The known capture in one layout: the lines above the rows, then the rows.
struct Capture {
    std::string what;
    const char* rule;  // the rule of LayoutRules() it shows
    std::string head;
    Rows rows;
    double t0 = kT0;   // the first row's time, as the file gives it (0: not given)
    double given = 0;  // --import-interval
};

// One channel of the capture with its instrument's setup beside the first
// rows, as instruments that write a file per channel do.
Rows besideTheSamples(int channel) {
    Rows r;
    r.signals = 1;
    r.first = channel;
    r.before = ",,,";
    r.trailingSep = true;
    for (const char* key :
         {"Record Length,2000", "Sample Interval,1.000000e-06", "Trigger Point,1000", "Source,CH1", "Vertical Units,V",
          "Vertical Scale,1.000000e+00", "Vertical Offset,0", "Horizontal Units,s", "Horizontal Scale,2.000000e-04",
          "Pt Fmt,Y", "Yzero,0", "Probe Atten,1.000000e+01", "Model Number,SCOPE", "Serial Number,X1",
          "Firmware Version,1.0"})
        r.side.push_back(std::string(key) + ",,");
    return r;
}

Rows cols(int signals, const char* sep = ",", bool decimalComma = false) {
    return {Rows::Seconds, sep, decimalComma, signals};
}

std::vector<Capture> everyLayout() {
    const Rows plain;
    Rows signalsOnly;
    signalsOnly.time = Rows::None;
    Rows index = plain;
    index.time = Rows::Index;
    Rows trailing = index;
    trailing.trailingSep = true;
    Rows startInc = signalsOnly;
    startInc.trailingSep = true;
    const Rows tab{Rows::Seconds, "\t", false, 4, 1e6, 1e3}, dtLine{Rows::None, ";", true, 3};
    Rows numbered = plain;
    numbered.before = "7,";  // whatever it numbers, it is no signal

    std::vector<Capture> c = {
        {"comma, Time(s)", "one header line", "Time(s),CH1(V),CH2(V)\r\n", plain},
        {"semicolon, decimal comma, names then units", "units under the names", "TIME;C1;C2;C3\r\ns;V;V;V\r\n",
         cols(3, ";", true)},
        {"tab, µs and mV", "time column by name", "Time [\xC2\xB5s]\tCH1 [mV]\tCH2 [mV]\tCH3 [mV]\tCH4 [mV]\r\n", tab},
        {"blanks, x-axis and units line", "units under the names", "x-axis  1  2\r\nsecond  Volt  Volt\r\n",
         cols(2, "  ")},
        {"blanks, decimal comma", "time column by its unit", "Second CH1(V)\r\n", cols(1, " ", true)},
        {"metadata block", "metadata above the header",
         "Model,Other scope\r\nRecord Length,2000\r\nVertical Units,V\r\n\r\ntime,CH1(V),CH2(V),CH3(V)\r\n", cols(3)},
        {"no time column, interval in metadata", "interval or rate in the head",
         "Sample Interval,1e-06\r\nCH1(V),CH2(V)\r\n", signalsOnly, 0},
        {"no header, semicolon, dt line", "interval or rate in the head", "dt;0,000001\r\n", dtLine, 0},
        {"no header, time column", "time in the first column", "", plain},
        {"no header, the interval known and a time column", "time in the first column", "Sample Interval,1 us\r\n",
         plain},
        {"sample numbers, start and increment under the names", "start and increment under the names",
         "X,CH1,CH2,Start,Increment,\r\nSequence,Volt,Volt,-1.000000e-03,1.000000e-06,\r\n", trailing},
        {"start and increment in the header line", "start and increment in the header line",
         "CH1,CH2,t0 = -0.001s, tInc = 1e-06,\r\n", startInc},
        {"the same, numbers alone", "start and increment in the header line",
         "CH1,CH2,t0 =-1.000000e-03, tInc = 1.000000e-06,\r\n", startInc},
        {"Second,Volt under metadata lines", "time column by its unit",
         "Source,CH1\r\nRecord Length,2000\r\nSample Interval,1.000000e-06\r\nSecond,Volt\r\n", cols(1)},
        {"Second,Value under metadata lines", "metadata above the header",
         "Source,CH1\r\nSample Interval,1.000000e-06\r\nSecond,Value\r\n", cols(1)},
        {"one file of a channel, metadata beside the samples", "metadata beside the samples", "", besideTheSamples(0)},
        {"comment line and a blank line above the header", "comment lines",
         "#timebase=2.000000e-04,#voltbase=1.000000e+00\r\n\r\ns,V,V\r\n", plain},
        {"index and a metadata interval", "sample-number column", "Sample Interval,1e-06\r\nindex,CH1,CH2\r\n", index,
         0},
        {"No. beside a time column", "sample-number column", "No.,Time,CH1,CH2\r\n", numbered},
        {"Sample and the interval given", "sample-number column", "Sample,CH1,CH2\r\n", index, 0, kDt},
        {"Samples and a sample rate", "sample-number column", "Sample Rate,1.00E+06\r\nSamples,CH1,CH2\r\n", index, 0},
        {"Sequence and a rate in a comment", "comment lines", "; Samplerate: 1 MHz\r\nSequence,CH1,CH2\r\n", index, 0},
        {"a rate with units", "interval or rate in the head", "Sample Rate,1 MSa/s\r\nCH1,CH2\r\n", signalsOnly, 0},
        {"byte-order mark", "byte-order mark", "\xEF\xBB\xBFTime(s),CH1(V),CH2(V)\r\n", plain},
    };
    // The time column named by its unit alone, in every spelling.
    const std::pair<const char*, double> units[] = {{"s", 1},           {"ms", 1e3}, {"us", 1e6},
                                                    {"\xC2\xB5s", 1e6}, {"ns", 1e9}, {"in s", 1},
                                                    {"(s)", 1},         {"[s]", 1},  {"Time [ms]", 1e3}};
    for (const auto& [name, scale] : units) {
        Rows r = plain;
        r.timeScale = scale;
        c.push_back({std::string("time column named ") + name, "time column by its unit",
                     std::string(name) + ",CH1,CH2\r\n", r});
    }
    c.back().rule = "time column by name";
    return c;
}

TEST(GenericCsvTest, EveryLayoutGivesTheSameRecord) {
    const std::vector<Capture> captures = everyLayout();
    for (const LayoutRule& rule : LayoutRules())
        EXPECT_TRUE(std::any_of(captures.begin(), captures.end(),
                                [&](const Capture& c) { return std::string(c.rule) == rule.name; }))
            << "no capture shows the rule \"" << rule.name << "\"";
    for (const auto& L : captures) {
        SCOPED_TRACE(L.what);
        DsoSetup setup;
        WaveRecord record;
        WaveImportOptions options;
        options.sampleInterval = L.given;
        const WaveCsvLoadResult r = LoadAnyWaveCsvBytes(L.head + rowsOf(L.rows), "cap.csv", setup, record, options);
        ASSERT_TRUE(r.ok()) << r.outcome.text();
        EXPECT_TRUE(r.generic);
        EXPECT_NE(r.layout.find(L.rule), std::string::npos) << r.layout;
        EXPECT_EQ(r.rowsRead, kRows);
        const int signals = L.rows.signals;
        const int channels = signals <= 2 ? 2 : 4;
        EXPECT_EQ(setup.ChannelCount, channels);
        EXPECT_EQ(setup.RecordLength, kRows);
        EXPECT_NEAR(setup.SampleInterval, kDt, kDt * 1e-6);
        // The first row's time, where the file gives one, is where the record starts.
        const double first = -(static_cast<double>(setup.TriggerDelay) + 5.0 * setup.TimePerDiv);
        EXPECT_NEAR(first, L.t0, kDt * 1e-3);
        for (int ch = 1; ch <= channels; ++ch)
            EXPECT_EQ(setup.trace(ch - 1).TraceOn, ch <= signals ? "ON" : "OFF") << ch;
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < kRows; k += 7) {
                const float want = c < signals ? sampleOf(c, k) : 0.0f;  // a channel the file lacks holds nothing
                // Samples printed in volts read back exactly; in millivolts, to rounding.
                ASSERT_NEAR(record.wave[c][k], want, L.rows.voltScale == 1 ? 0 : 1e-6)
                    << "ch " << c + 1 << " row " << k;
            }
    }
}

// The time must increase from row to row and within the documented
// tolerance: 1 % of the interval plus half a unit of the last printed digit.
TEST(GenericCsvTest, TimeColumnMustIncreaseEvenly) {
    struct Case {
        const char* what;
        std::function<double(int)> time;
        const char* format;  // of the time
        const char* says;    // "" when accepted
    };
    const int n = 1000;
    const Case cases[] = {
        {"exact", [](int k) { return k * 1e-6; }, "%.12g", ""},
        {"jitter below 1 %", [](int k) { return k * 1e-6 + (k % 3 == 1 ? 0.9e-8 : 0.0); }, "%.12g", ""},
        {"one row 1.2 % off", [](int k) { return k == 321 ? 321.012e-6 : k * 1e-6; }, "%.12g", "row 322 is at"},
        // Spread evenly, the gap leaves the rows around it off their places.
        {"a gap of ten samples", [](int k) { return (k < 500 ? k : k + 10) * 1e-6; }, "%.12g", "not evenly spaced"},
        {"two rows swapped",
         [](int k) {
             return (k == 321 ? 322 : k == 322 ? 321 : k) * 1e-6;
         },
         "%.12g", "row 323 is at time 0.000321 s, before row 322"},
        {"a time repeated", [](int k) { return (k == 600 ? 599 : k) * 1e-6; }, "%.12g",
         "row 601 is at time 0.000599 s, the same as row 600"},
        {"the first row repeated", [](int k) { return (k == 0 ? 1 : k) * 1e-6; }, "%.12g", "row 2 is at"},
        {"backwards throughout", [](int k) { return (n - k) * 1e-6; }, "%.12g", "row 2 is at time 0.000999 s, before"},
        // Printed to 5 places, one printed unit is 10 % of the interval.
        {"a row a printed unit off", [](int k) { return k * 1e-4 + (k == 300 ? 1e-5 : 0.0); }, "%.5f", ""},
        {"a row two printed units off", [](int k) { return k * 1e-4 + (k == 300 ? 2e-5 : 0.0); }, "%.5f",
         "row 301 is at"},
        // A long capture printed to 6 digits: the rounding is far above 1 %,
        // and rows print the same time, which is no fault there.
        {"6 significant digits", [](int k) { return 1e-3 + k * 1e-9; }, "%.6g", ""},
        // Past 1 ms the same digits stand for ten times coarser steps.
        {"6 significant digits across a decade", [](int k) { return 0.999e-3 + k * 2e-9; }, "%.6g", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::string bytes = "Time(s),CH1(V)\n";
        char t[64];
        for (int k = 0; k < n; ++k) {
            std::snprintf(t, sizeof t, c.format, c.time(k));
            bytes += std::string(t) + "," + (k % 10 < 5 ? "1" : "0") + "\n";
        }
        DsoSetup setup;
        WaveRecord record;
        const WaveCsvLoadResult r = LoadGenericCsvBytes(bytes, "t.csv", setup, record);
        EXPECT_EQ(r.ok(), !*c.says) << r.outcome.text();
        EXPECT_NE(r.outcome.text().find(c.says), std::string::npos) << r.outcome.text();
    }
}

std::string tenRows(const char* head, const std::function<std::string(int)>& row, int rows = 12) {
    std::string out = head;
    for (int k = 0; k < rows; ++k) out += row(k) + "\n";
    return out;
}

TEST(GenericCsvTest, BadInputSaysWhy) {
    struct Case {
        const char* what;
        std::string bytes;
        const char* says;  // part of the error text; "" for an accepted file
        const char* warns;
    };
    auto pulses = [](int k) { return std::to_string(k % 4 < 2); };
    auto timed = [&](int k) { return std::to_string(k) + "e-6," + pulses(k); };
    std::string wide = "Time,A,B,C,D,E,F\n";
    for (int k = 0; k < 10; ++k) wide += std::to_string(k) + "e-6,1,2,3,4,5,6\n";
    std::string late(70000, 'x');
    late = "Note," + late + "\n";
    const Case cases[] = {
        {"prose", "Dear user,\nthis is a letter.\nRegards\n", "not a wave file", ""},
        {"empty", "", "not a wave file", ""},
        {"rows only after the first 64 KiB", tenRows(late.c_str(), timed), "not a wave file", ""},
        {"a word among the numbers", "Time,CH1\n0,1\n1e-6,2\n2e-6,abc\n3e-6,1\n", "line 4: \"abc\" in column 2", ""},
        {"an empty column", "Time,CH1,CH2\n0,1,\n1e-6,2,\n2e-6,1,\n", "column 3 (\"CH2\") is empty", ""},
        {"a short row", "Time,CH1,CH2\n0,1,2\n1e-6,2,1\n2e-6,1,1\n3e-6\n", "line 5: column 2", ""},
        {"nine rows", tenRows("Time,CH1\n", timed, 9), "9 sample rows; a capture needs at least 10", ""},
        {"no signal column", tenRows("Time\n", [](int k) { return std::to_string(k); }), "no signal column", ""},
        {"six signal columns", wide, "", "the first 4 are taken"},
        {"own header cut before its samples", "ModelName,DS-5354\nDelta (second), 1E-06 \n", "not a wave file", ""},
        // The time base, where it cannot be told for sure.
        {"bare numbers, no interval", tenRows("", pulses), "give it with --import-interval", ""},
        {"named columns, no time, no interval", tenRows("CH1,CH2\n", timed), "line 1: no column here is the time", ""},
        {"sample numbers, no interval", tenRows("Info,1\nindex,CH1\n", timed),
         "line 2: column 1 (\"index\") numbers the samples, and no line gives the sample interval", ""},
        {"two intervals that disagree", tenRows("Sample Interval,1e-06\nSample Rate,2 MHz\nCH1,CH2\n", timed),
         "line 2: the sample interval is 5E-07 s here but 1E-06 s in line 1", ""},
        {"an interval the time column contradicts", tenRows("Sample Interval,2 us\nTime,CH1\n", timed),
         "line 1: the sample interval is 2E-06 s, but the time column steps 1E-06 s", ""},
        {"an interval not understood", tenRows("Sample Interval,soon\nCH1,CH2\n", timed),
         "line 1: the sample interval (or rate) is not understood", ""},
        {"an increment not understood", tenRows("X,CH1,Start,Increment\nSequence,Volt,0,abc\n", timed),
         "line 2: the sample interval (or rate) is not understood", ""},
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
            EXPECT_EQ(std::make_pair(s1.RecordLength, a.rowsRead), std::make_pair(3000, 3000));
            for (int t = 0; t < kSetupTraces; ++t) EXPECT_EQ(s1.trace(t), s2.trace(t)) << t;
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
    std::istringstream more(
        "0.000012345678 000123.5 0.1234567812345678 0.12345678123456789 1.2345678e3 0.00000000 "
        "1.00000000 9.9999999999999999 0.0000000000000001 -0.00000000000000000000123456 "
        "12345678901234567890123 0.1234567890123456789 1234567.25 00000000 -0 7 1e-7 12345678e-9 0.1 "
        "-0.8325195 +1.5 16777216 16777217 3.4028235e38 1e-10 1.17549435E-38 0.000000001 "
        "123456789012345678901 2.5e-3 7E-03 99999999.5 0.30000001192092896 ");
    for (std::string t; more >> t;) texts.push_back(t);
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
    EXPECT_FLOAT_EQ(setup.trace(0).VoltsPerDiv, 1.0f);
    EXPECT_FLOAT_EQ(setup.trace(1).VoltsPerDiv, 0.2f);
    EXPECT_FLOAT_EQ(setup.trace(2).VoltsPerDiv, 0.5f);
    EXPECT_FLOAT_EQ(setup.trace(0).Offset, -2.5f);
    EXPECT_EQ(setup.trace(3).TraceOn, "OFF");
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
    std::ofstream(path("in.csv"), std::ios::binary) << "Time(s),CH1(V),CH2(V),CH3(V)\r\n" << rowsOf(cols(3));
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

#ifndef _WIN32
// A named pipe written by another program gives each byte once: the layout
// is told from the first bytes and the same bytes are read on, on one thread.
TEST_F(GenericCsvFileTest, APipeIsReadOnce) {
    std::signal(SIGPIPE, SIG_IGN);   // a reader that stops early ends the writer
    Capture big = everyLayout()[2];  // four columns: more than the head the layout is told from
    const std::string generic = big.head + rowsOf(big.rows);
    ASSERT_GT(generic.size(), kLayoutBytes);
    DsoSetup setup;
    WaveRecord record;
    ASSERT_TRUE(LoadAnyWaveCsvBytes(generic, "mem", setup, record).ok());
    ASSERT_TRUE(SaveWaveCsv(path("own.csv"), setup, record));
    const std::string own = test::ReadBytes(path("own.csv"));

    for (const std::string* bytes : {&generic, &own}) {
        const std::string fifo = path("fifo.csv");
        fs::remove(fifo);
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        std::thread writer([&] { std::ofstream(fifo, std::ios::binary) << *bytes; });
        DsoSetup s2;
        WaveRecord r2;
        const WaveCsvLoadResult r = LoadAnyWaveCsv(fifo, s2, r2);
        writer.join();
        ASSERT_TRUE(r.ok()) << r.outcome.text();
        EXPECT_EQ(r.generic, bytes == &generic);
        EXPECT_EQ(r.rowsRead, kRows);
        for (int c = 0; c < 4; ++c)
            EXPECT_TRUE(std::equal(r2.wave[c].begin(), r2.wave[c].begin() + kRows, record.wave[c].begin())) << c;
    }
}
#endif

TEST_F(GenericCsvFileTest, FilesOfOneCaptureCombineInOrder) {
    auto write = [&](const std::string& name, const std::string& bytes) {
        std::ofstream(path(name.c_str()), std::ios::binary) << bytes;
        return path(name.c_str());
    };
    std::vector<std::string> channel;
    for (int c = 0; c < 3; ++c)
        channel.push_back(write("ch" + std::to_string(c + 1) + ".csv", rowsOf(besideTheSamples(c))));
    Rows slow = cols(1);
    slow.timeScale = 2;
    std::string cut = rowsOf(besideTheSamples(1));
    cut.resize(cut.rfind("\r\n", cut.size() - 3) + 2);
    const std::string three = write("three.csv", "Time,A,B,C\r\n" + rowsOf(cols(3)));
    struct Case {
        std::vector<std::string> files;
        int channels;      // of the record; 0 when refused
        const char* says;  // the refusal
    };
    const Case cases[] = {
        {{channel[0], channel[1]}, 2, ""},
        {{channel[0], channel[1], channel[2]}, 4, ""},
        {{channel[0], write("cut.csv", cut)}, 0, "cut.csv has 1999 sample rows and "},
        {{channel[0], write("slow.csv", "Time,CH1\r\n" + rowsOf(slow))}, 0, "slow.csv is sampled every 2E-06 s and "},
        {{three, channel[0], channel[1]}, 0, "the files hold 5 channels; a record takes at most 4"},
        {{channel[0], write("letter.csv", "Dear user\r\n")}, 0, "letter.csv: not a wave file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.files.back());
        DsoSetup setup;
        WaveRecord record;
        const WaveCsvLoadResult r = LoadCombinedWaveCsv(c.files, setup, record);
        ASSERT_EQ(r.ok(), c.channels > 0) << r.outcome.text();
        if (!r.ok()) {
            EXPECT_NE(r.outcome.text().find(c.says), std::string::npos) << r.outcome.text();
            continue;
        }
        EXPECT_EQ(setup.ChannelCount, c.channels);
        EXPECT_EQ(r.rowsRead, kRows);
        EXPECT_NEAR(setup.SampleInterval, kDt, kDt * 1e-6);
        EXPECT_NEAR(-(static_cast<double>(setup.TriggerDelay) + 5.0 * setup.TimePerDiv), kT0, kDt * 1e-3);
        for (int ch = 0; ch < c.channels; ++ch) {
            const bool held = ch < static_cast<int>(c.files.size());
            EXPECT_EQ(setup.traceOn(ch), held ? "ON" : "OFF");
            for (int k = 0; k < kRows; k += 7) ASSERT_EQ(record.wave[ch][k], held ? sampleOf(ch, k) : 0.0f) << ch;
        }
    }
}

}  // namespace
}  // namespace mervasto
