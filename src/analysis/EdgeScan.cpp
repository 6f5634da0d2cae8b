#include "analysis/EdgeScan.h"

#include <algorithm>
#include <cmath>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#define MERVASTO_AVX2 1
#include <immintrin.h>
#endif

#include "analysis/Smoothing.h"
#include "common/RuntimeError.h"

namespace mervasto {

namespace {

#if defined(MERVASTO_AVX2)
// The wide loops below give exactly the values of the narrow ones; they are
// used where the processor has them.
bool hasAvx2() {
    static const bool yes = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return yes;
}
#endif

struct SpanMeasure {
    double maxValue;
    double minValue;
    double sumSquares;
};

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
template <int HS>
void meanRun(const float* x, float* out, int32_t count) {
    constexpr float inv = MeanSamples<HS>::kInv;
    int32_t t = 0;
#if defined(__SSE2__)
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

// Max, min and sum of squares of count >= 1 samples in one pass. Sixteen
// partial sums (sample 16k + r goes to q[r], the last few to q[0], q[1], ...)
// keep the loop from waiting on one chain of additions; they are combined
// pairwise in a fixed tree, in the wide, the narrow and the plain loop alike,
// so the result depends on the samples only.
constexpr int kLanes = 16;

SpanMeasure finish(const double* q, float mx, float mn) {
    const double a = ((q[0] + q[1]) + (q[2] + q[3])) + ((q[4] + q[5]) + (q[6] + q[7]));
    const double b = ((q[8] + q[9]) + (q[10] + q[11])) + ((q[12] + q[13]) + (q[14] + q[15]));
    return SpanMeasure{mx, mn, a + b};
}

// The samples after the last whole group of sixteen.
SpanMeasure measureTail(const float* x, int32_t t, int32_t count, double* q, float mx, float mn) {
    for (int r = 0; t < count; ++t, ++r) {
        q[r] += static_cast<double>(x[t]) * x[t];
        mx = std::max(mx, x[t]);
        mn = std::min(mn, x[t]);
    }
    return finish(q, mx, mn);
}

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
    alignas(16) double q[kLanes] = {};
    if (count < kLanes) return measureTail(x, 0, count, q, x[0], x[0]);
#if defined(MERVASTO_AVX2)
    if (hasAvx2()) return measureRangeAvx2(x, count);
#endif
    float mx = x[0], mn = x[0];
    int32_t t = 0;
#if defined(__SSE2__)
    __m128d acc[8];
    for (auto& a : acc) a = _mm_setzero_pd();
    __m128 vmx = _mm_set1_ps(mx), vmn = vmx;
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
    mx = std::max(std::max(m[0], m[1]), std::max(m[2], m[3]));
    _mm_store_ps(m, vmn);
    mn = std::min(std::min(m[0], m[1]), std::min(m[2], m[3]));
#else
    for (; t + kLanes <= count; t += kLanes) {
        for (int r = 0; r < kLanes; ++r) {
            const float v = x[t + r];
            q[r] += static_cast<double>(v) * v;
            mx = std::max(mx, v);
            mn = std::min(mn, v);
        }
    }
#endif
    return measureTail(x, t, count, q, mx, mn);
}

// The same over samples a..b of any source, one by one.
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

SpanMeasure PlainSamples::measure(int32_t a, int32_t b) { return measureRange(x + a, b - a + 1); }

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
template <class Src, class Keep, class KeepFour>
int32_t firstFailing(Src& src, int32_t j, int32_t end, Keep keep, KeepFour keepFour) {
    constexpr int32_t kBlock = 512;
    while (j < end) {
        const int32_t len = std::min(end - j, kBlock);
        const float* x = src.span(j, len);
        int32_t k = 0;
#if defined(__SSE2__)
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

template <class Src>
int32_t firstNotAtLeast(Src& src, int32_t j, int32_t end, float t) {
#if defined(__SSE2__)
    const __m128 tv = _mm_set1_ps(t);
    auto four = [tv](__m128 v) { return _mm_movemask_ps(_mm_cmpnge_ps(v, tv)); };
#else
    auto four = [](float) { return 0; };
#endif
    return firstFailing(
        src, j, end, [t](float v) { return v >= t; }, four);
}

template <class Src>
int32_t firstNotAtMost(Src& src, int32_t j, int32_t end, float t) {
#if defined(__SSE2__)
    const __m128 tv = _mm_set1_ps(t);
    auto four = [tv](__m128 v) { return _mm_movemask_ps(_mm_cmpnle_ps(v, tv)); };
#else
    auto four = [](float) { return 0; };
#endif
    return firstFailing(
        src, j, end, [t](float v) { return v <= t; }, four);
}

// (a + b) / 2 rounded to the nearest, halves to the even neighbour (a, b >= 0).
// Callers pass record sample numbers: rounding window-relative numbers would
// move an edge by one whenever the window starts at an odd sample.
int32_t halfEvenMidpoint(int32_t a, int32_t b) {
    const int64_t sum = int64_t{a} + b;
    const int64_t half = sum >> 1;
    return static_cast<int32_t>((sum & 1) && (half & 1) ? half + 1 : half);
}

bool isPulseType(int32_t type) { return type == kTypePwPercent || type == kTypePw; }

struct Running {
    double mn;
    double mx;
    double sum = 0;
    double sumSquares = 0;

    void add(double q) {
        if (q < mn) mn = q;
        if (q > mx) mx = q;
        sum += q;
        sumSquares += q * q;
    }
    void store(ChannelResult& r, int32_t count) const {
        r.Min = mn;
        r.Max = mx;
        r.Mean = sum / count;
        r.Sigma = std::sqrt(std::fabs(sumSquares / count - r.Mean * r.Mean));
        r.Valid = -1;
    }
};

double rowTwoValue(int32_t type, const CycleRecord& c, double sampleSec, double vRate) {
    switch (type) {
    case kTypePwPercent: return c.Duty;
    case kTypePeriod: return c.Period * sampleSec;
    case kTypeDuty: return c.Duty;
    case kTypeAmple: return c.Ample * vRate;
    case kTypePw: return c.PulseWidth * sampleSec;
    case kTypeFreq: return c.Freq;
    case kTypeRms: return c.Rms * vRate;
    case kTypeMax: return c.MaxValue * vRate;
    case kTypeMin: return c.MinValue * vRate;
    default: return 0;
    }
}

}  // namespace

int32_t CycleLimit(int32_t MaxCycles) { return std::clamp(MaxCycles, int32_t{1}, kCycleLimitMax); }

bool RejectRangeInForce(const ScanSettings& s, int32_t windowLength) {
    auto inside = [windowLength](int32_t i) { return i >= 1 && i <= windowLength - 1; };
    return s.OmitRangeEffect && s.rejectFlag && inside(s.rejectStart) && inside(s.rejectEnd);
}

void ReserveCycles(std::vector<CycleRecord>& cycles, int32_t limit) {
    if (cycles.capacity() < static_cast<size_t>(limit)) cycles.reserve(static_cast<size_t>(limit));
}

namespace {

// The edge scan over n samples of src; window sample 0 is sample `start`.
// `more` tells whether the window holds a further whole cycle (or pulse)
// after the cycle limit was reached: the scan goes on, recording nothing,
// until it finds one or reaches the end.
template <class Src>
int32_t scanCycles(Src& src, int32_t n, int32_t start, const ScanSettings& s, const ChannelResult& levels,
                   std::vector<CycleRecord>& cycles, bool& more) {
    const int32_t limit = CycleLimit(s.MaxCycles);
    ReserveCycles(cycles, limit);
    cycles.clear();
    more = false;
    if (n <= 0) return 0;
    const float level = levels.Level;
    const float h = (levels.HighLevel - level) * s.Histerisis / 100.0f;
    const float lowT = level - h;
    const float highT = level + h;
    const float exitDistance = 2.0f * h;
    const int32_t bound = n - s.halfSmooth - 2;  // the band loops stop here
    const bool pulse = isPulseType(s.signalType);
    const double sampleSec = s.SampleSec;
    // With h >= 0 a sample at or beyond the threshold on the previous
    // sample's side can neither be in the band nor cross the level.
    const bool skipFlat = h >= 0.0f;

    // Local (window) indices from here on; the reject range is in sample
    // numbers and must lie within 1..window length - 1.
    bool rejectPending = RejectRangeInForce(s, n);
    const int32_t rejectFrom = s.rejectStart - start;
    // A restart before the window (a window that starts late) begins at the
    // window's first sample.
    const int32_t rejectTo = std::max(s.rejectEnd - start, 0);

    int32_t edge[3] = {0, 0, 0};
    int k = 0;
    int32_t cycle = 0;
    cycles.emplace_back();

    auto sample = [&](int32_t j) { return src.at(j < n ? j : n - 1); };

    bool full = false;  // the cycle limit is reached; only looking for one more
    // Appends an edge; true when the scan is over.
    auto recordEdge = [&](int32_t e) -> bool {
        edge[k++] = e;
        if (k == 2 && pulse) {
            if (full) return more = true;
            cycles[static_cast<size_t>(cycle)].PulseWidth = edge[1] - edge[0];
            if (++cycle >= limit)
                full = true;
            else
                cycles.emplace_back();
        }
        if (k == 3 && full) {
            if (!pulse) return more = true;
            k = 1;
            edge[0] = edge[2];
        }
        if (k == 3) {
            if (edge[2] == edge[0]) edge[2] = edge[0] + 1;
            const int32_t e0 = edge[0], e1 = edge[1], e2 = edge[2];
            const double period = e2 - e0;
            const SpanMeasure m = src.measure(e0, std::min(e2, n - 1));
            CycleRecord& c = cycles[static_cast<size_t>(cycle)];
            c.Period = period;
            c.Duty = (e1 - e0) * 100.0 / period;
            c.MaxValue = m.maxValue;
            c.MinValue = m.minValue;
            c.Ample = m.maxValue - m.minValue;
            c.MidEdge = start + e1;
            const double seconds = sampleSec * period;
            c.Freq = seconds != 0 ? 1.0 / seconds : 0.0;
            c.Rms = std::sqrt(m.sumSquares / period);
            if (!pulse) {
                c.PulseWidth = e1 - e0;
                if (++cycle >= limit)
                    full = true;
                else
                    cycles.emplace_back();
            }
            k = 1;
            edge[0] = edge[2];
        }
        return false;
    };

    int32_t j = 0;
    bool armed = false;
    float p = 0;
    int32_t prev = 0;
    bool stopped = false;
    while (!stopped) {
        // Up to the sample after which the reject range starts (or the end).
        const int32_t segEnd = rejectPending ? std::clamp(rejectFrom + 1, int32_t{1}, n) : n;
        while (j < segEnd) {
            if (!armed) {
                j = firstNotAtLeast(src, j, segEnd, lowT);
                if (j >= segEnd) break;
                armed = true;
                p = src.at(j);
            } else if (skipFlat) {
                // Samples beyond the band on the side of the previous one
                // only move the previous sample along: skip them in bulk.
                int32_t next = j;
                if (p > level)
                    next = firstNotAtLeast(src, j, segEnd, highT);
                else if (p < level)
                    next = firstNotAtMost(src, j, segEnd, lowT);
                if (next > j) {
                    p = src.at(next - 1);
                    prev = next - 1;
                    j = next;
                    if (j >= segEnd) break;
                }
            }
            const float v = src.at(j);
            if (v > lowT && v < highT) {
                // Inside the band: the edge is the middle of the traversal.
                const int32_t entry = j;
                float w;
                do {
                    ++j;
                    w = sample(j);
                } while (!(std::fabs(w - v) >= exitDistance) && j < bound);
                if (recordEdge(halfEvenMidpoint(start + j - 1, start + entry) - start)) {
                    stopped = true;
                    break;
                }
                // Dead zone: ripple smaller than h after the edge is ignored.
                do {
                    ++j;
                    p = sample(j);
                    prev = j;
                } while (!(std::fabs(w - p) >= h) && j < bound);
            } else if (v <= lowT || v >= highT) {
                if ((v - level) * (p - level) >= 0.0f) {
                    p = v;
                    prev = j;
                } else {
                    // Jumped across the level between two samples.
                    if (recordEdge(halfEvenMidpoint(start + j, start + prev) - start)) {
                        stopped = true;
                        break;
                    }
                    p = v;
                    prev = j;
                }
            }
            ++j;
        }
        if (stopped || !rejectPending) break;
        // One reject range per run: drop the edges so far, restart unarmed.
        rejectPending = false;
        j = rejectTo;
        src.restart(j);
        armed = false;
        k = 0;
    }

    cycles.resize(static_cast<size_t>(cycle));
    return cycle;
}

template <int HS>
int32_t scanMeans(std::span<const float> record, int32_t start, int32_t count, const ScanSettings& s,
                  const ChannelResult& levels, std::vector<CycleRecord>& cycles, std::vector<float>& scratch,
                  bool& more) {
    const MeanSamples<HS> mean(record.data(), static_cast<int32_t>(record.size()), start, count);
    if (scratch.size() < RingSamples<HS>::kFloats) scratch.resize(RingSamples<HS>::kFloats);
    RingSamples<HS> src(mean, scratch.data());
    return scanCycles(src, count, start, s, levels, cycles, more);
}

}  // namespace

int32_t ExtractCycles(int ch, std::span<const float> window, int32_t start, const ScanSettings& s,
                      ChannelResultTable& table, std::vector<CycleRecord>& cycles, bool* moreCycles) {
    ClearChannelResult(table, ch);
    const int32_t n = static_cast<int32_t>(window.size());
    PlainSamples src(window.data(), n);
    bool more = false;
    const int32_t count = scanCycles(src, n, start, s, table.at(ch, 0), cycles, more);
    if (moreCycles) *moreCycles = more;
    SummariseCycles(ch, s.signalType, cycles, s.SampleSec, s.VRate, table);
    return count;
}

int32_t ExtractCyclesFromRecord(int ch, std::span<const float> record, int32_t start, int32_t count,
                                int32_t SmoothingNo, const ScanSettings& settings, ChannelResultTable& table,
                                std::vector<CycleRecord>& cycles, std::vector<float>& scratch, bool* moreCycles) {
    ClearChannelResult(table, ch);
    bool more = false;
    ScanSettings s = settings;
    s.halfSmooth = HalfSmooth(SmoothingNo);
    const ChannelResult& levels = table.at(ch, 0);
    int32_t found = 0;
    if (count <= 0 || start < 0 || static_cast<size_t>(start) + static_cast<size_t>(count) > record.size()) {
        cycles.clear();
    } else {
        switch (s.halfSmooth) {
        case 0: {
            PlainSamples src(record.data() + start, count);
            found = scanCycles(src, count, start, s, levels, cycles, more);
            break;
        }
        case 1: found = scanMeans<1>(record, start, count, s, levels, cycles, scratch, more); break;
        case 2: found = scanMeans<2>(record, start, count, s, levels, cycles, scratch, more); break;
        case 3: found = scanMeans<3>(record, start, count, s, levels, cycles, scratch, more); break;
        case 4: found = scanMeans<4>(record, start, count, s, levels, cycles, scratch, more); break;
        case 5: found = scanMeans<5>(record, start, count, s, levels, cycles, scratch, more); break;
        case 6: found = scanMeans<6>(record, start, count, s, levels, cycles, scratch, more); break;
        case 7: found = scanMeans<7>(record, start, count, s, levels, cycles, scratch, more); break;
        default: {
            if (scratch.size() < static_cast<size_t>(count)) scratch.resize(static_cast<size_t>(count));
            const std::span<float> smoothed(scratch.data(), static_cast<size_t>(count));
            SmoothSamples(record, start, count, SmoothingNo, smoothed);
            PlainSamples src(smoothed.data(), count);
            found = scanCycles(src, count, start, s, levels, cycles, more);
            break;
        }
        }
    }
    SummariseCycles(ch, s.signalType, cycles, s.SampleSec, s.VRate, table);
    if (moreCycles) *moreCycles = more;
    return found;
}

void SummariseCycles(int ch, int32_t signalType, std::span<const CycleRecord> cycles, float SampleSec, double VRate,
                     ChannelResultTable& table) {
    const int32_t count = static_cast<int32_t>(cycles.size());
    for (int kind = 0; kind < kKinds; ++kind) table.at(ch, kind).Counts = count;
    if (count == 0) return;
    const double ss = SampleSec;
    Running pw{1e30, 0}, duty{100, 0}, two{1e30, 0}, period{1e30, 0}, freq{1e30, 0}, ample{1e30, 0}, rms{1e30, 0};
    if (signalType == kTypeMin) two = Running{0, -1e30};
    for (const CycleRecord& c : cycles) {
        pw.add(c.PulseWidth * ss);
        duty.add(c.Duty);
        two.add(rowTwoValue(signalType, c, ss, VRate));
        period.add(c.Period * ss);
        freq.add(c.Freq);
        ample.add(c.Ample * VRate);
        rms.add(c.Rms * VRate);
    }
    pw.store(table.at(ch, 0), count);
    duty.store(table.at(ch, 1), count);
    two.store(table.at(ch, 2), count);
    period.store(table.at(ch, 3), count);
    freq.store(table.at(ch, 4), count);
    ample.store(table.at(ch, 5), count);
    rms.store(table.at(ch, 6), count);
}

void ClearChannelResult(ChannelResultTable& table, int ch) {
    for (int kind = 0; kind < kKinds; ++kind) {
        ChannelResult& r = table.at(ch, kind);
        r.Min = r.Max = r.Mean = r.Sigma = 0;
        r.Counts = 0;
        r.Go = 0;
        r.Valid = 0;
    }
}

void GetMinMaxInRange(std::span<const float> wave, int32_t first, int32_t last, double& maxValue, double& minValue) {
    maxValue = -1e30;
    minValue = 1e30;
    if (first > last) return;
    if (first < 0 || static_cast<size_t>(last) >= wave.size())
        throw RuntimeError(ErrorCode::Subscript, "Subscript out of range");
    const SpanMeasure m = measureRange(wave.data() + first, last - first + 1);
    maxValue = m.maxValue;
    minValue = m.minValue;
}

double Get_Wave_Max(std::span<const float> wave, int32_t startaddress, int32_t endaddress, int32_t& MaxAddress) {
    if (wave.empty()) return 0;
    double best = -1e30;
    MaxAddress = startaddress;
    const int32_t first = startaddress + 1;
    const int32_t last = endaddress - 1;
    if (first > last) return best;
    if (first < 0 || static_cast<size_t>(last) >= wave.size())
        throw RuntimeError(ErrorCode::Subscript, "Subscript out of range");
    for (int32_t i = first; i <= last; ++i) {
        if (wave[static_cast<size_t>(i)] >= best) {
            best = wave[static_cast<size_t>(i)];
            MaxAddress = i;
        }
    }
    return best;
}

int32_t GetMaxPeriod(const ChannelResultTable& table) {
    int32_t most = 1;
    for (int ch = 0; ch < kAnaChannels; ++ch)
        for (int kind = 0; kind < kKinds; ++kind) most = std::max(most, table.at(ch, kind).Counts);
    return most;
}

}  // namespace mervasto
