#include "app/core/EncoderSettings.h"

#include "common/Numeric.h"

namespace mervasto {

EncoderParams EncoderParamsOf(const AnalysisSettings& a) {
    EncoderParams p;
    p.on = a.Encoder;
    p.a = ToInt32(Val(a.EncoderA)) - 1;
    p.b = ToInt32(Val(a.EncoderB)) - 1;
    p.z = ToInt32(Val(a.EncoderZ)) - 1;
    if (p.z < 0) p.z = -1;
    p.countsPerRev = Val(a.EncoderCountsPerRev);
    p.minStateWidth = Val(a.MinStateWidth);
    return p;
}

}  // namespace mervasto
