#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "dso/ScpiDriver.h"
#include "dso/ScpiSupport.h"

namespace mervasto {

// Keysight InfiniiVision 1000 X, 2000 X, 3000 X and
// 4000 X on their raw socket (port 5025).
const InstrumentFamily& KeysightFamily();

// Channels of a model: DSOX, MSOX or EDUX, four digits (the first the
// series 1 to 4, the last the channels) and the letter of the line
// ("DSO-X 3024A" as the older ones write it); 0 for anything else.
int16_t KeysightChannels(const std::string& model);

// The preamble's rule for the format asked for: BYTE (0) or WORD (1), any
// acquisition type.
PreambleRule KeysightRule(bool words);

// Volts of a code: (code - YREFerence) x YINCrement + YORigin.
float KeysightVolts(int32_t code, const ScpiPreamble& p);

class KeysightDriver : public ScpiDriver {
public:
    const InstrumentFamily& family() const override { return KeysightFamily(); }
    void identify(DsoLink& link, const std::string& reply, DsoSetup& setup) override;
    bool acquireSingle(DsoLink& link) override;
    Outcome returnToLocal(DsoLink& link) override;
    std::string rejectRangePrompt() const override;
    Outcome readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) override;
    Outcome saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                       int32_t* bytes) override;

protected:
    void readSetupFields(DsoLink& link, DsoSetup& setup, bool memoryInput) override;
    void readWaves(DsoLink& link, DsoSetup& setup, const std::vector<int>& on, WaveRecord& record, UiPort& ui) override;

private:
    void readChannel(DsoLink& link, int channel, const ScpiPreamble& p, bool lowFirst, WaveRecord& record, UiPort& ui,
                     int64_t before, int64_t total);

    // The last record's time axis, which the markers' times are read against.
    std::optional<ScpiPreamble> last_;
};

}  // namespace mervasto
