#pragma once

#include <string>
#include <vector>

namespace mervasto {

// Faults the simulated instrument can show.
enum class SimFault {
    None,
    Refuse,         // connections are refused
    Silent,         // nothing is ever answered
    Late,           // every reply comes lateMs late
    OneByte,        // replies trickle in one byte at a time
    CloseMidBlock,  // the connection closes halfway through a block
    BadHeader,      // blocks start with a malformed header
    HugeBlock,      // blocks announce 99,999,999 bytes
    Garbage,        // text replies (and blocks) are garbage text
    ShortBlock,     // blocks carry half the points asked for (the header says so)
    LongBlock,      // more bytes than the header declares follow the payload
    NoTerminator,   // blocks end without their line feed
    EndlessReply,   // text replies never end: bytes without a line end, steadily
    BadSetup,       // one setup reply is malformed (SimOptions::badSetupField)
};

// "none", "refuse", "silent", "late", "one-byte", "close-mid-block",
// "bad-header", "huge-block", "garbage", "short-block", "long-block",
// "no-terminator", "endless-reply", "bad-setup".
const char* SimFaultName(SimFault fault);
bool SimFaultFromName(const std::string& name, SimFault& fault);
const std::vector<std::string>& SimFaultNames();
// The replies BadSetup can spoil (SimOptions::badSetupField).
const std::vector<std::string>& SimBadSetupFields();

// One thing the instrument sends back, and how the socket side delivers it.
struct SimReply {
    enum class How {
        Now,         // write the bytes
        Late,        // write them after the late delay
        Trickle,     // write them one byte at a time
        Endless,     // write bytes without a line end until the fault is cleared
        CloseAfter,  // write the bytes, then close the connection
        Drop,        // write nothing
        SwitchOff,   // write nothing; the instrument is switched off
        Arm,         // write nothing; an acquisition starts
    };
    How how = How::Now;
    std::string bytes;
    bool operator==(const SimReply&) const = default;
};

// A block as the fault leaves it: header ("#", the digit count, that many
// length digits: eight for the legacy instrument), payload and terminator,
// or what the fault sends instead.
SimReply ShapeBlock(SimFault fault, const std::string& payload, int lengthDigits = 8);
// Any reply, block or text, as the fault delivers it.
SimReply Deliver(SimFault fault, SimReply reply, bool isBlock);

}  // namespace mervasto
