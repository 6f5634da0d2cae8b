#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "display/WaveDecimator.h"

namespace mervasto {
namespace {

// Brute force: every sample goes to column floor(r * columns / n).
std::vector<ColumnRange> reference(const std::vector<float>& s, int32_t first, int32_t last, int32_t columns) {
    first = std::max(first, 0);
    last = std::min<int32_t>(last, static_cast<int32_t>(s.size()) - 1);
    std::vector<ColumnRange> out;
    if (columns < 1 || first > last) return out;
    const int64_t n = int64_t{last} - first + 1;
    if (n < columns) {
        for (int32_t i = first; i <= last; ++i) out.push_back({s[i], s[i]});
        return out;
    }
    out.assign(static_cast<size_t>(columns), {1e30f, -1e30f});
    for (int64_t r = 0; r < n; ++r) {
        ColumnRange& c = out[static_cast<size_t>(r * columns / n)];
        c.min = std::min(c.min, s[static_cast<size_t>(first + r)]);
        c.max = std::max(c.max, s[static_cast<size_t>(first + r)]);
    }
    return out;
}

std::vector<float> randomSamples(size_t n, uint32_t seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> d(-5.0f, 5.0f);
    std::vector<float> v(n);
    for (float& x : v) x = d(gen);
    return v;
}

void expectSame(const std::vector<ColumnRange>& want, const DecimatedTrace& got, const char* what) {
    ASSERT_EQ(static_cast<int32_t>(want.size()), got.count) << what;
    for (size_t c = 0; c < want.size(); ++c) {
        ASSERT_EQ(want[c].min, got.column[c].min) << what << " column " << c;
        ASSERT_EQ(want[c].max, got.column[c].max) << what << " column " << c;
    }
}

struct RangeCase {
    int32_t first;
    int32_t last;
    int32_t columns;
};

TEST(WaveDecimator, ScanAndPyramidMatchBruteForce) {
    // Long enough that columns span whole coarse blocks, with a ragged tail.
    const std::vector<float> s = randomSamples(300001, 7);
    const int32_t end = static_cast<int32_t>(s.size()) - 1;
    const RangeCase cases[] = {
        {0, end, 1600},              // whole record: coarse level
        {0, end, 1},                 // one column
        {0, end, 7},                 // columns much wider than a coarse block
        {1, end - 1, 1599},          // ragged at both ends
        {4095, 4096 * 3, 2},         // straddling coarse boundaries
        {63, 64 * 300 + 1, 3},       // fine level only
        {end - 9000, end, 50},       // touches the partial last blocks
        {12345, 12345 + 999, 1000},  // one sample per column
        {-100, end + 100, 800},      // clamped to the record
        {100, 100, 10},              // one sample
        {0, 99, 200},                // fewer samples than columns
        {50, 49, 10},                // empty: first after last
        {0, 99, 0},                  // no columns
        {end + 1, end + 50, 10},     // wholly beyond the record
        {-20, -1, 10},               // wholly before it
    };
    WaveDecimator pyramid;
    pyramid.build(s);
    DecimatedTrace scan, fromPyramid;
    for (const RangeCase& c : cases) {
        const auto want = reference(s, c.first, c.last, c.columns);
        SCOPED_TRACE(testing::Message() << c.first << ".." << c.last << " / " << c.columns);
        DecimateScan(s, c.first, c.last, c.columns, scan);
        expectSame(want, scan, "scan");
        pyramid.decimate(c.first, c.last, c.columns, fromPyramid);
        expectSame(want, fromPyramid, "pyramid");
        EXPECT_EQ(scan.perSample, fromPyramid.perSample);
    }
    // Random ranges as single columns meet every block boundary sooner or later.
    std::mt19937 gen(3);
    std::uniform_int_distribution<int32_t> pos(0, end);
    for (int k = 0; k < 500; ++k) {
        int32_t a = pos(gen), b = pos(gen);
        if (a > b) std::swap(a, b);
        const auto [mn, mx] = std::minmax_element(s.begin() + a, s.begin() + b + 1);
        const ColumnRange r = pyramid.rangeMinMax(a, b);
        ASSERT_TRUE(r.min == *mn && r.max == *mx) << a << ".." << b;
    }
}

TEST(WaveDecimator, NothingToDrawFromNoSamples) {
    WaveDecimator empty;
    empty.build({});
    DecimatedTrace t;
    t.count = 5;
    empty.decimate(0, 10, 10, t);
    EXPECT_EQ(t.count, 0);
    DecimateScan({}, 0, 10, 10, t);
    EXPECT_EQ(t.count, 0);
}

}  // namespace
}  // namespace mervasto
