#include "sim/ClockWave.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace mervasto {

namespace {

// Box-Muller on a fixed engine, so that a seed gives the same record with
// every standard library.
class Gauss {
public:
    explicit Gauss(uint64_t seed) : engine_(seed) {}
    double next() {
        if (spare_) {
            spare_ = false;
            return kept_;
        }
        double u = 0;
        while (u <= 0) u = uniform();
        const double v = uniform();
        const double r = std::sqrt(-2.0 * std::log(u));
        kept_ = r * std::sin(2 * std::numbers::pi * v);
        spare_ = true;
        return r * std::cos(2 * std::numbers::pi * v);
    }

private:
    double uniform() { return static_cast<double>(engine_() >> 11) * (1.0 / 9007199254740992.0); }
    std::mt19937_64 engine_;
    bool spare_ = false;
    double kept_ = 0;
};

}  // namespace

ClockWave MakeClockWave(const ClockWaveParams& p, int32_t length) {
    ClockWave w;
    const int32_t n = std::max(length, 0);
    w.samples.assign(static_cast<size_t>(n), p.low);
    Gauss rng(p.seed);
    const double rise = std::max(p.rise, 1e-9);
    const double amplitude = static_cast<double>(p.high) - p.low;
    // Fraction of the way up at time x from an edge centred at 0.
    auto up = [rise](double x) { return std::clamp(x / rise + 0.5, 0.0, 1.0); };

    // Cycle k runs from half a ramp before its rising edge to half a ramp
    // before the next one; the pulse is the lower of the rising ramp and the
    // falling one.
    double r = p.firstEdge + p.jitter * rng.next();
    for (int64_t k = 0;; ++k) {
        const double f = r + p.duty * p.period + p.jitter * rng.next();
        const double next = p.firstEdge + static_cast<double>(k + 1) * p.period + p.jitter * rng.next();
        if (r >= 0 && r < n) w.rising.push_back(r);
        if (f >= 0 && f < n) w.falling.push_back(f);
        const auto from = static_cast<int64_t>(std::ceil(r - rise / 2));
        const auto to = static_cast<int64_t>(std::ceil(next - rise / 2));
        for (int64_t i = std::max<int64_t>(from, 0); i < std::min<int64_t>(to, n); ++i) {
            const double x = static_cast<double>(i);
            const double shape = std::min(up(x - r), 1.0 - up(x - f));
            w.samples[static_cast<size_t>(i)] = static_cast<float>(p.low + amplitude * shape);
        }
        if (to >= n) break;
        r = next;
    }

    if (p.noise > 0)
        for (float& v : w.samples) v = static_cast<float>(v + p.noise * rng.next());
    if (p.bits > 0) {
        const double codes = std::ldexp(1.0, p.bits) - 1;
        const double step = (static_cast<double>(p.fullScaleHigh) - p.fullScaleLow) / codes;
        for (float& v : w.samples) {
            const double c = std::clamp(std::nearbyint((v - p.fullScaleLow) / step), 0.0, codes);
            v = static_cast<float>(p.fullScaleLow + c * step);
        }
    }
    return w;
}

std::vector<std::vector<float>> ClockScenario(int channels, int32_t length, uint32_t seed) {
    std::vector<std::vector<float>> out;
    for (int ch = 0; ch < channels; ++ch) {
        ClockWaveParams p;
        p.period = kClockPeriod;
        p.firstEdge = 10 + 20 * ch;
        p.high = 3.3f;
        p.jitter = kClockJitter[ch & 3];
        p.noise = 0.005;
        p.seed = seed * 4 + static_cast<uint64_t>(ch);
        out.push_back(MakeClockWave(p, length).samples);
    }
    return out;
}

}  // namespace mervasto
