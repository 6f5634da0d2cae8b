#include "cli/Cli.h"

#include "display/WavePainter.h"
#include "sim/DsoSimulator.h"

#include <QImage>

#include <gtest/gtest.h>

#include "support/SeriesFaults.h"
#include "CliRun.h"
#include "support/TestFolder.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#ifdef __unix__
#include <sys/resource.h>
#endif

// The application object comes from CliTest.cpp: one per test program.

using namespace mervasto;

namespace {

class PlotsCliTest : public test::CliRun {
protected:
    PlotsCliTest() : CliRun("mervasto-plots-") {}
    std::vector<std::string> plotNames() const {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(dir_ / "plots"))
            names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    static bool holds(const QImage& im, uint32_t bgr) {
        const QRgb rgb = ColorFromBgr(bgr).rgb();
        for (int y = 0; y < im.height(); ++y)
            for (int x = 0; x < im.width(); ++x)
                if (im.pixel(x, y) == rgb) return true;
        return false;
    }
};

TEST_F(PlotsCliTest, AnalyzeDrawsEachAnalysedChannelOfEachFile) {
    const std::string plots = (dir_ / "plots").string();
    // duty-sweep: two channels measured; gated: Ch4 is the gate and not drawn.
    ASSERT_EQ(run({"analyze", "--no-save", "--set", "ChInputSignal1=P.W.", "--set", "ChInputSignal4=Gate", "--plots",
                   plots, example("duty-sweep"), example("gated")}),
              kExitOk)
        << err.str();
    std::vector<std::string> expected;
    for (const char* channel : {"duty-sweep_Ch1", "duty-sweep_Ch2", "gated_Ch1", "gated_Ch2", "gated_Ch3"})
        for (const char* plot : {"_Histogram.png", "_TIE.png", "_Trend.png", "_Wave.png"})
            expected.push_back(std::string(channel) + plot);
    EXPECT_EQ(plotNames(), expected);
    // The output is still only the results; the plots are told on stderr.
    EXPECT_EQ(out.str().find(".png"), std::string::npos);
    EXPECT_NE(err.str().find("duty-sweep_Ch1_Wave.png"), std::string::npos) << err.str();

    const QImage wave(QString::fromStdString(plots + "/duty-sweep_Ch1_Wave.png"));
    ASSERT_FALSE(wave.isNull());
    EXPECT_GT(wave.width(), wave.height());
    // The sweep's narrowest and widest pulses are marked.
    EXPECT_TRUE(holds(wave, kMinMarkColour));
    EXPECT_TRUE(holds(wave, kMaxMarkColour));
    const QImage histogram(QString::fromStdString(plots + "/duty-sweep_Ch1_Histogram.png"));
    ASSERT_FALSE(histogram.isNull());
    EXPECT_GT(histogram.width(), 400);
}

TEST_F(PlotsCliTest, TheEncoderPositionIsDrawnOnceForThePair) {
    const std::string plots = (dir_ / "plots").string();
    ASSERT_EQ(run({"analyze", "--no-save", "--set", "Encoder=1", "--plots", plots, example("pulses")}), kExitOk)
        << err.str();
    const auto names = plotNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), "pulses_Position.png"), 1) << names.size();
    const QImage position(QString::fromStdString(plots + "/pulses_Position.png"));
    EXPECT_FALSE(position.isNull());
}

#ifdef __unix__
// A limit on the size of the files this process writes, as a nearly full
// disk or a quota would set one: writes beyond it fail (SIGXFSZ ignored).
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : previous_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limit = old_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, previous_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit old_{};
    void (*previous_)(int);
};
#endif

// Plots that cannot be written, whether the folder cannot be made or the
// writes fall short: exit status 1 naming the first file and why, no plot
// listed as written and none left half-written.
TEST_F(PlotsCliTest, PlotsThatCannotBeWrittenAreExitStatusOne) {
    const auto blocked = dir_ / "file";
    std::ofstream(blocked) << "x";
    EXPECT_EQ(run({"analyze", "--no-save", "--plots", blocked.string(), example("pulses")}), kExitFileError);
    EXPECT_NE(err.str().find("mervasto-cli: " + blocked.string() + "/pulses_Ch1_Wave.png: "), std::string::npos)
        << err.str();
    EXPECT_EQ(run({"analyze", "--plots"}), kExitBadOptions);
#ifdef __unix__
    const std::string plots = (dir_ / "plots").string();
    std::filesystem::create_directories(plots);
    {
        const FileSizeLimit limit(4096);
        EXPECT_EQ(run({"analyze", "--no-save", "--plots", plots, example("pulses")}), kExitFileError);
    }
    EXPECT_NE(err.str().find("mervasto-cli: " + plots + "/pulses_Ch1_Wave.png: File too large."), std::string::npos)
        << err.str();
    EXPECT_EQ(err.str().find("mervasto-cli: plot "), std::string::npos) << err.str();
    EXPECT_TRUE(plotNames().empty());
#endif
}

TEST_F(PlotsCliTest, AcquireDrawsTheLastPassNamedAfterTheSample) {
    DsoSimulator sim(test::SeriesSimOptions());
    ASSERT_TRUE(sim.start());
    const std::string plots = (dir_ / "plots").string();
    ASSERT_EQ(run({"acquire", "--ip", sim.address(), "--repeat", "3", "--new-acquisition", "--no-save", "--set",
                   "SampleNo=Lot", "--format", "csv", "--plots", plots}),
              kExitOk)
        << err.str();
    const auto names = plotNames();
    ASSERT_FALSE(names.empty());
    for (const auto& n : names) EXPECT_EQ(n.rfind("Lot", 0), 0u) << n;
    EXPECT_NE(
        std::find(names.begin(), names.end(), names.front().substr(0, names.front().find("_Ch")) + "_Ch1_Wave.png"),
        names.end());
}

}  // namespace
