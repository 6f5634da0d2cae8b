#pragma once

#include <iosfwd>
#include <string>

namespace mervasto {

class MainForm;

// Runs of the window program that no person watches. Every box is written
// to err with its title and answered as its default button would be, so
// that nothing waits for ever, and the run ends with the command line's exit
// statuses (ExitStatusOf): 4 when the instrument failed, 1 for a file that
// could not be read or written, 0 when all went well.

// From now on no box of the window waits for a person.
void AnswerUnattended(MainForm& form, std::ostream& err);

// --series N: N passes with New Acquisition from the instrument the address
// box names, then the window closes (the kept result lines and the settings
// written as at any close). Returns the exit status.
int RunSeriesUnattended(MainForm& form, int passes, std::ostream& err);

// --screenshot DIR: a short series, then pictures of the main window, the
// histogram window and the wave window as PNG files in dir, then the window
// closes. Returns the exit status; a picture that could not be written is
// named on err.
int SaveScreenshotsUnattended(MainForm& form, const std::string& dir, std::ostream& err);

}  // namespace mervasto
