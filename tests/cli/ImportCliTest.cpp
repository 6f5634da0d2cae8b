#include "cli/Cli.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#ifndef _WIN32
#include <unistd.h>
#endif

#include "support/QtTestApp.h"
#include "CliRun.h"
#include "support/TestFolder.h"
#include "wavefile/WaveCsv.h"

using namespace mervasto;

namespace {

MERVASTO_QT_TEST_APP(QCoreApplication);

constexpr int kRows = 20000;
constexpr double kDt = 2e-7;
constexpr double kT0 = -1e-3;

// Pulses of 0/5 V whose period wanders (so that sigma is not 0), a 3.3 V
// clock, and noise of a few millivolts that must be left out.
float sampleOf(int ch, int k) {
    switch (ch) {
    case 0: {
        const int period = 90 + (k / 1000) % 7 * 3;
        return k % period < period / 3 ? 5.0f : 0.0f;
    }
    case 1: return k % 64 < 20 ? 3.3f : 0.0f;
    default: return static_cast<float>((k * 7919 % 21) - 10) * 0.001f;
    }
}

std::string text(double v, bool decimalComma, int digits = 0) {
    char buf[64];
    char* end = digits ? std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, digits).ptr
                       : std::to_chars(buf, buf + sizeof buf, static_cast<float>(v)).ptr;
    std::string s(buf, end);
    if (decimalComma)
        for (char& c : s)
            if (c == '.') c = ',';
    return s;
}

class ImportCliTest : public test::CliRun {
protected:
    ImportCliTest() : CliRun("mervasto-import-", false) {}
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
#ifndef _WIN32
    // Runs the command with bytes on its standard input, written by a thread
    // into a pipe as a shell would pipe them.
    int runWithInput(const std::vector<std::string>& args, const std::string& bytes) {
        std::signal(SIGPIPE, SIG_IGN);  // a reader that stops early ends the writer
        int fds[2];
        EXPECT_EQ(pipe(fds), 0);
        const int saved = dup(0);
        dup2(fds[0], 0);
        close(fds[0]);
        std::thread writer([&bytes, fd = fds[1]] {
            for (size_t done = 0; done < bytes.size();) {
                const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
                if (n <= 0) break;
                done += static_cast<size_t>(n);
            }
            close(fd);
        });
        const int status = run(args);
        dup2(saved, 0);
        close(saved);
        writer.join();
        return status;
    }
#endif
    // The per-channel result lines without the file name.
    std::string resultsOf(const std::string& file, std::vector<std::string> extra = {},
                          const std::string* input = nullptr) {
        std::vector<std::string> args = {"analyze", "--no-save", "--format", "csv"};
        args.insert(args.end(), extra.begin(), extra.end());
        args.push_back(file);
#ifndef _WIN32
        EXPECT_EQ(input ? runWithInput(args, *input) : run(args), kExitOk) << file << ": " << err.str();
#else
        EXPECT_EQ(run(args), kExitOk) << file << ": " << err.str();
#endif
        std::istringstream in(out.str());
        std::string all;
        std::string line;
        std::getline(in, line);  // column names
        while (std::getline(in, line)) all += line.substr(line.find(',')) + "\n";
        return all;
    }
};

TEST_F(ImportCliTest, EveryLayoutAnalysesLikeTheOwnLayout) {
    // The own file, written at the volts per division the import chooses.
    DsoSetup setup;
    setup.Model = "DS-5354";
    setup.ChannelCount = 4;
    setup.SampleInterval = static_cast<float>(kDt);
    setup.RecordLength = kRows;
    setup.TimePerDiv = static_cast<float>(kRows * kDt / 10);
    const float vdiv[] = {1.0f, 0.5f, 0.2f, 0.2f};
    const float offset[] = {-2.5f, static_cast<float>(-double{3.3f} / 2), 0.0f, 0.0f};
    WaveRecord record;
    record.ensureLength(kRows);
    for (int ch = 1; ch <= 4; ++ch) {
        setup.trace(ch - 1).TraceOn = ch <= 3 ? "ON" : "OFF";
        setup.trace(ch - 1).VoltsPerDiv = vdiv[ch - 1];
        setup.trace(ch - 1).Offset = offset[ch - 1];
    }
    for (int c = 0; c < 3; ++c)
        for (int k = 0; k < kRows; ++k) record.wave[c][k] = sampleOf(c, k);
    ASSERT_TRUE(SaveWaveCsv(path("own.csv"), setup, record));
    const std::string expected = resultsOf(path("own.csv"));
    EXPECT_NE(expected.find(",1,Period,true,"), std::string::npos) << expected;
    EXPECT_NE(expected.find(",3,Period,false,"), std::string::npos) << expected;  // the noise

    struct Layout {
        const char* name;
        std::function<std::string(int k)> row;  // "" for k = -1: the header
        std::vector<std::string> extra;
    };
    auto cells = [](int k, const std::string& sep, bool comma, double tScale, double vScale, bool time = true) {
        std::string s = time ? text((kT0 + k * kDt) * tScale, comma, 12) : "";
        for (int c = 0; c < 3; ++c)
            s += (time || c ? sep : "") +
                 (vScale == 1 ? text(sampleOf(c, k), comma) : text(sampleOf(c, k) * vScale, comma, 9));
        return s;
    };
    const Layout layouts[] = {
        {"comma.csv", [&](int k) { return k < 0 ? "Time(s),CH1(V),CH2(V),CH3(V)" : cells(k, ",", false, 1, 1); }, {}},
        {"semicolon.csv", [&](int k) { return k < 0 ? "TIME;C1;C2;C3\r\ns;V;V;V" : cells(k, ";", true, 1, 1); }, {}},
        {"tab.csv",
         [&](int k) {
             return k < 0 ? "Time [us]\tChannel 1 [V]\tChannel 2 [V]\tChannel 3 [V]" : cells(k, "\t", false, 1e6, 1);
         },
         {}},
        {"blanks.csv",
         [&](int k) { return k < 0 ? "x-axis 1 2 3\r\nsecond Volt Volt Volt" : cells(k, " ", false, 1, 1); },
         {}},
        {"bare.csv",
         [&](int k) { return k < 0 ? "CH1,CH2,CH3" : cells(k, ",", false, 1, 1, false); },
         {"--import-interval", "2e-7"}},
    };
    for (const auto& L : layouts) {
        SCOPED_TRACE(L.name);
        std::string bytes = "Vendor,Somebody\r\nRecord Length," + std::to_string(kRows) + "\r\n" + L.row(-1) + "\r\n";
        for (int k = 0; k < kRows; ++k) bytes += L.row(k) + "\r\n";
        std::ofstream(path(L.name), std::ios::binary) << bytes;
        EXPECT_EQ(resultsOf(path(L.name), L.extra), expected);
    }

    // Converted back in both layouts, the same results.
    ASSERT_EQ(run({"convert", path("comma.csv"), path("back-own.csv")}), kExitOk) << err.str();
    ASSERT_EQ(run({"convert", "--generic", path("own.csv"), path("back-generic.csv")}), kExitOk) << err.str();
    EXPECT_EQ(resultsOf(path("back-own.csv")), expected);
    EXPECT_EQ(resultsOf(path("back-generic.csv")), expected);
}

TEST_F(ImportCliTest, InfoNamesTheLayoutAndRefusalsExitWithOne) {
    std::string gen = "Time;CH1 (mV)\n";
    std::string bare;
    for (int k = 0; k < 12; ++k) {
        gen += (k < 10 ? "0,00" : "0,0") + std::to_string(k) + ";" + (k % 2 ? "500" : "0") + "\n";
        bare += k % 2 ? "2\n" : "1\n";
    }
    std::ofstream(path("gen.csv"), std::ios::binary) << gen;
    std::ofstream(path("letter.csv"), std::ios::binary) << "Hello,\nthis is no capture.\n";
    std::ofstream(path("bare.csv"), std::ios::binary) << bare;
    ASSERT_EQ(run({"info", path("gen.csv")}), kExitOk) << err.str();
    EXPECT_NE(out.str().find("Layout: generic CSV (semicolon separated, decimal comma, time column, 1 signal column)"),
              std::string::npos)
        << out.str();
    EXPECT_NE(out.str().find("IMPORT-2"), std::string::npos) << out.str();

    struct Case {
        std::vector<std::string> args;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {{"info", path("letter.csv")}, kExitFileError, "not a wave file"},
        {{"info", path("bare.csv"), "-", "-"}, kExitBadOptions, "can be named once"},
        {{"analyze", "--no-save", path("bare.csv")}, kExitFileError, "--import-interval"},
        {{"analyze", "--no-save", "--import-interval", "1e-3", path("bare.csv")}, kExitOk, ""},
        {{"analyze", "--import-interval", "-1", path("bare.csv")}, kExitBadOptions, "above 0"},
        {{"convert", path("gen.csv")}, kExitBadOptions, "input file and the output file"},
        {{"convert", path("letter.csv"), path("out.csv")}, kExitFileError, "not a wave file"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args.back() << ": " << err.str();
        EXPECT_NE(err.str().find(c.says), std::string::npos) << err.str();
    }
    EXPECT_FALSE(std::filesystem::exists(path("out.csv")));
    // A refused capture shows no made-up setup.
    ASSERT_EQ(run({"info", path("letter.csv")}), kExitFileError);
    EXPECT_NE(out.str().find("Layout: generic CSV, refused\nRows read: 0\n"), std::string::npos) << out.str();
    EXPECT_EQ(out.str().find("Model:"), std::string::npos) << out.str();
}

// A capture of the first channels, written whole or a file per channel.
std::string captureText(const std::vector<int>& channels, int rows, double dt) {
    std::string bytes = "Time(s)";
    for (int c : channels) bytes += ",CH" + std::to_string(c + 1) + "(V)";
    bytes += "\r\n";
    for (int k = 0; k < rows; ++k) {
        bytes += text(kT0 + k * dt, false, 12);
        for (int c : channels) bytes += "," + text(sampleOf(c, k), false);
        bytes += "\r\n";
    }
    return bytes;
}

TEST_F(ImportCliTest, CombineTakesTheFilesAsChannelsInOrder) {
    auto write = [&](const std::string& name, const std::vector<int>& channels, int rows, double dt) {
        std::ofstream(path(name), std::ios::binary) << captureText(channels, rows, dt);
        return path(name);
    };
    const std::string expected = resultsOf(write("both.csv", {0, 1}, kRows, kDt));
    const std::string ch1 = write("ch1.csv", {0}, kRows, kDt);
    const std::string ch2 = write("ch2.csv", {1}, kRows, kDt);
    EXPECT_EQ(resultsOf(ch2, {"--combine", ch1}), expected);
    EXPECT_NE(resultsOf(ch1, {"--combine", ch2}), expected);
    ASSERT_EQ(run({"convert", "--combine", ch1, ch2, path("own.csv")}), kExitOk) << err.str();
    EXPECT_EQ(resultsOf(path("own.csv")), expected);
    ASSERT_EQ(run({"info", "--combine", ch1, ch2}), kExitOk) << err.str();
    EXPECT_NE(out.str().find("Source: " + ch1 + " + " + ch2 + "\n"), std::string::npos) << out.str();

    struct Case {
        std::string file;
        const char* says;
    };
    const Case cases[] = {{write("short.csv", {1}, kRows - 100, kDt), " has 19900 sample rows and "},
                          {write("slow.csv", {1}, kRows, 2 * kDt), " is sampled every 4E-07 s and "}};
    for (const auto& c : cases) {
        EXPECT_EQ(run({"analyze", "--no-save", "--combine", ch1, c.file}), kExitFileError);
        EXPECT_NE(err.str().find(c.file + c.says + ch1), std::string::npos) << err.str();
    }
}

#ifndef _WIN32
TEST_F(ImportCliTest, ADashReadsStandardInputOnce) {
    const std::string bytes = captureText({0, 1, 2}, kRows, kDt);
    std::ofstream(path("file.csv"), std::ios::binary) << bytes;
    const std::string expected = resultsOf(path("file.csv"));
    EXPECT_EQ(resultsOf("-", {}, &bytes), expected);
    ASSERT_EQ(runWithInput({"info", "-"}, bytes), kExitOk) << err.str();
    EXPECT_NE(out.str().find("Rows read: 20000"), std::string::npos) << out.str();
    ASSERT_EQ(runWithInput({"convert", "-", path("own.csv")}, bytes), kExitOk) << err.str();
    EXPECT_EQ(resultsOf(path("own.csv")), expected);
    // Refused, it says where the bytes came from.
    EXPECT_EQ(runWithInput({"info", "-"}, "Hello,\nthis is no capture.\n"), kExitFileError);
    EXPECT_NE(err.str().find("standard input: not a wave file"), std::string::npos) << err.str();
}
#endif

}  // namespace
