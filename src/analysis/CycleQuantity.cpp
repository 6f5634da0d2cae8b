#include "analysis/CycleQuantity.h"

#include <array>

namespace mervasto {

namespace {

using Scale = CycleQuantity::Scale;

// By list index of the type list. "P.W.(%)" shows the pulse as a share of
// its cycle, which is the duty.
constexpr std::array<CycleQuantity, kTypeMin + 1> kTypeQuantity = {{
    {&CycleRecord::Duty, Scale::None, "%"},             // "P.W.(%)"
    {&CycleRecord::Period, Scale::SampleSec, "s"},      // "Period"
    {&CycleRecord::Duty, Scale::None, "%"},             // "Duty"
    {&CycleRecord::Ample, Scale::VRate, "V"},           // "Ample"
    {&CycleRecord::PulseWidth, Scale::SampleSec, "s"},  // "P.W."
    {&CycleRecord::Freq, Scale::None, "Hz"},            // "Freq."
    {&CycleRecord::Rms, Scale::VRate, "V"},             // "rms"
    {&CycleRecord::MaxValue, Scale::VRate, "V"},        // "Max"
    {&CycleRecord::MinValue, Scale::VRate, "V"},        // "Min"
}};

}  // namespace

CycleQuantity QuantityOfType(int32_t signalType) {
    if (signalType < 0 || signalType >= static_cast<int32_t>(kTypeQuantity.size())) return {};
    return kTypeQuantity[static_cast<size_t>(signalType)];
}

CycleQuantity QuantityOf(Measure kind, int32_t signalType) {
    switch (kind) {
    case Measure::PulseWidth: return QuantityOfType(kTypePw);
    case Measure::Duty: return QuantityOfType(kTypeDuty);
    case Measure::OfType: return QuantityOfType(signalType);
    case Measure::Period: return QuantityOfType(kTypePeriod);
    case Measure::Freq: return QuantityOfType(kTypeFreq);
    case Measure::Ample: return QuantityOfType(kTypeAmple);
    case Measure::Rms: return QuantityOfType(kTypeRms);
    }
    return {};
}

}  // namespace mervasto
