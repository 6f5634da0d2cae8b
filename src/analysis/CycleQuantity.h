#pragma once

#include <cstdint>

#include "analysis/AnalysisTypes.h"

// What a channel type and each measured kind read from a cycle record, in
// which unit.
namespace mervasto {

struct CycleQuantity {
    enum class Scale { None, SampleSec, VRate };
    double CycleRecord::*field = nullptr;  // none: the type measures no cycle (the gate)
    Scale scale = Scale::None;             // times are kept in samples, volts before "V Rate"
    const char* unit = "";                 // "%", "s", "V" or "Hz"

    double factor(double SampleSec, double VRate) const {
        return scale == Scale::SampleSec ? SampleSec : scale == Scale::VRate ? VRate : 1.0;
    }
    double of(const CycleRecord& c, double SampleSec, double VRate) const {
        return field ? c.*field * factor(SampleSec, VRate) : 0;
    }
};

// The quantity a channel type names (by its list index): what the
// statistics summarise as Measure::OfType, the detail grid lists and the
// plots show.
CycleQuantity QuantityOfType(int32_t signalType);

// The quantity a kind summarises on a channel of that type.
CycleQuantity QuantityOf(Measure kind, int32_t signalType);

}  // namespace mervasto
