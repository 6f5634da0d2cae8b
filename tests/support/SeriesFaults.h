#pragma once

#include <memory>
#include <string>

#include "sim/DsoSimulator.h"

namespace mervasto::test {

// The instrument faults a series is put through in its third pass, each with a
// part of the message it must give. The run state goes through all of them;
// the window and the command line, which only show what the run state
// reports, each take one or two to prove the way through.
struct SeriesFault {
    const char* name;
    SimFault fault;
    const char* message;
    // From the third pass's first block on; otherwise from its start (its
    // acquisition wait, "New Acquisition" ticked).
    bool atFirstBlock = false;
    const char* setupField = "";  // the reply SimFault::BadSetup spoils
};
inline constexpr SeriesFault kSeriesFaults[] = {
    {"switched off", SimFault::Refuse, "closed the connection while waiting for a data block", true},
    {"silent at a block", SimFault::Silent, "did not send the data block", true},
    {"silent at the status poll", SimFault::Silent, "did not answer \"TESR?\""},
    {"garbage block", SimFault::Garbage, "not a data block", true},
    {"garbage status", SimFault::Garbage, "is not a number"},
    {"block cut short", SimFault::CloseMidBlock, "closed the connection", true},
    {"short block", SimFault::ShortBlock, "block for CH1 holds 1000 bytes, not the 2000 asked for", true},
    {"long block", SimFault::LongBlock, "block for CH1 has more bytes than its header declares", true},
    {"block without its line feed", SimFault::NoTerminator, "block for CH1 has no line feed", true},
    {"endless reply", SimFault::EndlessReply, "runs on past 65536 bytes"},
    {"volts/div no number", SimFault::BadSetup, "volts/div of C1 (\"C1:VDIV?\") is not a number", false, "VDIV"},
    {"record length", SimFault::BadSetup,
     "record length (field 23 of \"DTINF?\") is not a whole number from 10 to 5000011: \"Record Length = -70000\"",
     false, "LENGTH"},
    {"trigger delay", SimFault::BadSetup, "trigger delay (\"TRDL?\") is not a finite number: \"1.0000E+300\"", false,
     "TRDL"},
    {"trigger level", SimFault::BadSetup, "trigger level (\"TLVL?\") is not a finite number: \"-1.0000E+300\"", false,
     "TLVL"},
    {"sample interval", SimFault::BadSetup,
     "sample interval (time base \"1.0000E-44\" x 10 / 2000 samples) is too small for a float", false, "INTERVAL"},
    {"volts per count", SimFault::BadSetup,
     "volts per count of C1 (volts/div \"1.0000E-40\" / 32) is too small for a float", false, "VOLTS"},
};
inline constexpr const SeriesFault& kFrontEndFault = kSeriesFaults[6];        // a short block
inline constexpr const SeriesFault& kFrontEndSetupFault = kSeriesFaults[11];  // a record length of -70000

// Four channels of 2000 samples a pass, New Acquisition ticked.
inline SimOptions SeriesSimOptions() {
    SimOptions options;
    options.state.recordLength = 2000;
    options.acqDelayMs = 5;
    return options;
}

// Shows the fault from the third pass of the series about to start on:
// at its first block (the ninth, four a pass) or its acquisition wait (the
// third "*ESE 255"). setFault(SimFault::None) and setCommandHook(nullptr) end it.
inline void ShowInThirdPass(DsoSimulator& sim, const SeriesFault& f) {
    if (*f.setupField) sim.setBadSetupField(f.setupField);
    const std::string at = f.atFirstBlock ? "DTWAVE?" : "*ESE 255";
    const int nth = f.atFirstBlock ? 9 : 3;
    auto seen = std::make_shared<int>(0);
    sim.setCommandHook([&sim, fault = f.fault, at, nth, seen](const std::string& line) {
        if (line == at && ++*seen == nth) sim.setFault(fault);
    });
}

}  // namespace mervasto::test
