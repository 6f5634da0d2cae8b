#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <cstdlib>
#include <functional>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Encoder.h"
#include "support/AnalysisRecord.h"

namespace mervasto {
namespace {

constexpr float kHigh = 5.0f;

// A and B (and Z) of an encoder whose angle, in A cycles, is theta(sample);
// B lags A by phaseDeg when theta grows.
struct Pair {
    std::vector<float> a, b, z;

    Pair(int32_t n, const std::function<double(int32_t)>& theta, double phaseDeg = 90, int32_t cyclesPerRev = 0) {
        a.resize(static_cast<size_t>(n));
        b.resize(static_cast<size_t>(n));
        z.assign(static_cast<size_t>(n), 0.0f);
        for (int32_t i = 0; i < n; ++i) {
            const double t = theta(i);
            a[static_cast<size_t>(i)] = t - std::floor(t) < 0.5 ? kHigh : 0.0f;
            const double tb = t - phaseDeg / 360.0;
            b[static_cast<size_t>(i)] = tb - std::floor(tb) < 0.5 ? kHigh : 0.0f;
            // Index: high over the first quarter of A cycle 0 of each revolution.
            if (cyclesPerRev > 0) {
                const double r = t / cyclesPerRev;
                z[static_cast<size_t>(i)] = (r - std::floor(r)) * cyclesPerRev < 0.25 ? kHigh : 0.0f;
            }
        }
    }
    // Rail-to-rail bounce: `count` short flips of a line right after each of its edges.
    void bounce(std::vector<float>& line, int32_t count, int32_t width) {
        std::vector<size_t> edges;
        for (size_t i = 1; i < line.size(); ++i)
            if (line[i] != line[i - 1]) edges.push_back(i);
        for (size_t e : edges)
            for (int32_t k = 0; k < count; ++k) {
                const size_t at = e + static_cast<size_t>(2 * k * width + width);
                for (size_t j = at; j < at + static_cast<size_t>(width) && j < line.size(); ++j)
                    line[j] = line[j] > 0 ? 0.0f : kHigh;
            }
    }
};

// Counts a perfect decoder gives: every crossing of A or B, with direction.
int64_t truthPosition(double theta0, double theta1, double phaseDeg = 90) {
    auto q = [](double t) { return static_cast<int64_t>(std::floor(2 * t)); };
    const double p = phaseDeg / 360.0;
    return (q(theta1) - q(theta0)) + (q(theta1 - p) - q(theta0 - p));
}

EncoderResult analyse(const Pair& p, double minWidth = 0, bool withZ = false, float sampleSec = 1e-6f,
                      EdgeTiming timing = EdgeTiming::Samples, float hysteresis = 10, int32_t smoothing = 1) {
    EncoderLine lines[3] = {{p.a, 2.5f, kHigh}, {p.b, 2.5f, kHigh}, {p.z, 2.5f, kHigh}};
    EncoderScan scan;
    scan.edgeTiming = timing;
    scan.count = static_cast<int32_t>(p.a.size());
    scan.Histerisis = hysteresis;
    scan.SmoothingNo = smoothing;
    scan.SampleSec = sampleSec;
    EncoderParams params;
    params.on = true;
    params.z = withZ ? 2 : -1;
    params.minStateWidth = minWidth;
    params.countsPerRev = 400;
    EncoderWorkspace ws;
    EncoderResult out;
    AnalyseEncoder(lines, scan, params, ws, out);
    return out;
}

TEST(Encoder, PositionDirectionAndPhaseOverSpeedProfiles) {
    struct Case {
        const char* what;
        std::function<double(int32_t)> theta;
        double phase;
        int32_t reversals;
        double phaseMean;  // -1: not checked
    };
    const int32_t n = 20000;
    const Case cases[] = {
        {"forward", [](int32_t i) { return 0.1 + i / 400.0; }, 90, 0, 90},
        {"backward", [](int32_t i) { return 60 - i / 400.0; }, 90, 0, 270},
        {"phase error", [](int32_t i) { return 0.1 + i / 500.0; }, 110, 0, 110},
        {"one reversal", [](int32_t i) { return 0.1 + 20 - std::fabs(i - 10000) / 500.0; }, 90, 1, -1},
        {"three reversals",
         [](int32_t i) { return 0.3 + 5 * std::sin(i * 2 * std::numbers::pi / 10000.0 - std::numbers::pi / 2) + 5; },
         90, 3, -1},
        {"slow start", [](int32_t i) { return 0.1 + (i * 1.0 * i) / 4e6; }, 90, 0, 90},
    };
    for (const auto& c : cases) {
        Pair p(n, c.theta, c.phase);
        const EncoderResult r = analyse(p);
        EXPECT_TRUE(r.analysed) << c.what;
        EXPECT_EQ(r.position, truthPosition(c.theta(0), c.theta(n - 1), c.phase)) << c.what;
        EXPECT_EQ(r.reversals, c.reversals) << c.what;
        EXPECT_EQ(r.droppedBounces, 0) << c.what;
        if (c.phaseMean >= 0) {
            EXPECT_NEAR(r.phase.Mean, c.phaseMean, 1.5) << c.what;
            EXPECT_EQ(r.direction.Mean, c.phaseMean < 180 ? 1 : -1) << c.what;
        }
        EXPECT_GT(r.phase.Counts, 0) << c.what;
        EXPECT_GE(r.phase.Min, 0) << c.what;
        EXPECT_LE(r.phase.Max, 360) << c.what;
    }
}

// A reversal inside an A cycle leaves that cycle out of the phase instead of
// averaging a meaningless angle in.
TEST(Encoder, CycleWithAReversalIsLeftOutOfThePhase) {
    const int32_t n = 8000;
    auto theta = [](int32_t i) { return 0.1 + 10 - std::fabs(i - 4000) / 400.0; };
    Pair p(n, theta);
    const EncoderResult r = analyse(p);
    EXPECT_EQ(r.reversals, 1);
    // Ten A cycles up, ten down, with the turn-around cycle dropped.
    EXPECT_LT(r.phase.Counts, 19);
    EXPECT_GE(r.phase.Counts, 16);
    EXPECT_NEAR(r.phase.Mean, 180, 5);  // half at 90, half at 270
    EXPECT_EQ(r.direction.Min, -1);
    EXPECT_EQ(r.direction.Max, 1);
    EXPECT_EQ(r.direction.Counts, r.phase.Counts);
    EXPECT_NEAR(r.phase.Min, 90, 1.5);
    EXPECT_NEAR(r.phase.Max, 270, 1.5);
    // Each way on its own.
    EXPECT_NEAR(r.phasePlus.Mean, 90, 1.5);
    EXPECT_NEAR(r.phaseMinus.Mean, 270, 1.5);
    EXPECT_LT(r.phasePlus.Sigma + r.phaseMinus.Sigma, 2);
    EXPECT_EQ(r.phasePlus.Counts + r.phaseMinus.Counts, r.phase.Counts);
}

// Forward 10 A cycles, back 5.75, forward 4.25, 200 samples per A cycle; every
// turn lies in the middle of a state, so every state is 50 samples wide.
double backAndForth(int32_t i) {
    const double t = i / 200.0;
    const double start = 0.125;
    if (t < 10) return start + t;
    if (t < 15.75) return start + 10 - (t - 10);
    return start + 4.25 + (t - 15.75);
}

// What a perfect decoder counts on the lines as generated.
std::pair<int64_t, int32_t> truthSteps(const Pair& p) {
    int64_t position = 0;
    int32_t reversals = 0, last = 0;
    for (size_t i = 1; i < p.a.size(); ++i) {
        const bool a0 = p.a[i - 1] > 2.5f, a1 = p.a[i] > 2.5f, b0 = p.b[i - 1] > 2.5f, b1 = p.b[i] > 2.5f;
        int32_t step = 0;
        if (a0 != a1) step = a1 != b1 ? 1 : -1;
        if (b0 != b1) step = a1 == b1 ? 1 : -1;
        if (step == 0) continue;
        position += step;
        if (last != 0 && step != last) ++reversals;
        last = step;
    }
    return {position, reversals};
}

// Acceptance: the count does not depend on how many samples of A's edges
// fall inside the band, on the record ending inside the band, on the
// hysteresis or on the smoothing; no state is 0 samples wide.
TEST(Encoder, CountHoldsOverBandSamplesRecordEndsHysteresisAndSmoothing) {
    const int32_t n = 4000;
    const Pair clean(n, backAndForth);
    const auto [position, reversals] = truthSteps(clean);
    ASSERT_EQ(reversals, 2);
    // The samples before each change of A's level that are inside the band.
    const std::vector<float> rise[] = {{}, {2.5f}, {2.4f, 2.6f}}, fall[] = {{}, {2.5f}, {2.6f, 2.4f}};
    const std::vector<float> ends[] = {{}, {2.6f, 2.6f, 2.6f}, {2.4f, 2.4f, 2.4f}};
    for (float hysteresis : {5.0f, 10.0f, 20.0f, 30.0f})
        for (int32_t smoothing : {1, 3, 5, 9}) {
            double narrowest = -1;
            for (int k = 0; k < 3; ++k)
                for (const auto& end : ends) {
                    Pair p = clean;
                    for (size_t i = 1; i < p.a.size(); ++i) {
                        if (clean.a[i] == clean.a[i - 1]) continue;
                        const auto& band = clean.a[i] > 0 ? rise[k] : fall[k];
                        std::copy(band.begin(), band.end(), p.a.begin() + static_cast<std::ptrdiff_t>(i - band.size()));
                    }
                    std::copy(end.begin(), end.end(), p.a.end() - static_cast<std::ptrdiff_t>(end.size()));
                    std::copy(end.begin(), end.end(), p.b.end() - static_cast<std::ptrdiff_t>(end.size()));
                    const EncoderResult r = analyse(p, 0, false, 1, EdgeTiming::Samples, hysteresis, smoothing);
                    const auto what = ::testing::Message() << hysteresis << "% smoothing " << smoothing << " band " << k
                                                           << " end " << (end.empty() ? 0 : end[0]);
                    EXPECT_EQ(r.position, position) << what;
                    EXPECT_EQ(r.reversals, reversals) << what;
                    EXPECT_EQ(r.illegal, 0) << what;
                    if (narrowest < 0) narrowest = r.stateWidth.Min;
                    EXPECT_NEAR(r.stateWidth.Min, narrowest, 1) << what;
                    EXPECT_GE(r.stateWidth.Min, 45) << what;
                }
        }
}

// A and B changing on one sample: no step (which came first is unknown), an
// illegal transition counted and said, and no state of width 0.
TEST(Encoder, SimultaneousChangesAreIllegal) {
    const int32_t n = 4000;
    Pair p(n, backAndForth);
    const int64_t truth = truthSteps(p).first;
    // Forward: A rises, 50 samples later B rises. Move one B rise onto A's.
    size_t rise = 1000;
    while (!(p.a[rise] > 0 && p.a[rise - 1] == 0)) ++rise;
    for (size_t i = rise; i < rise + 50; ++i) p.b[i] = kHigh;
    const EncoderResult r = analyse(p);
    EXPECT_EQ(r.illegal, 1);
    EXPECT_EQ(r.note, "1 illegal transition: A and B changed on the same sample");
    EXPECT_EQ(r.position, truth - 2);
    EXPECT_GT(r.stateWidth.Min, 0);
    EXPECT_EQ(r.reversals, 2);
    EXPECT_EQ(IllegalNote(3), "3 illegal transitions: A and B changed on the same sample");
}

TEST(Encoder, MinStateWidthRemovesBounceBursts) {
    const int32_t n = 40000;
    auto theta = [](int32_t i) { return 0.1 + i / 2000.0; };  // 500 samples per quadrature state
    struct Case {
        int32_t bounces;
        int32_t width;
        double minWidth;  // seconds, 1 us samples
        bool clean;
    };
    const Case cases[] = {
        {3, 5, 0, false},     // bounces read as reversals
        {3, 5, 20e-6, true},  // every bounce state is below 20 samples
        {1, 30, 20e-6, false}, {1, 30, 100e-6, true}, {4, 2, 3e-6, true},
    };
    for (const auto& c : cases) {
        Pair p(n, theta);
        p.bounce(p.a, c.bounces, c.width);
        p.bounce(p.b, c.bounces, c.width);
        const EncoderResult r = analyse(p, c.minWidth);
        const int64_t truth = truthPosition(theta(0), theta(n - 1));
        if (c.clean) {
            EXPECT_EQ(r.position, truth) << c.bounces << "x" << c.width;
            EXPECT_EQ(r.reversals, 0) << c.bounces << "x" << c.width;
            // Every edge of the record bounces; each edge moves to where its
            // burst ends, all by the same time, so the states keep their width.
            EXPECT_EQ(r.droppedBounces, c.bounces * truth) << c.bounces << "x" << c.width;
            EXPECT_NEAR(r.stateWidth.Min, 500e-6, 2e-6);
            EXPECT_NEAR(r.phase.Mean, 90, 1.5);
        } else {
            EXPECT_GT(r.reversals, 10) << c.bounces << "x" << c.width;
            EXPECT_LE(r.stateWidth.Min, c.width * 1e-6) << c.bounces << "x" << c.width;
        }
    }
}

TEST(Encoder, StateWidthsAndDuties) {
    const int32_t n = 24000;
    // B lags by 60 degrees: states of 1/6, 1/3, 1/6, 1/3 of a 1200-sample cycle.
    Pair p(
        n, [](int32_t i) { return 0.05 + i / 1200.0; }, 60);
    const EncoderResult r = analyse(p, 0, false, 1e-3f);
    EXPECT_NEAR(r.stateWidth.Min, 0.2, 0.002);
    EXPECT_NEAR(r.stateWidth.Max, 0.4, 0.002);
    EXPECT_NEAR(r.dutyA.Mean, 50, 0.2);
    EXPECT_NEAR(r.dutyB.Mean, 50, 0.2);
    EXPECT_NEAR(r.phase.Mean, 60, 0.5);
    EXPECT_LT(r.phase.Sigma, 0.2);
    EXPECT_EQ(r.dutyA.Counts, 19);
    EXPECT_EQ(r.stateWidth.Counts, static_cast<int32_t>(r.position) - 1);
}

TEST(Encoder, InterpolatedEdgesResolveStatesFinerThanASample) {
    // 100.37 samples per A cycle, B a quarter behind, edges ramping over 6
    // samples: every state is 25.0925 samples long.
    const double cycle = 100.37;
    const int32_t n = 40000;
    auto trapezoid = [&](double t) {
        const double f = t - std::floor(t);
        const double inside = f < 0.5 ? std::min(f, 0.5 - f) : -std::min(f - 0.5, 1 - f);
        return static_cast<float>(kHigh * std::clamp(0.5 + inside * cycle / 6.0, 0.0, 1.0));
    };
    Pair p(n, [&](int32_t i) { return 0.1 + i / cycle; });
    for (int32_t i = 0; i < n; ++i) {
        const double t = 0.1 + i / cycle;
        p.a[static_cast<size_t>(i)] = trapezoid(t);
        p.b[static_cast<size_t>(i)] = trapezoid(t - 0.25);
    }
    const EncoderResult whole = analyse(p, 0, false, 1.0f, EdgeTiming::Samples);
    const EncoderResult fine = analyse(p, 0, false, 1.0f, EdgeTiming::Interpolated);
    EXPECT_EQ(fine.position, whole.position);
    EXPECT_GE(whole.stateWidth.Max - whole.stateWidth.Min, 1.0);  // whole samples: 24, 25, 26
    EXPECT_LT(fine.stateWidth.Max - fine.stateWidth.Min, 0.01);
    EXPECT_NEAR(fine.stateWidth.Mean, cycle / 4, 0.001);
    EXPECT_NEAR(fine.phase.Mean, 90, 0.01);

    // The position trend: one point per step, ending at the final position.
    ASSERT_EQ(fine.stepAt.size(), static_cast<size_t>(std::llabs(fine.position)));
    EXPECT_EQ(fine.stepPosition.back(), static_cast<double>(fine.position));
    EXPECT_TRUE(std::is_sorted(fine.stepAt.begin(), fine.stepAt.end()));
}

TEST(Encoder, IndexPulseWidthAndPosition) {
    const int32_t n = 40000;
    // 10 A cycles per revolution, 100 samples per cycle: an index every 1000 samples.
    Pair p(
        n, [](int32_t i) { return 0.6 + i / 100.0; }, 90, 10);
    const EncoderResult r = analyse(p, 0, true);
    EXPECT_EQ(r.indexCount, 40);
    EXPECT_NEAR(r.zWidth.Mean, 25e-6, 1.5e-6);
    // Forty counts per revolution between successive indexes.
    EXPECT_NEAR(r.indexPosition.Max - r.indexPosition.Min, 40 * 39, 1);
    EXPECT_NEAR(r.indexPosition.Sigma, std::sqrt((40.0 * 40 - 1) / 12) * 40, 1);
    EXPECT_EQ(r.revolutions, r.position / 400.0);
    EXPECT_DOUBLE_EQ(r.speed, r.revolutions / (n * double{1e-6f}));
}

TEST(Encoder, DropShortStatesKeepsAlternation) {
    struct Case {
        std::vector<double> at;
        double minWidth;
        std::vector<double> kept;
        int32_t dropped;
    };
    const Case cases[] = {
        {{10, 20, 30}, 5, {10, 20, 30}, 0},
        {{10, 12, 14, 30}, 5, {14, 30}, 1},  // a short high state after 10, then 12->14 is short too
        {{10, 11, 12, 13, 40}, 5, {40}, 2},  // a burst that ends where it began leaves nothing
        {{10, 40, 41, 80}, 5, {10, 80}, 1},
        {{10, 11}, 0, {10, 11}, 0},
    };
    for (const auto& c : cases) {
        std::vector<double> at = c.at;
        std::vector<uint8_t> rising;
        for (size_t i = 0; i < at.size(); ++i) rising.push_back(i % 2 == 0);
        EXPECT_EQ(DropShortStates(at, rising, c.minWidth), c.dropped);
        EXPECT_EQ(at, c.kept);
        for (size_t i = 1; i < rising.size(); ++i) EXPECT_NE(rising[i], rising[i - 1]);
    }
}

// The edges come from the same level, hysteresis and smoothing as the
// per-channel scan: a noisy ramp inside the band gives one edge, and a
// smoothed signal gives its edges where the unsmoothed one does.
TEST(Encoder, EdgesFollowTheChannelScan) {
    EncoderScan scan;
    scan.count = 400;
    scan.Histerisis = 10;
    std::vector<uint8_t> rising;
    auto edgesOf = [&](const std::vector<float>& line) {
        std::vector<float> scratch;
        std::vector<double> at;
        ScanEncoderEdges({line, 2.5f, kHigh}, scan, scratch, at, rising);
        return at;
    };
    std::vector<float> x(400, 0.0f);
    for (size_t i = 100; i < 300; ++i) x[i] = kHigh;
    for (size_t i = 95; i < 105; ++i) x[i] = kHigh * static_cast<float>(i - 95) / 10.0f + (i % 2 ? 0.1f : -0.1f);
    for (int32_t smoothing : {1, 5, 21}) {
        scan.SmoothingNo = smoothing;
        const auto at = edgesOf(x);
        ASSERT_EQ(at.size(), 2u) << smoothing;
        EXPECT_NEAR(at[0], 100, 1) << smoothing;
        EXPECT_NEAR(at[1], 300, 1) << smoothing;
        EXPECT_EQ(rising, (std::vector<uint8_t>{1, 0})) << smoothing;
    }
    // A line that starts high counts its first fall; the reject range hides its stretch.
    scan.SmoothingNo = 1;
    std::vector<float> y(400, kHigh);
    for (size_t i = 50; i < 150; ++i) y[i] = 0;
    for (size_t i = 250; i < 350; ++i) y[i] = 0;
    EXPECT_EQ(edgesOf(y), (std::vector<double>{50, 150, 250, 350}));
    scan.rejectInForce = true;
    scan.rejectStart = 200;
    scan.rejectEnd = 300;
    EXPECT_EQ(edgesOf(y), (std::vector<double>{50, 150, 300, 350}));  // the fall at 250 is counted at 300
}

// Through the analysis run: the encoder takes the window and the channels'
// levels, ignores Max Periods, and says why it was left out.
TEST(Encoder, RunAnalysisReasonsAndWindow) {
    const int32_t n = 20000;
    auto theta = [](int32_t i) { return 0.1 + i / 200.0; };
    Pair p(n, theta);
    test::Record r(n);
    r.volts = {p.a, p.b, p.a, std::vector<float>(static_cast<size_t>(n), 0.0f)};
    for (auto& v : r.volts[2]) v *= 0.04f;  // 0.2 V on 1 V/div: too small to analyse
    for (int32_t i = 5000; i < 15000; ++i) r.volts[3][static_cast<size_t>(i)] = kHigh;
    const AnalysisInput& in = r.input();
    struct Case {
        int a, b, z;
        bool gate;
        bool aOff;
        const char* note;
        int64_t position;
    };
    const int64_t whole = truthPosition(theta(0), theta(n - 1));
    const Case cases[] = {
        {0, 1, -1, false, false, "", whole},
        {1, 0, -1, false, false, "", -whole},
        {0, 1, -1, true, false, "", truthPosition(theta(4999), theta(15000))},
        {0, 0, -1, false, false, kEncoderSameChannel, 0},
        {0, 1, 1, false, false, kEncoderSameChannel, 0},
        {0, 1, 3, true, false, "Z is the gate", 0},
        {0, 1, -1, false, true, "A is off", 0},
        {0, 2, -1, false, false, "B levels 0 V and 0.2 V span 0.2 div (less than 1/3 div)", 0},
    };
    for (const auto& c : cases) {
        AnalysisParams par;
        par.Histerisis = 10;
        par.MaxCycles = 1;  // does not limit the encoder
        if (c.gate) par.channel[3].SignalType = kTypeGate;
        par.channel[0].DispOff = c.aOff;
        par.encoder.on = true;
        par.encoder.a = c.a;
        par.encoder.b = c.b;
        par.encoder.z = c.z;
        AnalysisResults res;
        RunAnalysis(in, par, res);
        EXPECT_EQ(res.encoder.note, c.note) << c.a << c.b << c.z;
        EXPECT_EQ(res.encoder.analysed, c.note[0] == 0) << c.a << c.b << c.z;
        EXPECT_NEAR(static_cast<double>(res.encoder.position), static_cast<double>(c.position), 1) << c.a << c.b << c.z;
    }
}

}  // namespace
}  // namespace mervasto
