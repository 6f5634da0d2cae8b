#include "sim/HandTurned.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "sim/Noise.h"

namespace mervasto {

namespace {

constexpr float kHigh = 5.0f;
constexpr float kNoise = 0.02f;
constexpr double kPhaseDeg = 102;  // a 12 degree phase error
constexpr int32_t kCyclesPerRev = 5;
// Where the hand stops and turns back, in A cycles, evenly spread over the record.
constexpr double kTurns[] = {0, 12, 7, 20, 15, 26, 22};
constexpr int kSegments = static_cast<int>(std::size(kTurns)) - 1;

// The angle in A cycles at sample i. Each stretch between turns eases in and
// out (the hand stops to turn), and every turn lies in the middle of a
// quadrature state, so no state at a turn is shorter than a bounce.
double Angle(int64_t i, int64_t n) {
    const double centre = kPhaseDeg / 720.0;  // middle of the state A high, B low
    const double x = static_cast<double>(i) * kSegments / static_cast<double>(std::max<int64_t>(n, 1));
    const int s = std::clamp(static_cast<int>(x), 0, kSegments - 1);
    const double u = std::clamp(x - s, 0.0, 1.0);
    const double from = kTurns[s] + centre, to = kTurns[s + 1] + centre;
    return from + (to - from) * (1 - std::cos(std::numbers::pi * u)) / 2;
}

bool LineA(double t) { return t - std::floor(t) < 0.5; }
bool LineB(double t) {
    const double tb = t - kPhaseDeg / 360.0;
    return tb - std::floor(tb) < 0.5;
}
bool LineZ(double t) {
    const double r = t / kCyclesPerRev;
    const double inRev = (r - std::floor(r)) * kCyclesPerRev;
    return inRev >= 0.05 && inRev < 0.2;
}

}  // namespace

HandTurnedTruth GenerateHandTurned(std::vector<std::vector<float>>& out, uint32_t seed) {
    HandTurnedTruth truth;
    truth.phaseDeg = kPhaseDeg;
    truth.cyclesPerRev = kCyclesPerRev;
    const int64_t n = out.empty() ? 0 : static_cast<int64_t>(out[0].size());
    truth.bounceSamples = static_cast<int32_t>(12 * std::max<int64_t>(1, n / 50000));
    Noise rng(seed, 0x51ED5EEDull);
    std::vector<float> line[3];
    for (auto& l : line) l.assign(static_cast<size_t>(n), 0.0f);
    if (n == 0) return truth;

    bool a = LineA(Angle(0, n)), b = LineB(Angle(0, n)), z = LineZ(Angle(0, n));
    int32_t lastStep = 0;
    int64_t lastEdge = -1;
    double minWidth = 1e300;
    // A cycle from one rising edge of A to the next: steady when every step
    // in it has the same direction.
    int64_t cycleStart = -1, bRise = -1;
    int bRises = 0, cycleStep = 0;
    bool steady = true;
    double phaseSum = 0;
    truth.phaseMin = 1e300;
    truth.phaseMax = -1e300;
    std::vector<int64_t> edges[2];
    for (int64_t i = 0; i < n; ++i) {
        const double t = Angle(i, n);
        const bool na = LineA(t), nb = LineB(t), nz = LineZ(t);
        line[0][static_cast<size_t>(i)] = na ? kHigh : 0.0f;
        line[1][static_cast<size_t>(i)] = nb ? kHigh : 0.0f;
        line[2][static_cast<size_t>(i)] = nz ? kHigh : 0.0f;
        if (nz && !z) ++truth.indexCount;
        z = nz;
        for (int l = 0; l < 2; ++l) {
            const bool changed = l == 0 ? na != a : nb != b;
            if (!changed) continue;
            int32_t step = 0;
            if (l == 0) {
                a = na;
                step = a != b ? 1 : -1;
            } else {
                b = nb;
                step = a == b ? 1 : -1;
            }
            edges[l].push_back(i);
            truth.position += step;
            if (lastStep != 0 && step != lastStep) ++truth.reversals;
            lastStep = step;
            if (lastEdge >= 0) minWidth = std::min(minWidth, static_cast<double>(i - lastEdge));
            lastEdge = i;
            if (cycleStart >= 0 && step != cycleStep) steady = false;
            if (l == 1 && b) {
                ++bRises;
                bRise = i;
            }
            if (l == 0 && a) {
                if (cycleStart >= 0 && steady && bRises == 1) {
                    const double phase =
                        static_cast<double>(bRise - cycleStart) * 360.0 / static_cast<double>(i - cycleStart);
                    phaseSum += phase;
                    truth.phaseMin = std::min(truth.phaseMin, phase);
                    truth.phaseMax = std::max(truth.phaseMax, phase);
                    ++truth.phaseCounts;
                }
                cycleStart = i;
                cycleStep = step;
                steady = true;
                bRises = 0;
            }
        }
    }
    truth.minStateWidth = minWidth;
    truth.phaseMean = truth.phaseCounts > 0 ? phaseSum / truth.phaseCounts : 0;

    // Contact bounce: one to three flips after each edge of A and B, the
    // last one ending bounceSamples after the edge, so every edge settles
    // equally late and the states keep their widths.
    const int64_t settle = truth.bounceSamples;
    for (int l = 0; l < 2; ++l)
        for (int64_t e : edges[l]) {
            if (e + settle >= n) continue;
            const int k = 1 + static_cast<int>(rng.next() % 3);
            const int64_t w = settle / (2 * k);
            for (int j = 0; j < k; ++j)
                for (int64_t s = e + (2 * j + 1) * w; s < e + (2 * j + 2) * w; ++s) {
                    float& v = line[l][static_cast<size_t>(s)];
                    v = v > 0 ? 0.0f : kHigh;
                }
            truth.bounces += k;
        }

    for (size_t ch = 0; ch < out.size(); ++ch) {
        auto& v = out[ch];
        if (ch < 3)
            v = std::move(line[ch]);
        else
            std::fill(v.begin(), v.end(), 0.0f);
        for (float& x : v) x += kNoise * rng.tri();
    }
    return truth;
}

}  // namespace mervasto
