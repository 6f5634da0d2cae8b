#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "common/Outcome.h"

namespace mervasto {

// Exit statuses of mervasto-cli.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFileError = 1;
inline constexpr int kExitBadOptions = 2;
inline constexpr int kExitNg = 3;
inline constexpr int kExitNoInstrument = 4;

// The exit status of what a command came to, by the kind of its failure:
// ErrorCode::BadOption 2, VerdictNg 3, Link (and a Stop that cut an exchange)
// 4, any other failure 1.
int ExitStatusOf(const Outcome& outcome);

// Runs the command line with its arguments (without the program name),
// writing results to out and diagnostics to err; returns the exit status.
int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace mervasto
