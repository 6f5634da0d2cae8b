#pragma once

#include "sim/DsoSimulator.h"

namespace mervasto::test {

// The instrument faults a series is put through in its third pass, each with a
// part of the message it must give. The run state goes through all of them;
// the window and the command line, which only show what the run state
// reports, each take one (kFrontEndFault) to prove the way through.
struct SeriesFault {
    SimFault fault;
    const char* message;
};
inline constexpr SeriesFault kSeriesFaults[] = {
    {SimFault::Refuse, "closed the connection"},  // switched off
    {SimFault::Silent, "did not send"},
    {SimFault::Garbage, "not a data block"},
    {SimFault::CloseMidBlock, "closed the connection"},
    {SimFault::ShortBlock, "block for CH1 holds 1000 bytes, not the 2000 asked for"},
    {SimFault::LongBlock, "block for CH1 has more bytes than its header declares"},
    {SimFault::NoTerminator, "block for CH1 has no line feed"},
};
inline constexpr const SeriesFault& kFrontEndFault = kSeriesFaults[4];  // a short block
// Four channels of 2000 samples a pass: setFaultAfter(fault, 8) hits the third pass.
inline SimOptions SeriesSimOptions() {
    SimOptions options;
    options.state.recordLength = 2000;
    options.acqDelayMs = 5;
    return options;
}

}  // namespace mervasto::test
