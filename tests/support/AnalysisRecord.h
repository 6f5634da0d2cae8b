#pragma once

#include <array>
#include <functional>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Levels.h"

namespace mervasto::test {

// A four-channel record kept alive for the spans of AnalysisInput.
struct Record {
    std::array<std::vector<float>, 4> volts;
    std::array<std::vector<int16_t>, 4> raw;
    AnalysisInput in;

    explicit Record(int32_t n, float vdiv = 1, float offset = -2.5f) {
        in.WaveLength = n;
        in.SampleSec = 1e-6f;
        in.VoltsPerDiv.fill(vdiv);
        in.Offset.fill(offset);
        for (int ch = 0; ch < 4; ++ch) volts[ch].assign(static_cast<size_t>(n), 0.0f);
    }
    // The 16-bit samples from the volts, as file input makes them.
    AnalysisInput& input() {
        for (int ch = 0; ch < 4; ++ch) {
            raw[ch].resize(volts[ch].size());
            RawFromVolts(volts[ch], in.VoltsPerDiv[ch], in.Offset[ch], raw[ch]);
            in.volts[ch] = volts[ch];
            in.raw[ch] = raw[ch];
        }
        return in;
    }
    // Samples given as codes; the volts follow from them.
    void codes(int ch, const std::function<int16_t(int32_t)>& code) {
        raw[ch].resize(volts[ch].size());
        for (size_t i = 0; i < raw[ch].size(); ++i) {
            raw[ch][i] = code(static_cast<int32_t>(i));
            volts[ch][i] = VoltsFromRaw(raw[ch][i], in.VoltsPerDiv[ch], in.Offset[ch]);
        }
        in.volts[ch] = volts[ch];
        in.raw[ch] = raw[ch];
    }
    void square(int ch, int32_t period, int32_t high, float lowV = 0, float highV = 5) {
        for (size_t i = 0; i < volts[ch].size(); ++i)
            volts[ch][i] = static_cast<int32_t>(i % static_cast<size_t>(period)) < high ? highV : lowV;
    }
};

}  // namespace mervasto::test
