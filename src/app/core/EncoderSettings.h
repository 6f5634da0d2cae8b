#pragma once

#include "analysis/Encoder.h"
#include "app/core/Settings.h"

namespace mervasto {

// The encoder settings as the analysis takes them: channels from 0, no index
// channel as -1.
EncoderParams EncoderParamsOf(const AnalysisSettings& a);

}  // namespace mervasto
