#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "app/core/ExitStatus.h"
#include "common/Outcome.h"

namespace mervasto {

// Runs the command line with its arguments (without the program name),
// writing results to out and diagnostics to err; returns the exit status.
int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace mervasto
