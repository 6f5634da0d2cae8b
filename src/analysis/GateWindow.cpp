#include "analysis/GateWindow.h"

#include <algorithm>

#include "common/Numeric.h"

namespace mervasto {

void FindGateRange(std::span<const float> volts, float centre, float h, int32_t from, int32_t to, int32_t& GateStart,
                   int32_t& GateEnd) {
    const int32_t last = std::min<int32_t>(to, static_cast<int32_t>(volts.size()) - 1);
    int state = 0;
    for (int32_t i = std::max<int32_t>(from, 0); i <= last; ++i) {
        const float v = volts[static_cast<size_t>(i)];
        switch (state) {
        case 0:
            if (v < centre - h) state = 1;
            break;
        case 1:
            if (v >= centre) {
                GateStart = i - 1;
                state = 2;
            }
            break;
        case 2:
            if (v >= centre + h) state = 3;
            break;
        default:
            if (v < centre) {
                GateEnd = i;
                return;
            }
            break;
        }
    }
}

SampleRange ApplyLimitPoints(int32_t start, int32_t end, int32_t n, float margin) {
    // In doubles throughout: an absurd margin must be ignored, not overflow.
    const double k = RoundHalfEven(static_cast<double>(margin) * n / 10.0);
    const double s = start + k;
    const double e = end - k;
    if (e < n && s >= 0 && s < e) return SampleRange{static_cast<int32_t>(s), static_cast<int32_t>(e)};
    return SampleRange{start, end};
}

}  // namespace mervasto
