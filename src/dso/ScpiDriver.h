#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dso/InstrumentDriver.h"

namespace mervasto {

// What the makers' SCPI drivers do alike: the setup is one run of queries,
// nothing is sent before a pass, a fetch reads the setup and then the
// channels switched on and ends with FinishScpiRecord, and a feature the
// family lacks is refused with the reason supports() gives for it. A family
// that has the reject range or the screen overrides their three methods.
class ScpiDriver : public InstrumentDriver {
public:
    Outcome readSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText,
                      bool memoryInput) override;
    void prepareForPass(DsoLink& link, const DsoSetup& setup) override;
    Outcome fetch(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) final;
    std::string rejectRangePrompt() const override;
    Outcome readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) override;
    Outcome saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                       int32_t* bytes) override;

protected:
    // The setup's fields from the instrument; memoryInput keeps the
    // per-channel ones. Throws after closing the link.
    virtual void readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) = 0;
    // The volts of the channels `on` (from 0, at least one) into the record,
    // the record's length and interval into the setup. Throws after closing
    // the link.
    virtual void readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record,
                           UiPort& ui) = 0;
};

}  // namespace mervasto
