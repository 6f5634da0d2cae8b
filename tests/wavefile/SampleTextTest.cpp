#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>

#include "common/Numeric.h"
#include "wavefile/SampleText.h"

namespace mervasto {
namespace {

std::string fast(float x) {
    std::string s;
    AppendSampleText(s, x);
    return s;
}

// The fast paths must agree with the general routines on every input, or a
// file would read differently depending on its size.
TEST(SampleTextTest, AgreesWithGeneralRoutinesOnManyFloats) {
    std::mt19937 rng(12345);
    std::uniform_int_distribution<uint32_t> bits;
    std::uniform_int_distribution<int> code(-32768, 32767);
    std::uniform_int_distribution<int> vdivIndex(0, 5);
    const float vdivs[] = {0.002f, 0.05f, 0.1f, 0.5f, 2.0f, 10.0f};
    SampleTextCache cache;
    for (int i = 0; i < 400000; ++i) {
        float x;
        if (i % 2 == 0) {
            uint32_t b = bits(rng);
            std::memcpy(&x, &b, sizeof x);
            if (!std::isfinite(x)) continue;
        } else {
            // Instrument-like samples: counts x volts per division - offset.
            x = static_cast<float>(code(rng)) / 8192.0f * vdivs[vdivIndex(rng)] - 0.25f;
        }
        const std::string general = PrintForm(x);
        ASSERT_EQ(fast(x), general) << x;
        // Twice through the cache: once formatted, once remembered.
        for (int pass = 0; pass < 2; ++pass) {
            char buf[kSampleTextMax];
            ASSERT_EQ(std::string(buf, cache.write(buf, x)), general) << x;
        }
        ASSERT_EQ(std::bit_cast<uint32_t>(SampleValue(general)), std::bit_cast<uint32_t>(ValSingle(general)))
            << general;
    }
}

TEST(SampleTextTest, ParsesRandomDecimalsLikeVal) {
    std::mt19937_64 rng(99);
    for (int i = 0; i < 300000; ++i) {
        std::string t = (rng() % 2) ? "-" : " ";
        const int digits = 1 + static_cast<int>(rng() % 17);
        const int point = static_cast<int>(rng() % (digits + 1));
        for (int d = 0; d < digits; ++d) {
            if (d == point) t.push_back('.');
            t.push_back(static_cast<char>('0' + rng() % 10));
        }
        if (rng() % 3 == 0) t += "E" + std::to_string(static_cast<int>(rng() % 60) - 30);
        ASSERT_EQ(std::bit_cast<uint32_t>(SampleValue(t)), std::bit_cast<uint32_t>(ValSingle(t))) << t;
    }
}

TEST(SampleTextTest, ParsesLikeVal) {
    const char* texts[] = {"",         " ",         "-",     "+",       ".",       "-.5 ",
                           " .125 ",   "1e",        "1E-05", "1.5E+3x", "2d3",     "-0",
                           "007.50",   "123456789", "1e-45", "3.4e39",  "9999999", "16777217",
                           " 12abc",   "0.000001",  "1.e2",  "\t-3.25", "1e+",     ".0000000000001234",
                           "16777216", "8388609.5"};
    for (const char* t : texts)
        EXPECT_EQ(std::bit_cast<uint32_t>(SampleValue(t)), std::bit_cast<uint32_t>(ValSingle(t))) << '"' << t << '"';
    EXPECT_EQ(fast(0.0f), " 0 ");
    EXPECT_EQ(fast(-0.0f), " 0 ");
    EXPECT_EQ(fast(-0.5f), "-.5 ");
    EXPECT_EQ(fast(1e-5f), " 1E-05 ");
}

}  // namespace
}  // namespace mervasto
