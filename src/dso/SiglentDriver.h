#pragma once

#include <cstdint>
#include <string>

#include "dso/ScpiDriver.h"

namespace mervasto {

// Siglent SDS1000X-E / SDS2000X in their older command set, on the raw
// socket (port 5025).
const InstrumentFamily& SiglentFamily();

// The points of one "WF? DAT2" the driver asks for ("WFSU ...,NP,n,FP,k").
inline constexpr int32_t kSiglentBatchPoints = 1000000;
// The bytes a "WF? DAT2" reply may carry before its block ("DAT2,",
// "C1:WF DAT2,").
inline constexpr size_t kSiglentBlockPrefix = 16;

// Channels of a model: the last digit before the X of SDS1xx2X-E,
// SDS1xx4X-E, SDS2xx2X, SDS2xx4X (and SDS2xxnX-E); 0 for anything else.
int16_t SiglentChannels(const std::string& model);

// Volts of a signed code: code x VDIV / 25 - OFST.
float SiglentVolts(int8_t code, float voltsPerDiv, float offset);

class SiglentDriver : public ScpiDriver {
public:
    const InstrumentFamily& family() const override { return SiglentFamily(); }
    void identify(DsoLink& link, const std::string& reply, DsoSetup& setup) override;
    bool acquireSingle(DsoLink& link) override;
    Outcome returnToLocal(DsoLink& link) override;
    FeatureSupport supports(InstrumentFeature feature) const override;

protected:
    void readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) override;
    void readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record, UiPort& ui) override;

private:
    void readChannel(DsoLink& link, int channel, const DsoSetup& setup, WaveRecord& record, UiPort& ui, int64_t before,
                     int64_t total);
};

}  // namespace mervasto
