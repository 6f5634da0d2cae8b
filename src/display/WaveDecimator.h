#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Reduces a long channel to what a screen can show: the minimum and maximum
// of the samples behind each pixel column, so that no spike is lost however
// far the record is squeezed.
namespace mervasto {

struct ColumnRange {
    float min = 0;
    float max = 0;
};

// The result of one decimation. The vector keeps its capacity from call to
// call; only `count` entries are valid.
struct DecimatedTrace {
    std::vector<ColumnRange> column;
    int32_t count = 0;       // entries in use
    bool perSample = false;  // fewer samples than columns: entry k is sample first + k
    int32_t first = 0;       // the sample range actually covered (after clamping)
    int32_t last = -1;
};

// Column c of `columns` over the samples first..last (n = last - first + 1)
// holds every sample i with floor((i - first) * columns / n) == c, i.e.
// pixel column c of a trace n samples wide drawn over `columns` pixels.
// When n < columns each entry is one sample (min == max). The range is
// clamped to the samples present; an empty range or columns < 1 gives
// count 0.
void DecimateScan(std::span<const float> samples, int32_t first, int32_t last, int32_t columns, DecimatedTrace& out);

// The same decimation from a min/max pyramid built once per record: blocks
// of kFineBlock samples and of kCoarseBlock samples. A column then reads at
// most a few hundred values whatever its width, so redrawing a whole
// 5,000,000-sample record reads the coarse level, not the samples.
class WaveDecimator {
public:
    static constexpr int32_t kFineBlock = 64;
    static constexpr int32_t kCoarseBlock = 4096;  // a multiple of kFineBlock

    // Keeps a view of the samples (they must stay alive and unchanged until
    // the next build) and computes the pyramid. Reuses the memory of the
    // previous build.
    void build(std::span<const float> samples);
    void clear();

    // True when built over exactly these samples (same memory and length).
    bool builtFor(std::span<const float> samples) const {
        return samples.data() == samples_.data() && samples.size() == samples_.size();
    }
    std::span<const float> samples() const { return samples_; }

    // As DecimateScan over the built samples; the results are identical.
    void decimate(int32_t first, int32_t last, int32_t columns, DecimatedTrace& out) const;

    // Min and max of the samples first..last (inclusive, within range, first <= last).
    ColumnRange rangeMinMax(int32_t first, int32_t last) const;

private:
    std::span<const float> samples_;
    std::vector<float> fineMin_, fineMax_;
    std::vector<float> coarseMin_, coarseMax_;
};

}  // namespace mervasto
