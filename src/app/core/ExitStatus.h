#pragma once

#include "common/Outcome.h"

namespace mervasto {

// Exit statuses of the programs when no person watches them: the command
// line, and the window's unattended runs (--series, --screenshot).
inline constexpr int kExitOk = 0;
inline constexpr int kExitFileError = 1;
inline constexpr int kExitBadOptions = 2;
inline constexpr int kExitNg = 3;
inline constexpr int kExitNoInstrument = 4;

// The exit status of what a run came to, by the kind of its failure:
// ErrorCode::BadOption 2, VerdictNg 3, Link (and a Stop that cut an exchange)
// 4, any other failure 1.
int ExitStatusOf(const Outcome& outcome);

}  // namespace mervasto
