#include "sim/Scenario.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

#include "sim/ClockWave.h"
#include "sim/HandTurned.h"
#include "sim/Noise.h"

namespace mervasto {

namespace {

constexpr std::array<double, 4> kCyclesPerRecord = {25, 40, 16, 10};
constexpr std::array<double, 4> kDuty = {0.5, 0.3, 0.2, 0.7};
constexpr std::array<float, 4> kHigh = {3.3f, 5.0f, 2.5f, 5.0f};
constexpr double kJitter = 0.01;    // edge jitter, fraction of the period
constexpr float kNoise = 0.02f;     // peak noise, volts
constexpr double kMinPeriod = 8.0;  // samples

void AddNoise(std::vector<float>& v, Noise& rng) {
    for (float& x : v) x += kNoise * rng.tri();
}

// A pulse train: high from each (jittered) rise for duty(position) x period.
template <class DutyAt>
void PulseTrain(std::vector<float>& v, double period, DutyAt dutyAt, float high, Noise& rng, double phase) {
    const auto n = static_cast<int64_t>(v.size());
    std::fill(v.begin(), v.end(), 0.0f);
    for (double t = phase; t < static_cast<double>(n); t += period) {
        const double rise = t + kJitter * period * rng.tri();
        const double fall = rise + dutyAt(rise / static_cast<double>(n)) * period + kJitter * period * rng.tri();
        const int64_t a = std::clamp<int64_t>(static_cast<int64_t>(std::ceil(rise)), 0, n);
        const int64_t b = std::clamp<int64_t>(static_cast<int64_t>(std::ceil(fall)), 0, n);
        std::fill(v.begin() + a, v.begin() + std::max(a, b), high);
    }
}

}  // namespace

double ScenarioPeriod(int channel, int32_t length) {
    return std::max(kMinPeriod, length / kCyclesPerRecord[static_cast<size_t>(channel & 3)]);
}

const std::vector<std::string>& ScenarioNames() {
    static const std::vector<std::string> names = {"pulses", "duty-sweep",  "encoder", "gate",
                                                   "flat",   "hand-turned", "clock"};
    return names;
}

std::vector<std::vector<float>> GenerateScenario(const std::string& name, int channels, int32_t length, uint32_t seed) {
    if (std::find(ScenarioNames().begin(), ScenarioNames().end(), name) == ScenarioNames().end())
        throw std::invalid_argument("unknown scenario \"" + name + "\"");
    channels = std::clamp(channels, 0, 4);
    length = std::max(length, 0);
    if (name == "clock") return ClockScenario(channels, length, seed);
    std::vector<std::vector<float>> out(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(length)));
    if (name == "hand-turned") {
        GenerateHandTurned(out, seed);
        return out;
    }
    Noise rng(seed);

    for (int ch = 0; ch < channels; ++ch) {
        auto& v = out[static_cast<size_t>(ch)];
        const size_t c = static_cast<size_t>(ch);
        const double period = ScenarioPeriod(ch, length);
        const double phase = period * (0.1 + 0.2 * ch);
        if (name == "duty-sweep") {
            PulseTrain(
                v, period, [](double x) { return 0.1 + 0.8 * x; }, kHigh[c], rng, phase);
        } else if (name == "encoder") {
            const double p = std::max(kMinPeriod, length / 50.0);
            if (ch <= 1) {
                // B lags A by a quarter period.
                PulseTrain(
                    v, p, [](double) { return 0.5; }, 5.0f, rng, p * (0.1 + 0.25 * ch));
            } else if (ch == 2) {
                std::fill(v.begin(), v.end(), 0.0f);
                for (double t = p * 0.35 + p; t < length; t += 16 * p) {
                    const auto a = static_cast<int64_t>(std::ceil(t));
                    const auto b = std::min<int64_t>(length, static_cast<int64_t>(std::ceil(t + p / 4)));
                    if (a < b) std::fill(v.begin() + a, v.begin() + b, 5.0f);
                }
            } else {
                std::fill(v.begin(), v.end(), 0.0f);
            }
        } else if (name == "gate" && ch == 3) {
            std::fill(v.begin(), v.end(), 0.0f);
            std::fill(v.begin() + length / 4, v.begin() + (3 * int64_t{length}) / 4, 5.0f);
        } else if (name == "flat" && ch == 0) {
            std::fill(v.begin(), v.end(), 1.0f);
            continue;  // flat means flat: no noise
        } else {
            PulseTrain(
                v, period, [c](double) { return kDuty[c]; }, kHigh[c], rng, phase);
        }
        AddNoise(v, rng);
    }
    return out;
}

}  // namespace mervasto
