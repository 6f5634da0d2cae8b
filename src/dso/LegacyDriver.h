#pragma once

#include "dso/InstrumentDriver.h"

namespace mervasto {

// The legacy instrument (DS-5352, DS-5354 on port 5198): its dialect as the
// program has always spoken it, byte for byte, through the procedures of
// DsoLink, DsoSetupReadout, WaveTransfer, AcquisitionPass, RejectRange and
// DsoScreen.
const InstrumentFamily& LegacyFamily();

class LegacyDriver : public InstrumentDriver {
public:
    const InstrumentFamily& family() const override { return LegacyFamily(); }
    void identify(DsoLink& link, const std::string& reply, DsoSetup& setup) override;
    Outcome readSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText,
                      bool memoryInput) override;
    void prepareForPass(DsoLink& link, const DsoSetup& setup) override;
    bool acquireSingle(DsoLink& link) override;
    Outcome fetch(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) override;
    Outcome returnToLocal(DsoLink& link) override;
    std::string rejectRangePrompt() const override;
    Outcome readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) override;
    Outcome saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                       int32_t* bytes) override;
};

}  // namespace mervasto
