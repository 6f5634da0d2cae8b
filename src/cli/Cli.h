#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace mervasto {

// Exit statuses of mervasto-cli.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFileError = 1;
inline constexpr int kExitBadOptions = 2;
inline constexpr int kExitNg = 3;
inline constexpr int kExitNoInstrument = 4;

// Runs the command line with its arguments (without the program name),
// writing results to out and diagnostics to err; returns the exit status.
int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace mervasto
