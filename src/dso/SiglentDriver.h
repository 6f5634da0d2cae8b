#pragma once

#include <cstdint>
#include <string>

#include "dso/InstrumentDriver.h"

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

class SiglentDriver : public InstrumentDriver {
public:
    const InstrumentFamily& family() const override { return SiglentFamily(); }
    void identify(DsoLink& link, const std::string& reply, DsoSetup& setup) override;
    Outcome readSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText,
                      bool memoryInput) override;
    void prepareForPass(DsoLink& link, const DsoSetup& setup) override;
    bool acquireSingle(DsoLink& link) override;
    Outcome fetch(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) override;
    Outcome returnToLocal(DsoLink& link) override;
    FeatureSupport supports(InstrumentFeature feature) const override;
    std::string rejectRangePrompt() const override;
    Outcome readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) override;
    Outcome saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                       int32_t* bytes) override;

private:
    void readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput);
    void readChannel(DsoLink& link, int channel, const DsoSetup& setup, WaveRecord& record, UiPort& ui, int64_t before,
                     int64_t total);
};

}  // namespace mervasto
