#pragma once

#include <string>

#include "common/UiPort.h"
#include "dso/DsoLink.h"
#include "wavefile/DsoSetup.h"

namespace mervasto {

// Reads the instrument's setup into `setup`, connecting first when the link
// is not open. When the link cannot be opened it shows "DSO not interfaced
// normally.", fills the fixed defaults and returns true; false after a real
// readout. With memoryInput (the MemoryInput box visible and ticked) the
// per-channel fields keep what they held.
bool ReadDsoSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText, bool memoryInput);

// The horizontal cursor readout ("HCUR?", "CURM?"): CursorPos[1..2] in
// divisions from the left screen edge, in order, and CursorsFromDso; 1 and 9
// when the instrument is not in a horizontal-cursor mode.
void ReadDsoCursors(DsoLink& link, DsoSetup& setup);

// The setup used when the instrument cannot be reached.
void FillDsoSetupDefaults(DsoSetup& setup);

// Record length of a "DTINF?" field: the number from its 17th character on,
// rounded to tens; 500 when that gives less than 1.
int32_t RecordLengthOfField(const std::string& field);

}  // namespace mervasto
