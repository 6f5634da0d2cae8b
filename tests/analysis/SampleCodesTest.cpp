#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <vector>

#include "analysis/Levels.h"
#include "analysis/SampleCodes.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"

namespace mervasto {
namespace {

// The display code as the record has always had it; nullopt when ToInt16
// refuses it.
std::optional<int16_t> referenceDisplay(float v, float vdiv, float offset) {
    try {
        return ToInt16((static_cast<double>(offset) + v) / static_cast<double>(vdiv) * 32.0 + 128.0);
    } catch (const RuntimeError&) {
        return std::nullopt;
    }
}

struct CodeCase {
    const char* name;
    float vdiv;
    float offset;
    std::vector<float> volts;
};

// Every sample of each case, at every position of a 4-sample group and in
// the scalar tail, against the one-sample routines.
TEST(RawAndDisplayCodes, EqualTheOneSampleConversions) {
    constexpr float kInf = std::numeric_limits<float>::infinity();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> noise;
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> spread(-5.0f, 5.0f);
    for (int i = 0; i < 1001; ++i) noise.push_back(spread(rng));
    // Halves of a raw code (1/16384 V at 1 V/div) and of a display code
    // (1/64 V), where the rounding goes to the even neighbour.
    std::vector<float> ties;
    for (int i = -9; i <= 9; ++i) {
        ties.push_back(static_cast<float>(i) / 16384.0f);
        ties.push_back(static_cast<float>(i) / 64.0f);
    }
    const std::vector<CodeCase> cases = {
        {"noise at 1 V/div", 1.0f, 0.0f, noise},
        {"noise at 0.2 V/div with offset", 0.2f, -0.3f, noise},
        {"ties", 1.0f, 0.0f, ties},
        {"raw clamps at the 16-bit ends",
         1.0f,
         0.0f,
         {3.9998f, 3.99994f, 3.99995f, 4.0f, 9.0f, -4.0f, -4.00006f, -9.0f}},
        {"display codes at their ends", 1.0f, 0.0f, {1019.98f, 1019.984f, -1028.0f, -1028.02f}},
    };
    for (const auto& c : cases) {
        for (size_t shift = 0; shift < 4; ++shift) {
            std::vector<float> v(shift, 0.0f);
            v.insert(v.end(), c.volts.begin(), c.volts.end());
            std::vector<int16_t> raw(v.size()), display(v.size()), displayOnly(v.size());
            const bool fits = RawAndDisplayCodes(v, c.vdiv, c.offset, raw, display);
            EXPECT_EQ(DisplayCodes(v, c.vdiv, c.offset, displayOnly), fits) << c.name;
            bool allFit = true;
            for (size_t k = 0; k < v.size(); ++k) {
                ASSERT_EQ(raw[k], RawFromVolts(v[k], c.vdiv, c.offset)) << c.name << " sample " << v[k];
                const auto want = referenceDisplay(v[k], c.vdiv, c.offset);
                allFit = allFit && want.has_value();
                if (want) {
                    ASSERT_EQ(display[k], *want) << c.name << " sample " << v[k];
                    ASSERT_EQ(displayOnly[k], *want) << c.name << " sample " << v[k];
                }
            }
            EXPECT_EQ(fits, allFit) << c.name;
        }
    }

    // Samples that are no numbers or off every scale: raw as RawFromVolts,
    // and the display codes refused, in a group and in the tail alike.
    for (float bad : {kNan, kInf, -kInf, 1e30f, 1020.0f, -1029.0f}) {
        for (size_t at : {size_t{1}, size_t{6}}) {
            std::vector<float> v(7, 0.5f);
            v[at] = bad;
            std::vector<int16_t> raw(v.size()), display(v.size());
            EXPECT_FALSE(RawAndDisplayCodes(v, 1.0f, 0.0f, raw, display)) << bad << " at " << at;
            EXPECT_EQ(raw[at], RawFromVolts(bad, 1.0f, 0.0f)) << bad;
            EXPECT_EQ(raw[at == 1 ? 6 : 1], 4096);
        }
    }
}

}  // namespace
}  // namespace mervasto
