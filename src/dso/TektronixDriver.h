#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "dso/ScpiDriver.h"

namespace mervasto {

// Tektronix 2, 3, 4, 5 and 6 Series MSO and TBS2000 on their raw socket
// (port 4000). Models of more than four channels are read as their first four.
const InstrumentFamily& TektronixFamily();

// The channels of a model the family covers (MSO44: 4, MDO32: 2, TBS2104: 4,
// MSO58: 8), 0 for any other.
int TektronixChannels(std::string_view model);

// The waveform preamble the driver asks for, in this order.
inline constexpr const char* kTektronixPreambleQuery =
    "WFMOutpre:BYT_Nr?;BYT_Or?;BN_Fmt?;NR_Pt?;XINcr?;XZEro?;YMUlt?;YOFf?;YZEro?";

struct TektronixPreamble {
    int bytes = 1;  // per point: 1 or 2
    bool msbFirst = true;
    int64_t points = 0;
    double xincr = 0;  // s between points
    double xzero = 0;  // s of the first point from the trigger
    double ymult = 0;  // V per code
    double yoff = 0;   // codes
    double yzero = 0;  // V
};

// The preamble of a reply (its nine fields split at ";"), or why the record
// cannot be made of it (the field, its number in the reply, and the reply)
// in `problem`.
std::optional<TektronixPreamble> ParseTektronixPreamble(const std::string& reply, std::string& problem);

// Volts of the signed codes of a curve, 1 or 2 bytes each in the preamble's
// byte order: (code - YOFf) x YMUlt + YZEro. out holds a volt per point.
void TektronixVolts(std::span<const uint8_t> bytes, const TektronixPreamble& p, std::span<float> out);

class TektronixDriver : public ScpiDriver {
public:
    const InstrumentFamily& family() const override { return TektronixFamily(); }
    void identify(DsoLink& link, const std::string& reply, DsoSetup& setup) override;
    bool acquireSingle(DsoLink& link) override;
    Outcome returnToLocal(DsoLink& link) override;
    FeatureSupport supports(InstrumentFeature feature) const override;

protected:
    void readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) override;
    void readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record, UiPort& ui) override;

private:
    void readChannel(DsoLink& link, int channel, const TektronixPreamble& p, WaveRecord& record, UiPort& ui,
                     int64_t before, int64_t total);

    // The TBS2000 and the 3 Series switch channels with SELect:CHn, the
    // others with DISplay:GLObal:CHn:STATE.
    bool selectsChannels_ = false;
};

}  // namespace mervasto
