#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "dso/InstrumentDriver.h"
#include "dso/ScpiSupport.h"

namespace mervasto {

// Rigol DS1000Z / MSO1000Z on their raw socket (port 5555).
const InstrumentFamily& RigolFamily();

// The most points one ":WAV:DATA?" of BYTE data returns from the memory.
inline constexpr int32_t kRigolBatchPoints = 250000;

// The ten fields of ":WAV:PRE?": format 0 BYTE, 1 WORD, 2 ASCii; type 0
// NORMal, 1 MAXimum, 2 RAW.
using RigolPreamble = ScpiPreamble;

// The preamble of a reply, or why the record cannot be made of it (the
// field, its number in the reply, and the reply) in `problem`.
std::optional<RigolPreamble> ParseRigolPreamble(const std::string& reply, std::string& problem);

// Volts of a byte code: (code - YORigin - YREFerence) x YINCrement.
float RigolVolts(uint8_t code, const RigolPreamble& p);

class RigolDriver : public InstrumentDriver {
public:
    const InstrumentFamily& family() const override { return RigolFamily(); }
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

private:
    void readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput);
    void readChannel(DsoLink& link, int channel, const RigolPreamble& p, WaveRecord& record, UiPort& ui, int64_t before,
                     int64_t total);

    // The last record's time axis, which the cursors' times are read against.
    std::optional<RigolPreamble> last_;
};

}  // namespace mervasto
