#include "analysis/SampleCodes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mervasto {

namespace {

// Both conversions round half to even in the default rounding mode, as
// nearbyint does; the vector forms round in the same mode.

inline int16_t rawCode(double x) {
    const double s = x * 8192.0;
    if (std::isnan(s)) return 0;
    return static_cast<int16_t>(std::nearbyint(std::clamp(s, -32768.0, 32767.0)));
}

// out gets a nonzero value when the code is no 16-bit number.
inline int16_t displayCode(double x, int& out) {
    const double r = std::nearbyint(x * 32.0 + 128.0);
    if (!(r >= -32768.0 && r <= 32767.0)) {
        out = 1;
        return 0;
    }
    return static_cast<int16_t>(r);
}

#if defined(__SSE2__)
// Four samples at a time. cvtpd2dq rounds in the current mode and gives
// INT32_MIN for NaN and for anything beyond 32 bits, which the range test of
// the display codes then refuses.
struct Lanes {
    __m128d lo;  // samples 0, 1
    __m128d hi;  // samples 2, 3
};

inline Lanes scaled(const float* v, __m128d off, __m128d vdiv) {
    const __m128 f = _mm_loadu_ps(v);
    return {_mm_div_pd(_mm_add_pd(_mm_cvtps_pd(f), off), vdiv),
            _mm_div_pd(_mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(f, f)), off), vdiv)};
}

inline __m128i rounded(__m128d lo, __m128d hi) { return _mm_unpacklo_epi64(_mm_cvtpd_epi32(lo), _mm_cvtpd_epi32(hi)); }

inline __m128d rawClamp(__m128d x) {
    const __m128d s = _mm_mul_pd(x, _mm_set1_pd(8192.0));
    const __m128d c = _mm_min_pd(_mm_max_pd(s, _mm_set1_pd(-32768.0)), _mm_set1_pd(32767.0));
    return _mm_andnot_pd(_mm_cmpunord_pd(s, s), c);  // NaN gives 0
}

inline __m128i displayRounded(Lanes x, __m128i& out) {
    const __m128d k32 = _mm_set1_pd(32.0);
    const __m128d k128 = _mm_set1_pd(128.0);
    const __m128i r = rounded(_mm_add_pd(_mm_mul_pd(x.lo, k32), k128), _mm_add_pd(_mm_mul_pd(x.hi, k32), k128));
    out = _mm_or_si128(
        out, _mm_or_si128(_mm_cmplt_epi32(r, _mm_set1_epi32(-32768)), _mm_cmpgt_epi32(r, _mm_set1_epi32(32767))));
    return r;
}

inline void store4(int16_t* to, __m128i r) { _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packs_epi32(r, r)); }
#endif

// One loop for both entry points; the raw codes are made only when asked for,
// so the display-only call pays nothing for them.
template <bool WithRaw>
bool Codes(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> raw,
           std::span<int16_t> display) {
    size_t n = std::min(volts.size(), display.size());
    if constexpr (WithRaw) n = std::min(n, raw.size());
    const auto vdiv = static_cast<double>(voltsPerDiv);
    const auto off = static_cast<double>(offset);
    size_t k = 0;
    int out = 0;
#if defined(__SSE2__)
    __m128i outLanes = _mm_setzero_si128();
    for (; k + 4 <= n; k += 4) {
        const Lanes x = scaled(volts.data() + k, _mm_set1_pd(off), _mm_set1_pd(vdiv));
        if constexpr (WithRaw) store4(raw.data() + k, rounded(rawClamp(x.lo), rawClamp(x.hi)));
        store4(display.data() + k, displayRounded(x, outLanes));
    }
    out = _mm_movemask_epi8(outLanes);
#endif
    for (; k < n; ++k) {
        const double x = (static_cast<double>(volts[k]) + off) / vdiv;
        if constexpr (WithRaw) raw[k] = rawCode(x);
        display[k] = displayCode(x, out);
    }
    return out == 0;
}

}  // namespace

bool RawAndDisplayCodes(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> raw,
                        std::span<int16_t> display) {
    return Codes<true>(volts, voltsPerDiv, offset, raw, display);
}

bool DisplayCodes(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> display) {
    return Codes<false>(volts, voltsPerDiv, offset, {}, display);
}

}  // namespace mervasto
