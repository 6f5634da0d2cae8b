#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/core/Settings.h"
#include "common/Outcome.h"

namespace mervasto {

// The resume file keeps the settings from one start to the next. Its legacy
// lines are read by position only; their labels are for people and are
// written exactly. After them come optional "Label,value" lines, one per
// newer setting, matched by label in any order.

// Writes every setting through a temporary file, so that a failed write
// leaves the old file whole; the outcome names the file and the reason.
Outcome SaveResumeParam(std::string_view fileName, const Settings& settings);

// The whole file as it is written (the narrow encoding: the code page on
// Windows), so that LoadResumeText reads it back.
std::string ResumeText(const Settings& settings);

struct ResumeLoad {
    bool found = false;     // the file could be opened
    bool complete = false;  // every legacy line was there
    // What could not be taken, line by line: "line N (label): why. "value"
    // is used instead." The other settings are not affected.
    std::vector<std::string> problems;
};

// Reads the settings. The legacy lines are read in file order, each at its
// place: a value its setting cannot take is a problem and that setting keeps
// its previous value; a file that ends early, or a line too long or of too
// many fields, ends the reading there (what was read stays). Each newer
// setting takes its default unless its optional line holds a good value;
// unknown labels are ignored.
ResumeLoad LoadResumeParam(std::string_view fileName, Settings& settings);
// The same from the file's bytes (the narrow encoding, any line ends).
ResumeLoad LoadResumeText(std::string_view bytes, Settings& settings);

}  // namespace mervasto
