#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/UiPort.h"
#include "dso/DsoLink.h"
#include "wavefile/DsoSetup.h"

namespace mervasto {

// Reads the instrument's setup into `setup`, connecting first when the link
// is not open. Ok after a real readout. When the link cannot be opened it
// fills the fixed defaults and returns "DSO not interfaced normally."
// (ErrorCode::Link). Anything the program could not measure with ends the
// readout (ErrorCode::Link, the link closed, the outcome naming the field and
// the reply): a setup information reply without the record length's field or
// with a record length that is no whole number from 10 to 5,000,011; a time
// base, trigger delay, trigger level, volts/div or offset that is not a
// finite number a float holds (time base and volts/div above 0); a sample
// interval or a channel's volts per count that a float cannot hold. With
// memoryInput (the MemoryInput box visible and ticked) the per-channel fields
// keep what they held.
Outcome ReadDsoSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText, bool memoryInput);

// The horizontal cursor readout ("HCUR?", "CURM?"): CursorPos[0..1] in
// divisions from the left screen edge, in order, and CursorsFromDso; 1 and 9
// when the instrument is not in a horizontal-cursor mode.
void ReadDsoCursors(DsoLink& link, DsoSetup& setup);

// Why a numeric setup reply (after the blank substitution) cannot be taken:
// "is not a number", "is not a finite number", "is not above 0"; empty when
// it can.
std::string SetupNumberProblem(std::string_view text, bool mustBePositive);

// The setup used when the instrument cannot be reached.
void FillDsoSetupDefaults(DsoSetup& setup);

// Record length of a "DTINF?" field: the whole number from its 17th character
// on, 10 .. 5,000,011, rounded to tens (halves to even); nullopt for
// anything else.
std::optional<int32_t> RecordLengthOfField(const std::string& field);

}  // namespace mervasto
