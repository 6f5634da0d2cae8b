#pragma once

#include <cstdint>
#include <string>

#include "common/UiPort.h"
#include "dso/DsoLink.h"

namespace mervasto {

// The largest screen image that can be stored.
inline constexpr int32_t kMaxScreenBytes = 32767;

// Fetches the instrument's screen as PNG ("DISP ON", "TSCRN? PNG", the block,
// "GTL") and writes the N payload bytes, the LF and one zero byte at the start
// of fileName without truncating a longer older file, through
// WriteFileReplacing (a write that fails names the file, ErrorCode::FileIo);
// N goes to *bytes when given (-1 when nothing was stored). "DSO not
// interfaced normally." when the link could not be opened. An image above 32767 bytes is an Overflow and
// writes nothing; the link stays usable. Connecting here does not set
// DsoLinked.
Outcome SaveDsoScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                      int32_t* bytes = nullptr);

}  // namespace mervasto
