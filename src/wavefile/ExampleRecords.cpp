#include "wavefile/ExampleRecords.h"

#include <cmath>
#include <cstdint>

namespace mervasto {

namespace {

constexpr int32_t kLength = 10000;
constexpr float kHigh = 3.3f;

struct Noise {
    uint32_t state;
    // Roughly uniform in [-amplitude, amplitude].
    float next(float amplitude) {
        state = state * 1664525u + 1013904223u;
        return amplitude * (static_cast<float>(state >> 8) / 8388608.0f - 1.0f);
    }
};

// Level of a pulse train with rising edges at start + k x period, a high time
// of duty x period, and three-sample ramps.
float pulse(double i, double period, double duty, double start) {
    double t = std::fmod(i - start + 100 * period, period);
    double high = duty * period;
    const double ramp = 3;
    double v;
    if (t < ramp)
        v = t / ramp;
    else if (t < high)
        v = 1;
    else if (t < high + ramp)
        v = 1 - (t - high) / ramp;
    else
        v = 0;
    return static_cast<float>(v) * kHigh;
}

float quantise(float v, float voltsPerDiv) {
    float step = voltsPerDiv / 32.0f;
    return std::nearbyint(v / step) * step;
}

void baseSetup(DsoSetup& s, int channels) {
    s = DsoSetup{};
    s.Model = channels == 4 ? "DS-5354" : "DS-5352";
    s.ChannelCount = static_cast<int16_t>(channels);
    s.InfoDigit = "1";
    s.DateTime = "2026/11/22 10:00:00";
    s.AcqMode = "NORMAL";
    s.TimePerDiv = 1e-4f;
    s.TriggerDelay = 0;
    s.RecordLength = kLength;
    s.SampleInterval = static_cast<float>(double{s.TimePerDiv} * 10 / kLength);
    s.TriggerLevel = 1.65f;
    s.TriggerSource = "CH1";
    s.TriggerMode = "SINGLE";
    for (int ch = 0; ch < channels; ++ch)
        s.trace(ch) = {.VoltsPerDiv = 1.0f, .Coupling = "DC1M", .BandwidthLimit = "OFF", .TraceOn = "ON"};
}

}  // namespace

std::vector<std::string> ExampleNames() { return {"pulses", "duty-sweep", "gated"}; }

bool MakeExampleRecord(std::string_view name, DsoSetup& setup, WaveRecord& record) {
    int channels = name == "duty-sweep" ? 2 : 4;
    if (name != "pulses" && name != "duty-sweep" && name != "gated") return false;
    baseSetup(setup, channels);
    record = WaveRecord{};
    record.WaveLength = kLength;
    record.SampleSec = setup.SampleInterval;
    for (auto& w : record.wave) w.assign(kLength, 0.0f);
    Noise noise{12345u};
    for (int32_t i = 0; i < kLength; ++i) {
        float v[kChannels] = {};
        if (name == "pulses") {
            v[0] = pulse(i, 200, 0.5, 20);
            v[1] = pulse(i, 250, 0.3, 40);
            v[2] = pulse(i, 500, 0.2, 60);
            v[3] = pulse(i, 125, 0.5, 10);
        } else if (name == "duty-sweep") {
            double duty = 0.1 + 0.8 * i / kLength;
            v[0] = pulse(i, 400, duty, 30);
            v[1] = pulse(i, 400, 0.5, 30);
        } else {
            v[0] = pulse(i, 200, 0.5, 20);
            v[1] = pulse(i, 100, 0.25, 20);
            v[2] = pulse(i, 400, 0.75, 20);
            v[3] = (i >= 3000 && i < 7000) ? kHigh : 0.0f;
        }
        for (int ch = 0; ch < channels; ++ch)
            record.wave[static_cast<size_t>(ch)][static_cast<size_t>(i)] = quantise(v[ch] + noise.next(0.004f), 1.0f);
    }
    return true;
}

}  // namespace mervasto
