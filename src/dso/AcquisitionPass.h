#pragma once

#include "common/Channels.h"
#include <array>
#include <string>

#include "common/Outcome.h"
#include "common/UiPort.h"
#include "dso/DsoLink.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// The instrument's side of one pass of an acquisition run; the run itself
// (passes, analysis, grids, files) belongs to the application.

// The status texts of a transfer, whatever the instrument.
inline constexpr const char* kTranslationSetup = "Translation the DSO setup.";
inline constexpr const char* kTransferringWaves = "Transferring waves from the DSO.";
inline constexpr const char* kCompletedWaveTranslation = "Completed wave translation.";

// "STOP;ROLL OFF;DISP OFF" for a model whose 5th character reads above 3.
// The two supported models have a 3 there, so they never get it.
void PrepareDsoForPass(DsoLink& link, const DsoSetup& setup);

// What the transfer of all channels takes from the window.
struct DsoTransferInputs {
    std::string addressText;                    // IPAdressText
    bool memoryInput = false;                   // MemoryInput visible and ticked
    std::array<std::string, kChannels>& VRate;  // the channels' VRate texts ("1.0" when blank)
    std::string ch4SignalText;                  // Ch4's ChInputSignal text
};

// Reads the setup and then every channel of the model into the record, with
// the status texts of the transfer. The outcome of the setup readout when it
// fails ("DSO not interfaced normally." after filling the defaults, or the
// field it could not take), the link's failure when a channel fails.
Outcome TransferFromDso(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in);

// "GTL": the front panel back to the user, when the link is up.
Outcome ReturnToLocal(DsoLink& link);

}  // namespace mervasto
