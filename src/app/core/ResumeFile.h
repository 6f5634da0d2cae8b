#pragma once

#include <string_view>

#include "app/core/Settings.h"

namespace mervasto {

// The resume file keeps the settings from one start to the next. It is read
// by position only; the labels are for people and are written exactly.

// Writes every setting; the old file stays when the write fails. Returns 0,
// or -1 when the file could not be written.
int SaveResumeParam(std::string_view fileName, const Settings& settings);

// Reads the settings in file order. The first missing line or value that
// cannot be converted ends the load silently: what was read stays, the rest
// keeps its previous value. Returns 0 when the whole file was read, -1 when
// it stopped early (missing file included).
int LoadResumeParam(std::string_view fileName, Settings& settings);

}  // namespace mervasto
