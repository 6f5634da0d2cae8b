#include "analysis/Levels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "common/Numeric.h"

namespace mervasto {

namespace {

constexpr int kLanes = 4;
constexpr int kPeakDistance = 8;  // the second peak lies at least this many codes away

TwoLevels ordered(int binA, int binB) {
    const int hi = std::max(binA, binB);
    const int lo = std::min(binA, binB);
    return TwoLevels{static_cast<int16_t>(hi - 32768), static_cast<int16_t>(lo - 32768)};
}

// Most populated bin of [from, to]; the lowest bin wins on equal counts and
// `from` stands when no bin has a count.
int fullestBin(const std::vector<uint32_t>& h, int from, int to) {
    int best = from;
    uint32_t bestCount = 0;
    for (int b = from; b <= to; ++b) {
        if (h[static_cast<size_t>(b)] > bestCount) {
            bestCount = h[static_cast<size_t>(b)];
            best = b;
        }
    }
    return best;
}

}  // namespace

bool LevelHistogram::count(std::span<const int16_t> raw, int32_t first, int32_t last) {
    if (first > last || first < 0 || static_cast<size_t>(last) >= raw.size()) return false;
    // The copies are a little more than 256 KiB apart: at exactly 256 KiB the
    // same code's counters of different copies would look alike to the
    // processor's store forwarding and stall each other.
    constexpr size_t kStride = kBins + 80;
    parts_.assign(kStride * kLanes, 0u);
    merged_.resize(kBins);
    uint32_t* h0 = parts_.data();
    uint32_t* h1 = h0 + kStride;
    uint32_t* h2 = h1 + kStride;
    uint32_t* h3 = h2 + kStride;
    auto bin = [](int16_t v) { return static_cast<uint16_t>(v) ^ 0x8000u; };
    const int16_t* s = raw.data() + first;
    const size_t n = static_cast<size_t>(last - first) + 1;
    // Recorded signals sit on one code for long stretches: a group of eight
    // equal samples is counted as a run in a register, other groups sample
    // by sample.
    constexpr uint64_t kSpread = 0x0001000100010001ull;
    uint16_t runCode = static_cast<uint16_t>(s[0]);
    uint64_t runPattern = runCode * kSpread;
    uint32_t runCount = 0;
    size_t k = 0;
    for (; k + 8 <= n; k += 8) {
        uint64_t a, b;
        std::memcpy(&a, s + k, 8);
        std::memcpy(&b, s + k + 4, 8);
        if (a == runPattern && b == runPattern) {
            runCount += 8;
            continue;
        }
        const uint64_t own = static_cast<uint16_t>(s[k]) * kSpread;
        if (a == own && b == own) {
            h0[runCode ^ 0x8000u] += runCount;
            runCode = static_cast<uint16_t>(s[k]);
            runPattern = own;
            runCount = 8;
            continue;
        }
        ++h0[bin(s[k])];
        ++h1[bin(s[k + 1])];
        ++h2[bin(s[k + 2])];
        ++h3[bin(s[k + 3])];
        ++h0[bin(s[k + 4])];
        ++h1[bin(s[k + 5])];
        ++h2[bin(s[k + 6])];
        ++h3[bin(s[k + 7])];
    }
    h0[runCode ^ 0x8000u] += runCount;
    for (; k < n; ++k) ++h0[bin(s[k])];
    for (int b = 0; b < kBins; ++b) merged_[static_cast<size_t>(b)] = h0[b] + h1[b] + h2[b] + h3[b];
    return true;
}

TwoLevels LevelHistogram::peaks() const {
    if (merged_.empty()) return {};
    const int peak1 = fullestBin(merged_, 0, kBins - 1);
    // Bins too close to the first peak are skipped; bin 0 stands when nothing
    // far enough away was ever hit.
    int peak2 = 0;
    uint32_t count2 = 0;
    for (int b = 0; b < kBins; ++b) {
        if (std::abs(b - peak1) < kPeakDistance) continue;
        if (merged_[static_cast<size_t>(b)] > count2) {
            count2 = merged_[static_cast<size_t>(b)];
            peak2 = b;
        }
    }
    return ordered(peak1, peak2);
}

TwoLevels LevelHistogram::halves() const {
    if (merged_.empty()) return {};
    int lowest = 0;
    while (lowest < kBins - 1 && merged_[static_cast<size_t>(lowest)] == 0) ++lowest;
    int highest = kBins - 1;
    while (highest > lowest && merged_[static_cast<size_t>(highest)] == 0) --highest;
    if (lowest == highest) return ordered(lowest, lowest);
    const int middle = (lowest + highest) / 2;
    return ordered(fullestBin(merged_, lowest, middle), fullestBin(merged_, middle + 1, highest));
}

TwoLevels LevelHistogram::automatic(const char** note) const {
    *note = "";
    const TwoLevels p = peaks();
    const TwoLevels h = halves();
    if (p.high == h.high && p.low == h.low) return p;
    // Sum over the samples of the distance to the nearer level, in codes:
    // exact in 64 bits for any record (5e6 samples x 65536 codes).
    auto misfit = [this](const TwoLevels& t) {
        uint64_t sum = 0;
        for (int b = 0; b < kBins; ++b) {
            const uint32_t c = merged_[static_cast<size_t>(b)];
            if (c == 0) continue;
            const int v = b - 32768;
            sum += uint64_t{c} * static_cast<uint64_t>(std::min(std::abs(v - t.high), std::abs(v - t.low)));
        }
        return sum;
    };
    if (2 * misfit(h) >= misfit(p)) return p;
    // Both of Peaks' levels nearer the same one of Halves' levels.
    const int middle = h.high + h.low;  // twice the midpoint, to stay whole
    *note = (2 * p.high > middle) == (2 * p.low > middle) ? kNoteHalvesOneCluster : kNoteHalvesNearer;
    return h;
}

bool FindTwoLevels(std::span<const int16_t> raw, int32_t first, int32_t last, LevelMethod method, TwoLevels& out,
                   LevelHistogram& histogram, const char** note) {
    if (!histogram.count(raw, first, last)) return false;
    const char* why = "";
    switch (method) {
    case LevelMethod::Peaks: out = histogram.peaks(); break;
    case LevelMethod::Halves: out = histogram.halves(); break;
    case LevelMethod::Auto: out = histogram.automatic(&why); break;
    }
    if (note) *note = why;
    return true;
}

bool FindTwoLevels(std::span<const int16_t> raw, int32_t first, int32_t last, LevelMethod method, TwoLevels& out) {
    LevelHistogram histogram;
    return FindTwoLevels(raw, first, last, method, out, histogram);
}

float VoltsFromRaw(int32_t sample, float voltsPerDiv, float offset) {
    return static_cast<float>(static_cast<double>(sample) / 8192.0 * static_cast<double>(voltsPerDiv) -
                              static_cast<double>(offset));
}

int16_t RawFromVolts(float volts, float voltsPerDiv, float offset) {
    if (voltsPerDiv == 0.0f) return 0;
    const double code = RoundHalfEven((static_cast<double>(volts) + static_cast<double>(offset)) /
                                      static_cast<double>(voltsPerDiv) * 8192.0);
    if (std::isnan(code)) return 0;
    return static_cast<int16_t>(std::clamp(code, -32768.0, 32767.0));
}

void RawFromVolts(std::span<const float> volts, float voltsPerDiv, float offset, std::span<int16_t> out) {
    const size_t n = std::min(volts.size(), out.size());
    for (size_t k = 0; k < n; ++k) out[k] = RawFromVolts(volts[k], voltsPerDiv, offset);
}

SignalLevels GetSignalLevels(std::span<const int16_t> raw, int32_t first, int32_t last, float voltsPerDiv, float offset,
                             float PLevel, LevelMethod method, LevelHistogram& histogram, const SignalLevels& keep) {
    TwoLevels two;
    const char* note = "";
    if (!FindTwoLevels(raw, first, last, method, two, histogram, &note)) return keep;
    SignalLevels r;
    r.note = note;
    r.HighLevel = VoltsFromRaw(two.high, voltsPerDiv, offset);
    r.LowLevel = VoltsFromRaw(two.low, voltsPerDiv, offset);
    const double p = PLevel;
    r.Level = static_cast<float>(((100.0 - p) * r.LowLevel + p * r.HighLevel) / 100.0);
    r.ok = true;
    return r;
}

GateLevels GetGateLevels(std::span<const int16_t> raw, int32_t length, float voltsPerDiv, float offset,
                         LevelMethod method, LevelHistogram& histogram) {
    GateLevels g;
    TwoLevels two;
    if (!FindTwoLevels(raw, 0, length - 1, method, two, histogram)) return g;
    g.HighLevel = VoltsFromRaw(two.high, voltsPerDiv, offset);
    g.LowLevel = VoltsFromRaw(two.low, voltsPerDiv, offset);
    g.centre = static_cast<float>((static_cast<double>(g.HighLevel) + g.LowLevel) / 2.0);
    return g;
}

}  // namespace mervasto
