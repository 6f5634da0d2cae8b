#include <gtest/gtest.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QImage>

#include <cmath>
#include <stdexcept>

#include "sim/DsoSimulator.h"
#include "sim/Scenario.h"

namespace mervasto {
namespace {

QCoreApplication& App() {
    static int argc = 1;
    static char name[] = "test_sim";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// Rising edges through the middle of 0..high, with a little hysteresis.
int Rises(const std::vector<float>& v, float high) {
    int n = 0;
    bool up = v.empty() ? false : v[0] > high / 2;
    for (float x : v) {
        if (!up && x > high * 0.6f) {
            up = true;
            ++n;
        } else if (up && x < high * 0.4f) {
            up = false;
        }
    }
    return n;
}

double HighFraction(const std::vector<float>& v, float high, size_t from = 0, size_t to = SIZE_MAX) {
    to = std::min(to, v.size());
    size_t n = 0;
    for (size_t i = from; i < to; ++i) n += v[i] > high / 2;
    return static_cast<double>(n) / static_cast<double>(to - from);
}

TEST(ScenarioTest, EveryScenarioHasTheShapeAsked) {
    for (const auto& name : ScenarioNames())
        for (int channels : {2, 4})
            for (int32_t length : {500, 20000}) {
                SCOPED_TRACE(name + " " + std::to_string(channels) + " " + std::to_string(length));
                const auto w = GenerateScenario(name, channels, length, 7);
                ASSERT_EQ(w.size(), static_cast<size_t>(channels));
                for (const auto& ch : w) {
                    ASSERT_EQ(ch.size(), static_cast<size_t>(length));
                    for (float x : ch) ASSERT_TRUE(std::isfinite(x) && x > -0.5f && x < 5.5f);
                }
                EXPECT_EQ(GenerateScenario(name, channels, length, 7), w);
                if (name != "flat") {
                    EXPECT_NE(GenerateScenario(name, channels, length, 8), w);
                }
            }
    EXPECT_THROW(GenerateScenario("sine", 4, 500), std::invalid_argument);
}

TEST(ScenarioTest, PulsesDifferPerChannel) {
    const auto w = GenerateScenario("pulses", 4, 100000);
    const std::array<int, 4> cycles = {25, 40, 16, 10};
    const std::array<double, 4> duty = {0.5, 0.3, 0.2, 0.7};
    const std::array<float, 4> high = {3.3f, 5.0f, 2.5f, 5.0f};
    for (size_t ch = 0; ch < 4; ++ch) {
        SCOPED_TRACE(ch + 1);
        EXPECT_NEAR(Rises(w[ch], high[ch]), cycles[ch], 1);
        EXPECT_NEAR(HighFraction(w[ch], high[ch]), duty[ch], 0.05);
    }
}

TEST(ScenarioTest, DutySweepEncoderGateFlat) {
    const int32_t n = 100000;
    const auto sweep = GenerateScenario("duty-sweep", 2, n);
    EXPECT_LT(HighFraction(sweep[0], 3.3f, 0, n / 10), 0.25);
    EXPECT_GT(HighFraction(sweep[0], 3.3f, n - n / 10), 0.75);

    const auto enc = GenerateScenario("encoder", 4, n);
    EXPECT_NEAR(Rises(enc[0], 5), 50, 1);
    EXPECT_NEAR(Rises(enc[1], 5), 50, 1);
    size_t both = 0, index = 0, indexInBoth = 0;
    for (int32_t i = 0; i < n; ++i) {
        const bool a = enc[0][i] > 2.5f, b = enc[1][i] > 2.5f, z = enc[2][i] > 2.5f;
        both += a && b;
        index += z;
        indexInBoth += z && a && b;
    }
    EXPECT_NEAR(static_cast<double>(both) / n, 0.25, 0.03);  // B a quarter period behind A
    EXPECT_GE(Rises(enc[2], 5), 3);
    EXPECT_GT(static_cast<double>(indexInBoth) / static_cast<double>(index), 0.9);

    const auto gate = GenerateScenario("gate", 4, n);
    EXPECT_LT(gate[3][n / 4 - 1], 0.5f);
    EXPECT_GT(gate[3][n / 4], 4.5f);
    EXPECT_GT(gate[3][3 * n / 4 - 1], 4.5f);
    EXPECT_LT(gate[3][3 * n / 4], 0.5f);
    EXPECT_NEAR(Rises(gate[0], 3.3f), 25, 1);

    const auto flat = GenerateScenario("flat", 4, n);
    for (float x : flat[0]) ASSERT_EQ(x, 1.0f);
    EXPECT_NEAR(Rises(flat[1], 5), 40, 1);
}

TEST(SimEncodingTest, CountsAreRoundedAndClamped) {
    struct Case {
        float v;
        double vdiv, offset;
        bool word;
        int32_t counts;
    };
    const std::vector<Case> cases = {
        {1.0f, 1.0, 0.0, false, 32},     {1.0f, 1.0, 0.0, true, 8192},
        {-1.0f, 0.5, 0.0, false, -64},   {1.0f, 1.0, 0.5, false, 48},
        {10.0f, 1.0, 0.0, false, 127},   {-10.0f, 1.0, 0.0, false, -128},
        {10.0f, 1.0, 0.0, true, 32767},  {-10.0f, 1.0, 0.0, true, -32768},
        {0.015625f, 1.0, 0.0, false, 0},  // half a count rounds to even
    };
    for (const auto& c : cases) EXPECT_EQ(SimCounts(c.v, c.vdiv, c.offset, c.word), c.counts) << c.v;
}

TEST(SimEncodingTest, ScreenIsARealPngThatFits) {
    App();
    SimState s;
    const auto png = SimScreenPng(GenerateScenario("pulses", 4, 200000), s);
    EXPECT_LT(png.size(), 32767u);
    QImage img;
    ASSERT_TRUE(img.loadFromData(png.data(), static_cast<int>(png.size()), "PNG"));
    EXPECT_EQ(img.width(), 320);
    EXPECT_EQ(img.height(), 240);
}

}  // namespace
}  // namespace mervasto
