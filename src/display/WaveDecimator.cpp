#include "display/WaveDecimator.h"

#include <algorithm>
#include <limits>

#if defined(__SSE2__) || defined(_M_X64)
#include <immintrin.h>
#define MERVASTO_DISPLAY_SSE 1
#endif

namespace mervasto {

namespace {

constexpr int32_t kFinePerCoarse = WaveDecimator::kCoarseBlock / WaveDecimator::kFineBlock;
static_assert(WaveDecimator::kCoarseBlock % WaveDecimator::kFineBlock == 0);

// Widens [lo, hi] by n values. Four independent lanes of four keep the loop
// from waiting on one running minimum; the compiler does not do this for
// floats by itself because min/max reductions are not associative under
// its rules for NaN.
inline void widen(const float* p, int64_t n, float& lo, float& hi) {
    int64_t i = 0;
#ifdef MERVASTO_DISPLAY_SSE
    if (n >= 16) {
        __m128 mn0 = _mm_loadu_ps(p), mx0 = mn0;
        __m128 mn1 = _mm_loadu_ps(p + 4), mx1 = mn1;
        __m128 mn2 = _mm_loadu_ps(p + 8), mx2 = mn2;
        __m128 mn3 = _mm_loadu_ps(p + 12), mx3 = mn3;
        for (i = 16; i + 16 <= n; i += 16) {
            const __m128 a = _mm_loadu_ps(p + i), b = _mm_loadu_ps(p + i + 4);
            const __m128 c = _mm_loadu_ps(p + i + 8), d = _mm_loadu_ps(p + i + 12);
            mn0 = _mm_min_ps(mn0, a);
            mx0 = _mm_max_ps(mx0, a);
            mn1 = _mm_min_ps(mn1, b);
            mx1 = _mm_max_ps(mx1, b);
            mn2 = _mm_min_ps(mn2, c);
            mx2 = _mm_max_ps(mx2, c);
            mn3 = _mm_min_ps(mn3, d);
            mx3 = _mm_max_ps(mx3, d);
        }
        alignas(16) float lanesMin[4], lanesMax[4];
        _mm_store_ps(lanesMin, _mm_min_ps(_mm_min_ps(mn0, mn1), _mm_min_ps(mn2, mn3)));
        _mm_store_ps(lanesMax, _mm_max_ps(_mm_max_ps(mx0, mx1), _mm_max_ps(mx2, mx3)));
        for (int k = 0; k < 4; ++k) {
            lo = lanesMin[k] < lo ? lanesMin[k] : lo;
            hi = lanesMax[k] > hi ? lanesMax[k] : hi;
        }
    }
#endif
    for (; i < n; ++i) {
        const float v = p[i];
        lo = v < lo ? v : lo;
        hi = v > hi ? v : hi;
    }
}

// Same over the parallel min and max arrays of a pyramid level.
inline void widenLevel(const float* mins, const float* maxs, int64_t n, float& lo, float& hi) {
    for (int64_t i = 0; i < n; ++i) {
        lo = mins[i] < lo ? mins[i] : lo;
        hi = maxs[i] > hi ? maxs[i] : hi;
    }
}

// Clamps first..last to the samples present and sizes the output. Returns the
// number of samples in range (0 when nothing is to be drawn).
int64_t prepare(size_t size, int32_t& first, int32_t& last, int32_t columns, DecimatedTrace& out) {
    out.count = 0;
    out.perSample = false;
    first = std::max(first, 0);
    last = std::min<int64_t>(last, static_cast<int64_t>(size) - 1);
    out.first = first;
    out.last = last;
    if (columns < 1 || size == 0 || first > last) {
        out.last = first - 1;
        return 0;
    }
    const int64_t n = int64_t{last} - first + 1;
    const int64_t entries = std::min<int64_t>(n, columns);
    if (out.column.size() < static_cast<size_t>(entries)) out.column.resize(static_cast<size_t>(entries));
    out.count = static_cast<int32_t>(entries);
    out.perSample = n < columns;
    return n;
}

// First sample offset of column c: the smallest r with r * columns >= c * n.
inline int64_t columnStart(int64_t c, int64_t n, int64_t columns) { return (c * n + columns - 1) / columns; }

}  // namespace

void DecimateScan(std::span<const float> samples, int32_t first, int32_t last, int32_t columns, DecimatedTrace& out) {
    const int64_t n = prepare(samples.size(), first, last, columns, out);
    if (n == 0) return;
    const float* base = samples.data() + first;
    ColumnRange* dst = out.column.data();
    if (out.perSample) {
        for (int64_t k = 0; k < n; ++k) dst[k] = {base[k], base[k]};
        return;
    }
    int64_t a = 0;
    for (int64_t c = 0; c < columns; ++c) {
        const int64_t b = columnStart(c + 1, n, columns);
        float lo = base[a], hi = base[a];
        widen(base + a + 1, b - a - 1, lo, hi);
        dst[c] = {lo, hi};
        a = b;
    }
}

void WaveDecimator::clear() {
    samples_ = {};
    fineMin_.clear();
    fineMax_.clear();
    coarseMin_.clear();
    coarseMax_.clear();
}

void WaveDecimator::build(std::span<const float> samples) {
    samples_ = samples;
    const int64_t size = static_cast<int64_t>(samples.size());
    const int64_t fine = (size + kFineBlock - 1) / kFineBlock;
    const int64_t coarse = (fine + kFinePerCoarse - 1) / kFinePerCoarse;
    fineMin_.resize(static_cast<size_t>(fine));
    fineMax_.resize(static_cast<size_t>(fine));
    coarseMin_.resize(static_cast<size_t>(coarse));
    coarseMax_.resize(static_cast<size_t>(coarse));
    const float* p = samples.data();
    for (int64_t j = 0; j < fine; ++j) {
        const int64_t a = j * kFineBlock;
        const int64_t b = std::min(a + kFineBlock, size);
        float lo = p[a], hi = p[a];
        widen(p + a + 1, b - a - 1, lo, hi);
        fineMin_[static_cast<size_t>(j)] = lo;
        fineMax_[static_cast<size_t>(j)] = hi;
    }
    for (int64_t j = 0; j < coarse; ++j) {
        const int64_t a = j * kFinePerCoarse;
        const int64_t b = std::min(a + kFinePerCoarse, fine);
        float lo = fineMin_[static_cast<size_t>(a)], hi = fineMax_[static_cast<size_t>(a)];
        widenLevel(fineMin_.data() + a + 1, fineMax_.data() + a + 1, b - a - 1, lo, hi);
        coarseMin_[static_cast<size_t>(j)] = lo;
        coarseMax_[static_cast<size_t>(j)] = hi;
    }
}

ColumnRange WaveDecimator::rangeMinMax(int32_t first, int32_t last) const {
    const float* p = samples_.data();
    int64_t a = first;
    const int64_t b = int64_t{last} + 1;  // exclusive
    float lo = p[a], hi = p[a];
    ++a;
    // Too short to reach a whole fine block beyond the ragged ends.
    if (b - a < 2 * kFineBlock) {
        widen(p + a, b - a, lo, hi);
        return {lo, hi};
    }
    const int64_t fa = (a + kFineBlock - 1) / kFineBlock;  // first whole fine block
    const int64_t fb = b / kFineBlock;                     // one past the last
    widen(p + a, fa * kFineBlock - a, lo, hi);
    widen(p + fb * kFineBlock, b - fb * kFineBlock, lo, hi);
    const int64_t ca = (fa + kFinePerCoarse - 1) / kFinePerCoarse;
    const int64_t cb = fb / kFinePerCoarse;
    const float* fmin = fineMin_.data();
    const float* fmax = fineMax_.data();
    if (ca < cb) {
        widenLevel(fmin + fa, fmax + fa, ca * kFinePerCoarse - fa, lo, hi);
        widenLevel(coarseMin_.data() + ca, coarseMax_.data() + ca, cb - ca, lo, hi);
        widenLevel(fmin + cb * kFinePerCoarse, fmax + cb * kFinePerCoarse, fb - cb * kFinePerCoarse, lo, hi);
    } else {
        widenLevel(fmin + fa, fmax + fa, fb - fa, lo, hi);
    }
    return {lo, hi};
}

void WaveDecimator::decimate(int32_t first, int32_t last, int32_t columns, DecimatedTrace& out) const {
    const int64_t n = prepare(samples_.size(), first, last, columns, out);
    if (n == 0) return;
    ColumnRange* dst = out.column.data();
    if (out.perSample || n < int64_t{columns} * 2 * kFineBlock) {
        // Narrow columns gain nothing from the blocks.
        DecimateScan(samples_, first, last, columns, out);
        return;
    }
    int64_t a = 0;
    for (int64_t c = 0; c < columns; ++c) {
        const int64_t b = columnStart(c + 1, n, columns);
        dst[c] = rangeMinMax(static_cast<int32_t>(first + a), static_cast<int32_t>(first + b - 1));
        a = b;
    }
}

}  // namespace mervasto
