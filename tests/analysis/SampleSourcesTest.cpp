#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "analysis/SampleSources.h"

namespace mervasto::samples {
namespace {

// Samples on a coarse grid (so that thresholds fall on samples), steps and
// ripple, both zeros, and magnitudes at the ends of the float range.
std::vector<std::vector<float>> sampleSets() {
    std::vector<std::vector<float>> sets;
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> grid(0, 32);
    std::vector<float> coarse;
    for (int i = 0; i < 1000; ++i) coarse.push_back(static_cast<float>(grid(rng)) / 8.0f - 2.0f);
    sets.push_back(coarse);
    std::vector<float> steps;
    for (int i = 0; i < 1000; ++i) steps.push_back((i / 37) % 2 ? 2.5f + 0.125f * static_cast<float>(i % 3) : -0.5f);
    sets.push_back(steps);
    std::vector<float> odd;
    const float specials[] = {0.0f, -0.0f, 1e-40f, -1e-40f, 3e38f, -3e38f, 1.0f, -1.0f};
    for (int i = 0; i < 1000; ++i) odd.push_back(specials[static_cast<size_t>(grid(rng)) % 8]);
    sets.push_back(odd);
    std::vector<float> zeros;  // the largest sample is a zero of either sign
    for (int i = 0; i < 1000; ++i) zeros.push_back(specials[static_cast<size_t>(grid(rng)) % 2] - (i % 5 == 0));
    sets.push_back(zeros);
    return sets;
}

bool same(float a, float b) { return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b); }
bool same(double a, double b) { return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b); }

template <int HS>
void expectSameMeans(const std::vector<float>& x, const std::string& at) {
    const auto n = static_cast<int32_t>(x.size()) - 2 * HS;
    std::vector<float> vector(x.size()), scalar(x.size());
    for (int32_t count : {1, 3, 4, 5, 7, 8, 9, 15, 16, 17, n}) {
        meanRun<HS, true>(x.data() + HS, vector.data(), count);
        meanRun<HS, false>(x.data() + HS, scalar.data(), count);
#if defined(MERVASTO_AVX2)
        std::vector<float> wide(x.size());
        if (hasAvx2()) meanRunAvx2<HS>(x.data() + HS, wide.data(), count);
#endif
        for (int32_t t = 0; t < count; ++t) {
            ASSERT_TRUE(same(vector[t], scalar[t])) << at << ", HS " << HS << ", count " << count << ", t " << t;
#if defined(MERVASTO_AVX2)
            if (hasAvx2()) {
                ASSERT_TRUE(same(wide[t], scalar[t])) << at << ", HS " << HS << ", wide, t " << t;
            }
#endif
        }
    }
}

// The vector loops of the scan's kernels give exactly what their scalar
// loops give (the whole kernel on a processor without SSE2): on every
// alignment and length, at the thresholds themselves, and on both zeros.
TEST(SampleKernels, VectorLoopsGiveWhatTheScalarLoopsGive) {
    int set = 0;
    for (const std::vector<float>& x : sampleSets()) {
        const std::string at = "set " + std::to_string(set++);
        const auto n = static_cast<int32_t>(x.size());
        for (int32_t a = 0; a < 17; ++a)
            for (int32_t count = 1; a + count <= n; count += count < 70 ? 1 : 97) {
                const float* from = x.data() + a;
                const SpanMeasure s = measureRangeScalar(from, count);
                std::vector<SpanMeasure> vector = {measureRange(from, count)};
#if defined(__SSE2__)
                vector.push_back(measureRangeSse2(from, count));
#endif
#if defined(MERVASTO_AVX2)
                if (hasAvx2()) vector.push_back(measureRangeAvx2(from, count));
#endif
                for (const SpanMeasure& v : vector)
                    ASSERT_TRUE(same(v.maxValue, s.maxValue) && same(v.minValue, s.minValue) &&
                                same(v.sumSquares, s.sumSquares))
                        << at << ", from " << a << ", " << count << " samples: max " << v.maxValue << " / "
                        << s.maxValue << ", min " << v.minValue << " / " << s.minValue;
            }

        expectSameMeans<1>(x, at);
        expectSameMeans<3>(x, at);

        PlainSamples src(x.data(), n);
        const float thresholds[] = {x[5], x[100], -0.5f, 0.0f, 2.5f, 1e-40f};
        for (float t : thresholds)
            for (int32_t j = 0; j < 40; ++j)
                for (int32_t end : {n, n - 1, j + 17, j}) {
                    ASSERT_EQ(firstNotAtLeast<true>(src, j, end, t), firstNotAtLeast<false>(src, j, end, t))
                        << at << ", at least " << t << " from " << j << " to " << end;
                    ASSERT_EQ(firstNotAtMost<true>(src, j, end, t), firstNotAtMost<false>(src, j, end, t))
                        << at << ", at most " << t << " from " << j << " to " << end;
                    for (float h : {0.0f, 0.125f, 1.5f})
                        ASSERT_EQ(firstAwayFrom<true>(src, j, end, t, h), firstAwayFrom<false>(src, j, end, t, h))
                            << at << ", " << h << " away from " << t << " from " << j << " to " << end;
                }
    }
}

}  // namespace
}  // namespace mervasto::samples
