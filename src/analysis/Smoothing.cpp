#include "analysis/Smoothing.h"

#include <algorithm>
#include <cstring>

namespace mervasto {

namespace {

constexpr int32_t kBlock = 4096;
constexpr int32_t kDirectHalf = 7;  // up to 15 samples: summed directly

// out[j - from] for j in [lo, hi), summed left to right in single precision.
template <int HS>
void directMean(const float* x, float* out, int32_t from, int32_t lo, int32_t hi) {
    constexpr float inv = 1.0f / (2 * HS + 1);
    for (int32_t j = lo; j < hi; ++j) {
        const float* w = x + j - HS;
        float s = w[0];
        for (int t = 1; t <= 2 * HS; ++t) s += w[t];
        out[j - from] = s * inv;
    }
}

using DirectMean = void (*)(const float*, float*, int32_t, int32_t, int32_t);
constexpr DirectMean kDirectMeans[kDirectHalf + 1] = {nullptr,       directMean<1>, directMean<2>, directMean<3>,
                                                      directMean<4>, directMean<5>, directMean<6>, directMean<7>};

struct Smoother {
    const float* x;
    float* out;  // out[j - from]
    int32_t from;
    int32_t hs;
    double inv;

    double directSum(int32_t j) const {
        double s = 0;
        for (int32_t t = j - hs; t <= j + hs; ++t) s += x[t];
        return s;
    }

    // Samples [a, b) from one restart at a; only those from `first` on are
    // written.
    void block(int32_t a, int32_t b, int32_t first) const {
        double s = directSum(a);
        if (a >= first) out[a - from] = static_cast<float>(s * inv);
        int32_t j = a + 1;
        for (; j < first; ++j) s += static_cast<double>(x[j + hs]) - static_cast<double>(x[j - hs - 1]);
        for (; j < b; ++j) {
            s += static_cast<double>(x[j + hs]) - static_cast<double>(x[j - hs - 1]);
            out[j - from] = static_cast<float>(s * inv);
        }
    }

    // Four whole blocks from a, side by side: four independent sums keep the
    // adder busy instead of waiting on one chain.
    void fourBlocks(int32_t a) const {
        double s0 = directSum(a), s1 = directSum(a + kBlock), s2 = directSum(a + 2 * kBlock),
               s3 = directSum(a + 3 * kBlock);
        float* o = out + (a - from);
        const float* in = x + a + hs;
        const float* outGoing = x + a - hs - 1;
        o[0] = static_cast<float>(s0 * inv);
        o[kBlock] = static_cast<float>(s1 * inv);
        o[2 * kBlock] = static_cast<float>(s2 * inv);
        o[3 * kBlock] = static_cast<float>(s3 * inv);
        for (int32_t t = 1; t < kBlock; ++t) {
            s0 += static_cast<double>(in[t]) - static_cast<double>(outGoing[t]);
            s1 += static_cast<double>(in[t + kBlock]) - static_cast<double>(outGoing[t + kBlock]);
            s2 += static_cast<double>(in[t + 2 * kBlock]) - static_cast<double>(outGoing[t + 2 * kBlock]);
            s3 += static_cast<double>(in[t + 3 * kBlock]) - static_cast<double>(outGoing[t + 3 * kBlock]);
            o[t] = static_cast<float>(s0 * inv);
            o[t + kBlock] = static_cast<float>(s1 * inv);
            o[t + 2 * kBlock] = static_cast<float>(s2 * inv);
            o[t + 3 * kBlock] = static_cast<float>(s3 * inv);
        }
    }
};

}  // namespace

int32_t HalfSmooth(int32_t SmoothingNo) { return SmoothingNo > 1 ? SmoothingNo / 2 : 0; }

void SmoothSamples(std::span<const float> record, int32_t from, int32_t count, int32_t SmoothingNo,
                   std::span<float> out) {
    const int32_t n = static_cast<int32_t>(record.size());
    if (count <= 0 || from < 0 || from + count > n || static_cast<int32_t>(out.size()) < count) return;
    const int32_t hs = HalfSmooth(SmoothingNo);
    const int32_t end = from + count;  // one past the last
    // Where the whole average fits in the record.
    const int32_t lo = std::max(from, hs);
    const int32_t hi = std::min(end, n - hs);  // one past the last
    if (hs == 0 || lo >= hi) {
        std::memcpy(out.data(), record.data() + from, sizeof(float) * static_cast<size_t>(count));
        return;
    }
    std::memcpy(out.data(), record.data() + from, sizeof(float) * static_cast<size_t>(lo - from));
    std::memcpy(out.data() + (hi - from), record.data() + hi, sizeof(float) * static_cast<size_t>(end - hi));

    if (hs <= kDirectHalf) {
        kDirectMeans[hs](record.data(), out.data(), from, lo, hi);
        return;
    }
    const Smoother sm{record.data(), out.data(), from, hs, 1.0 / (2.0 * hs + 1.0)};
    // The restart points depend on the sample number only.
    const int32_t firstBoundary = std::min(hi, (lo / kBlock + 1) * kBlock);
    sm.block(std::max(hs, lo / kBlock * kBlock), firstBoundary, lo);
    int32_t j = firstBoundary;
    while (j + 4 * kBlock <= hi) {
        sm.fourBlocks(j);
        j += 4 * kBlock;
    }
    while (j < hi) {
        const int32_t b = std::min(hi, j + kBlock);
        sm.block(j, b, j);
        j = b;
    }
}

}  // namespace mervasto
