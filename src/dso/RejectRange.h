#pragma once

#include <array>
#include <cstdint>

#include "common/Outcome.h"
#include "dso/DsoLink.h"
#include "wavefile/DsoSetup.h"

namespace mervasto {

// What the legacy instrument's user is asked before the zoom window is read.
inline constexpr const char* kZoomCursorDirection = "Set to Zoom Mode and Set Reject Range by Cursor !";

// The zoom window and the reject range as sample indices of the record.
struct RejectRange {
    int32_t ZoomStart = 0;
    int32_t ZoomEnd = 0;
    int32_t RejectStart = 0;
    int32_t RejectEnd = 0;
};

// From the main time base (setup.TimePerDiv, setup.TriggerDelay), the zoom
// window's time base and delay and the two cursors (divisions 0..10 from the
// left edge of the zoom window) to sample indices of a record of
// recordLength samples. The screen is ten divisions wide with the trigger
// at its centre. A main time base of 0 is a DivisionByZero RuntimeError; an
// index beyond 32 bits an Overflow.
RejectRange RejectRangeFromCursors(const DsoSetup& setup, float zoomTimePerDiv, float zoomDelay, int32_t recordLength,
                                   const std::array<float, 2>& cursors);

// What the instrument says while in zoom mode, and the range made of it.
struct ZoomReadout {
    float ZoomTimePerDiv = 0;
    float ZoomDelay = 0;
    bool CursorsFromDso = false;  // false: the cursors are the defaults 1 and 9
    RejectRange range;
};

// Reads the zoom window ("TDIV?", "TRDL?") and the cursors, sets the
// instrument's main time base back ("TDIV <main>") and returns the front
// panel ("GTL"). setup gets the cursor readout.
Outcome ReadRejectRangeFromDso(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out);

}  // namespace mervasto
