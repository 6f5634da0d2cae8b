#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#define MERVASTO_AVX2 1
#include <immintrin.h>
#endif

// Where the edge scan reads its samples from, and the vector kernels that
// read them. Used by the scan only; not part of the analysis interface.
//
// Each kernel also runs without its vector loop (Vector = false, and
// measureRangeScalar): that is the whole kernel where the compiler has no
// SSE2, and it must give exactly what the vector loops give, which a test
// checks on any machine.
namespace mervasto::samples {

#if defined(MERVASTO_AVX2)
// The wide loops give exactly the values of the narrow ones; they are used
// where the processor has them.
bool hasAvx2();
#endif

struct SpanMeasure {
    double maxValue;
    double minValue;
    double sumSquares;
};

// Max, min and sum of squares of samples x[0 .. count - 1], count >= 1. The
// sum is made of sixteen partial sums combined in a fixed order, so the result
// depends on the samples only, not on the width of the loop that ran.
SpanMeasure measureRange(const float* x, int32_t count);
// The same by one width of loop each; measureRange takes the widest the
// processor has.
SpanMeasure measureRangeScalar(const float* x, int32_t count);
#if defined(__SSE2__)
SpanMeasure measureRangeSse2(const float* x, int32_t count);
#endif
#if defined(MERVASTO_AVX2)
SpanMeasure measureRangeAvx2(const float* x, int32_t count);
#endif

// Where the scan reads its samples from. Plain: an array of samples as they
// are (smoothed beforehand, or not smoothed at all). Mean<HS>: the centred
// mean of 2 HS + 1 samples of the record, worked out as it is read, so that
// a long record is read once instead of being smoothed into a second array
// and read again; it gives exactly the values of SmoothSamples.
struct PlainSamples {
    const float* x;
    int32_t n;

    PlainSamples(const float* samples, int32_t count) : x(samples), n(count) {}
    float at(int32_t j) const { return x[j]; }
    // Samples j .. j + count - 1, one after the other.
    const float* span(int32_t j, int32_t) const { return x + j; }
    SpanMeasure measure(int32_t a, int32_t b);
    void restart(int32_t) {}
};

template <int HS>
struct MeanSamples {
    static constexpr float kInv = 1.0f / (2 * HS + 1);  // as SmoothSamples
    const float* x;  // x[j] is sample j of the window; x[j - HS .. j + HS] read where they exist
    int32_t n;
    int32_t vectorFrom;  // [vectorFrom, vectorTo): the whole mean lies in the record
    int32_t vectorTo;

    MeanSamples(const float* record, int32_t recordLength, int32_t start, int32_t count)
        : x(record + start),
          n(count),
          vectorFrom(std::clamp(HS - start, 0, count)),
          vectorTo(std::clamp(recordLength - HS - start, vectorFrom, count)) {}

    float at(int32_t j) const {
        if (j < vectorFrom || j >= vectorTo) return x[j];
        const float* w = x + j - HS;
        float s = w[0];
        for (int t = 1; t <= 2 * HS; ++t) s += w[t];
        return s * kInv;
    }
    SpanMeasure measure(int32_t a, int32_t b);
    void restart(int32_t) {}
};

// out[t] = centred mean at x + t for t < count (all of x[t - HS .. t + HS]
// exist), summed in the same order as MeanSamples::at.
template <int HS, bool Vector = true>
void meanRun(const float* x, float* out, int32_t count) {
    constexpr float inv = MeanSamples<HS>::kInv;
    int32_t t = 0;
#if defined(__SSE2__)
    if constexpr (Vector)
        for (; t + 4 <= count; t += 4) {
            const float* w = x + t - HS;
            __m128 s = _mm_loadu_ps(w);
            for (int r = 1; r <= 2 * HS; ++r) s = _mm_add_ps(s, _mm_loadu_ps(w + r));
            _mm_storeu_ps(out + t, _mm_mul_ps(s, _mm_set1_ps(inv)));
        }
#endif
    for (; t < count; ++t) {
        const float* w = x + t - HS;
        float s = w[0];
        for (int r = 1; r <= 2 * HS; ++r) s += w[r];
        out[t] = s * inv;
    }
}

#if defined(MERVASTO_AVX2)
template <int HS>
__attribute__((target("avx2"))) void meanRunAvx2(const float* x, float* out, int32_t count) {
    constexpr float inv = MeanSamples<HS>::kInv;
    int32_t t = 0;
    for (; t + 8 <= count; t += 8) {
        const float* w = x + t - HS;
        __m256 s = _mm256_loadu_ps(w);
        for (int r = 1; r <= 2 * HS; ++r) s = _mm256_add_ps(s, _mm256_loadu_ps(w + r));
        _mm256_storeu_ps(out + t, _mm256_mul_ps(s, _mm256_set1_ps(inv)));
    }
    _mm256_zeroupper();  // the narrow code after this must not pay for the wide registers
    meanRun<HS>(x + t, out + t, count - t);
}
#endif

// MeanSamples worked out once, a chunk ahead of the scan, into a buffer that
// keeps the latest 32,768 to 131,072 of them: it stays in the cache for the
// measurements of each cycle, and the record is read only once. A cycle that
// reaches further back is measured from the record.
template <int HS>
class RingSamples {
public:
    static constexpr int32_t kKeep = 1 << 15;
    static constexpr int32_t kChunk = 2048;
    static constexpr size_t kFloats = static_cast<size_t>(4 * kKeep);

    RingSamples(const MeanSamples<HS>& mean, float* buffer) : mean_(mean), buf_(buffer), n(mean.n) {}

    const MeanSamples<HS>& mean_;
    float* buf_;  // buf_[k - base_] is sample k, for k in [base_, produced_)
    int32_t n;
    int32_t base_ = 0;
    int32_t produced_ = 0;

    float at(int32_t j) {
        if (j >= produced_) produce(j);
        return buf_[j - base_];
    }
    const float* span(int32_t j, int32_t count) {
        if (j + count > produced_) produce(j + count - 1);
        return buf_ + (j - base_);
    }
    SpanMeasure measure(int32_t a, int32_t b);
    void restart(int32_t j) { base_ = produced_ = j; }

private:
    void produce(int32_t upTo) {
        while (produced_ <= upTo && produced_ < n) {
            if (produced_ - base_ + kChunk > 4 * kKeep) {
                std::copy(buf_ + (produced_ - kKeep - base_), buf_ + (produced_ - base_), buf_);
                base_ = produced_ - kKeep;
            }
            const int32_t end = std::min(n, produced_ + kChunk);
            float* out = buf_ + (produced_ - base_);  // sample k goes to out[k - produced_]
            int32_t k = produced_;
            for (; k < end && k < mean_.vectorFrom; ++k) out[k - produced_] = mean_.at(k);
            const int32_t runEnd = std::max(k, std::min(end, mean_.vectorTo));
#if defined(MERVASTO_AVX2)
            if (hasAvx2())
                meanRunAvx2<HS>(mean_.x + k, out + (k - produced_), runEnd - k);
            else
#endif
                meanRun<HS>(mean_.x + k, out + (k - produced_), runEnd - k);
            for (k = runEnd; k < end; ++k) out[k - produced_] = mean_.at(k);
            produced_ = end;
        }
    }
};

// Sample 16k + r goes to partial sum q[r] (the last few to q[0], q[1], ...),
// so the loop does not wait on one chain of additions; finish combines them
// pairwise in a fixed tree.
inline constexpr int kLanes = 16;

inline SpanMeasure finish(const double* q, float mx, float mn) {
    const double a = ((q[0] + q[1]) + (q[2] + q[3])) + ((q[4] + q[5]) + (q[6] + q[7]));
    const double b = ((q[8] + q[9]) + (q[10] + q[11])) + ((q[12] + q[13]) + (q[14] + q[15]));
    // Which of 0 and -0 a loop keeps as the largest depends on its width:
    // adding 0 makes it 0 whichever, and leaves every other value as it is.
    return SpanMeasure{mx + 0.0f, mn + 0.0f, a + b};
}

// The same as measureRange over samples a..b of any source, one by one, with
// the same partial sums.
template <class Src>
SpanMeasure measureSpan(Src& src, int32_t a, int32_t b) {
    double q[kLanes] = {};
    float mx = src.at(a), mn = mx;
    const int32_t count = b - a + 1;
    int32_t t = 0;
    for (; t + kLanes <= count; t += kLanes) {
        for (int r = 0; r < kLanes; ++r) {
            const float v = src.at(a + t + r);
            q[r] += static_cast<double>(v) * v;
            mx = std::max(mx, v);
            mn = std::min(mn, v);
        }
    }
    for (int r = 0; t < count; ++t, ++r) {
        const float v = src.at(a + t);
        q[r] += static_cast<double>(v) * v;
        mx = std::max(mx, v);
        mn = std::min(mn, v);
    }
    return finish(q, mx, mn);
}

template <int HS>
SpanMeasure MeanSamples<HS>::measure(int32_t a, int32_t b) {
    return measureSpan(*this, a, b);
}

template <int HS>
SpanMeasure RingSamples<HS>::measure(int32_t a, int32_t b) {
    if (a >= base_ && b < produced_) return measureRange(buf_ + (a - base_), b - a + 1);
    MeanSamples<HS> fromRecord = mean_;
    return measureSpan(fromRecord, a, b);
}

// First index in [j, end) whose sample fails keep(sample) (or end): the skip
// over long flat stretches of the scan. keepFour is the same test on four
// samples, giving a 4-bit mask of the failures.
template <bool Vector, class Src, class Keep, class KeepFour>
int32_t firstFailing(Src& src, int32_t j, int32_t end, Keep keep, KeepFour keepFour) {
    constexpr int32_t kBlock = 512;
    while (j < end) {
        const int32_t len = std::min(end - j, kBlock);
        const float* x = src.span(j, len);
        int32_t k = 0;
#if defined(__SSE2__)
        if constexpr (Vector)
            for (; k + 16 <= len; k += 16) {
                const int m = keepFour(_mm_loadu_ps(x + k)) | keepFour(_mm_loadu_ps(x + k + 4)) << 4 |
                              keepFour(_mm_loadu_ps(x + k + 8)) << 8 | keepFour(_mm_loadu_ps(x + k + 12)) << 12;
                if (m != 0) return j + k + __builtin_ctz(static_cast<unsigned>(m));
            }
#else
        (void)keepFour;
#endif
        for (; k < len; ++k)
            if (!keep(x[k])) return j + k;
        j += len;
    }
    return end;
}

template <bool Vector = true, class Src>
int32_t firstNotAtLeast(Src& src, int32_t j, int32_t end, float t) {
#if defined(__SSE2__)
    const __m128 tv = _mm_set1_ps(t);
    auto four = [tv](__m128 v) { return _mm_movemask_ps(_mm_cmpnge_ps(v, tv)); };
#else
    auto four = [](float) { return 0; };
#endif
    return firstFailing<Vector>(
        src, j, end, [t](float v) { return v >= t; }, four);
}

// First index in [j, end) whose sample lies h or more from w (or end).
template <bool Vector = true, class Src>
int32_t firstAwayFrom(Src& src, int32_t j, int32_t end, float w, float h) {
#if defined(__SSE2__)
    const __m128 wv = _mm_set1_ps(w), hv = _mm_set1_ps(h), sign = _mm_set1_ps(-0.0f);
    auto four = [=](__m128 v) { return _mm_movemask_ps(_mm_cmpge_ps(_mm_andnot_ps(sign, _mm_sub_ps(wv, v)), hv)); };
#else
    auto four = [](float) { return 0; };
#endif
    return firstFailing<Vector>(
        src, j, end, [w, h](float v) { return !(std::fabs(w - v) >= h); }, four);
}

template <bool Vector = true, class Src>
int32_t firstNotAtMost(Src& src, int32_t j, int32_t end, float t) {
#if defined(__SSE2__)
    const __m128 tv = _mm_set1_ps(t);
    auto four = [tv](__m128 v) { return _mm_movemask_ps(_mm_cmpnle_ps(v, tv)); };
#else
    auto four = [](float) { return 0; };
#endif
    return firstFailing<Vector>(
        src, j, end, [t](float v) { return v <= t; }, four);
}

// (a + b) / 2 rounded to the nearest, halves to the even neighbour (a, b >= 0).
// Callers pass record sample numbers: rounding window-relative numbers would
// move an edge by one whenever the window starts at an odd sample.
inline int32_t halfEvenMidpoint(int32_t a, int32_t b) {
    const int64_t sum = int64_t{a} + b;
    const int64_t half = sum >> 1;
    return static_cast<int32_t>((sum & 1) && (half & 1) ? half + 1 : half);
}

// A scan's reject range in window samples (window sample 0 is record sample
// start): the scan runs up to the sample after which the range starts, then
// once more, unarmed, from its end.
struct RejectSplit {
    bool pending;
    int32_t from;
    int32_t to;  // a range that ends before the window restarts at its first sample

    RejectSplit(bool inForce, int32_t rejectStart, int32_t rejectEnd, int32_t start)
        : pending(inForce), from(rejectStart - start), to(std::max(rejectEnd - start, 0)) {}

    // Where the current stretch of an n-sample window ends.
    int32_t segmentEnd(int32_t n) const { return pending ? std::clamp(from + 1, int32_t{1}, n) : n; }
};

// The walk both edge scans take across the hysteresis band, h either side of
// the level. Armed once the signal has been below the band, it stops at each
// sample that may lie in the band or cross the level; the caller follows the
// signal through the band (crossBand) and past the ripple after an edge
// (settle). p is the last sample taken, prev its index.
template <class Src>
struct BandWalk {
    Src& src;
    int32_t n;
    float level;
    float h;
    float lowT;
    float highT;
    float exitDistance;
    int32_t bound;  // the band loops stop here
    // With h >= 0 a sample at or beyond the threshold on the previous
    // sample's side can neither be in the band nor cross the level.
    bool skipFlat;
    int32_t j = 0;
    bool armed = false;
    float p = 0;
    int32_t prev = 0;

    BandWalk(Src& samples, int32_t count, float lvl, float hyst, int32_t stop)
        : src(samples),
          n(count),
          level(lvl),
          h(hyst),
          lowT(lvl - hyst),
          highT(lvl + hyst),
          exitDistance(2.0f * hyst),
          bound(stop),
          skipFlat(hyst >= 0.0f) {}

    float sample(int32_t k) { return src.at(k < n ? k : n - 1); }

    // Moves j on to the next sample worth looking at; false when segEnd
    // comes first.
    bool advance(int32_t segEnd) {
        if (!armed) {
            j = firstNotAtLeast(src, j, segEnd, lowT);
            if (j >= segEnd) return false;
            armed = true;
            p = src.at(j);
        } else if (skipFlat) {
            // Samples beyond the band on the side of the previous one only
            // move the previous sample along: skip them in bulk.
            int32_t next = j;
            if (p > level)
                next = firstNotAtLeast(src, j, segEnd, highT);
            else if (p < level)
                next = firstNotAtMost(src, j, segEnd, lowT);
            if (next > j) {
                p = src.at(next - 1);
                prev = next - 1;
                j = next;
                if (j >= segEnd) return false;
            }
        }
        return true;
    }

    // From sample j, at v inside the band, on to the first sample 2h away
    // from v (or bound); returns that sample.
    float crossBand(float v) {
        float w;
        do {
            ++j;
            w = sample(j);
        } while (!(std::fabs(w - v) >= exitDistance) && j < bound);
        return w;
    }

    // The edge of a band traversal entered at `entry` and just left at j:
    // its middle, rounded on record sample numbers.
    int32_t bandEdge(int32_t start, int32_t entry) const {
        return halfEvenMidpoint(start + j - 1, start + entry) - start;
    }

    // A jump across the level from the previous sample to sample k at v: the
    // whole-sample edge, and where the straight line between the two crosses.
    int32_t jumpEdge(int32_t start, int32_t k) const { return halfEvenMidpoint(start + k, start + prev) - start; }
    double jumpCrossing(int32_t k, float v) const {
        return prev + (static_cast<double>(level) - p) / (static_cast<double>(v) - p) * (k - prev);
    }

    // The sample that ends the quiet stretch after an edge that left the
    // band at w at sample j: the first one h or more from w, or bound.
    int32_t quietEnd(float w) const {
        if (j + 1 >= bound) return j + 1;
        return firstAwayFrom(src, j + 1, bound, w, h);
    }

    // Past the ripple smaller than h after an edge that left the band at w.
    void settle(float w) {
        j = quietEnd(w);
        p = sample(j);
        prev = j;
    }

    // The same quiet stretch, but the sample that ends it is looked at next
    // (j is left one short of it) with the one before it as the previous
    // sample, so a crossing it makes is seen.
    void settleThenLook(float w) {
        const int32_t end = quietEnd(w);
        p = end - 1 > j ? sample(end - 1) : w;
        prev = end - 1;
        j = end - 1;
    }

    // After settle(w) at sample j < segEnd: 1 when that sample crossed the
    // level and skipping it hides the crossing. It lies beyond the band on
    // the other side from w, or inside the band at or past the level with
    // the next sample beyond it; either way no edge would be recorded.
    int32_t passedOver(float w, int32_t segEnd) {
        if (j >= segEnd) return 0;
        const bool up = w > level;
        auto beyond = [&](float x) { return up ? x <= lowT : x >= highT; };
        if (beyond(p)) return 1;
        const bool past = up ? p <= level : p >= level;
        return past && j + 1 < segEnd && beyond(src.at(j + 1)) ? 1 : 0;
    }
};

// Where the signal crosses `level` between window samples from and to
// (from < to), nearest to the whole-sample edge e; e itself when it does not.
template <class Src>
double crossingNear(Src& src, int32_t from, int32_t to, float level, int32_t e) {
    double best = e;
    double bestDistance = 1e300;
    float a = src.at(from);
    for (int32_t t = from; t < to; ++t) {
        const float b = src.at(t + 1);
        if ((a < level) != (b < level)) {
            const double x = t + (static_cast<double>(level) - a) / (static_cast<double>(b) - a);
            const double d = std::fabs(x - e);
            if (d < bestDistance) {
                bestDistance = d;
                best = x;
            }
        }
        a = b;
    }
    return best;
}

}  // namespace mervasto::samples
