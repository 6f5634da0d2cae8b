#pragma once

#include <functional>
#include <string>

namespace mervasto {

class MainForm;

// A scripted user for the demonstration (`mervasto --simulate pulses --demo`):
// starts a series of 20 passes with New Acquisition and, while it runs,
// types a new sample name with Enter after pass 5, switches Ch2 off after
// pass 8 and presses Stop after pass 12, through the real widgets. Any
// message box is printed instead of shown. When the run has ended, `done`
// gets a report: the boxes seen, the sample names of the passes and the
// log grid's rows.
void StartDemoSeries(MainForm& form, const std::function<void(const std::string& report)>& done);

}  // namespace mervasto
