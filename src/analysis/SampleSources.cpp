#include "analysis/SampleSources.h"

namespace mervasto::samples {

#if defined(MERVASTO_AVX2)
bool hasAvx2() {
    static const bool yes = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return yes;
}
#endif

namespace {

// The samples after the last whole group of sixteen.
SpanMeasure measureTail(const float* x, int32_t t, int32_t count, double* q, float mx, float mn) {
    for (int r = 0; t < count; ++t, ++r) {
        q[r] += static_cast<double>(x[t]) * x[t];
        mx = std::max(mx, x[t]);
        mn = std::min(mn, x[t]);
    }
    return finish(q, mx, mn);
}

}  // namespace

#if defined(MERVASTO_AVX2)
__attribute__((target("avx2"))) SpanMeasure measureRangeAvx2(const float* x, int32_t count) {
    alignas(32) double q[kLanes];
    __m256d acc[4] = {_mm256_setzero_pd(), _mm256_setzero_pd(), _mm256_setzero_pd(), _mm256_setzero_pd()};
    __m256 vmx = _mm256_set1_ps(x[0]), vmn = vmx;
    int32_t t = 0;
    for (; t + kLanes <= count; t += kLanes) {
        for (int h = 0; h < 2; ++h) {
            const __m256 v = _mm256_loadu_ps(x + t + 8 * h);
            const __m256d lo = _mm256_cvtps_pd(_mm256_castps256_ps128(v));
            const __m256d hi = _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1));
            acc[2 * h] = _mm256_add_pd(acc[2 * h], _mm256_mul_pd(lo, lo));
            acc[2 * h + 1] = _mm256_add_pd(acc[2 * h + 1], _mm256_mul_pd(hi, hi));
            vmx = _mm256_max_ps(vmx, v);
            vmn = _mm256_min_ps(vmn, v);
        }
    }
    for (int i = 0; i < 4; ++i) _mm256_store_pd(q + 4 * i, acc[i]);
    alignas(32) float m[8];
    _mm256_store_ps(m, vmx);
    float mx = m[0];
    for (int i = 1; i < 8; ++i) mx = std::max(mx, m[i]);
    _mm256_store_ps(m, vmn);
    float mn = m[0];
    for (int i = 1; i < 8; ++i) mn = std::min(mn, m[i]);
    _mm256_zeroupper();
    return measureTail(x, t, count, q, mx, mn);
}
#endif

SpanMeasure measureRange(const float* x, int32_t count) {
    if (count < kLanes) return measureRangeScalar(x, count);
#if defined(MERVASTO_AVX2)
    if (hasAvx2()) return measureRangeAvx2(x, count);
#endif
#if defined(__SSE2__)
    return measureRangeSse2(x, count);
#else
    return measureRangeScalar(x, count);
#endif
}

#if defined(__SSE2__)
SpanMeasure measureRangeSse2(const float* x, int32_t count) {
    alignas(16) double q[kLanes];
    __m128d acc[8];
    for (auto& a : acc) a = _mm_setzero_pd();
    __m128 vmx = _mm_set1_ps(x[0]), vmn = vmx;
    int32_t t = 0;
    for (; t + kLanes <= count; t += kLanes) {
        for (int h = 0; h < 4; ++h) {
            const __m128 v = _mm_loadu_ps(x + t + 4 * h);
            const __m128d lo = _mm_cvtps_pd(v);
            const __m128d hi = _mm_cvtps_pd(_mm_movehl_ps(v, v));
            acc[2 * h] = _mm_add_pd(acc[2 * h], _mm_mul_pd(lo, lo));
            acc[2 * h + 1] = _mm_add_pd(acc[2 * h + 1], _mm_mul_pd(hi, hi));
            vmx = _mm_max_ps(vmx, v);
            vmn = _mm_min_ps(vmn, v);
        }
    }
    for (int i = 0; i < 8; ++i) _mm_store_pd(q + 2 * i, acc[i]);
    alignas(16) float m[4];
    _mm_store_ps(m, vmx);
    const float mx = std::max(std::max(m[0], m[1]), std::max(m[2], m[3]));
    _mm_store_ps(m, vmn);
    const float mn = std::min(std::min(m[0], m[1]), std::min(m[2], m[3]));
    return measureTail(x, t, count, q, mx, mn);
}
#endif

SpanMeasure measureRangeScalar(const float* x, int32_t count) {
    double q[kLanes] = {};
    float mx = x[0], mn = x[0];
    int32_t t = 0;
    for (; t + kLanes <= count; t += kLanes) {
        for (int r = 0; r < kLanes; ++r) {
            const float v = x[t + r];
            q[r] += static_cast<double>(v) * v;
            mx = std::max(mx, v);
            mn = std::min(mn, v);
        }
    }
    return measureTail(x, t, count, q, mx, mn);
}

SpanMeasure PlainSamples::measure(int32_t a, int32_t b) { return measureRange(x + a, b - a + 1); }

}  // namespace mervasto::samples
