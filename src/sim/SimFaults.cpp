#include "sim/SimFaults.h"

#include <array>
#include <cstdio>

namespace mervasto {

namespace {

constexpr std::array<const char*, 14> kFaultNames = {
    "none",       "refuse",  "silent",      "late",       "one-byte",      "close-mid-block", "bad-header",
    "huge-block", "garbage", "short-block", "long-block", "no-terminator", "endless-reply",   "bad-setup"};
const char kGarbage[] = "\x01\x02gArBaGe,,\x7f~";

std::string BlockHeader(size_t bytes) {
    char header[16];
    std::snprintf(header, sizeof header, "#8%08zu", bytes);
    return header;
}

}  // namespace

const char* SimFaultName(SimFault fault) { return kFaultNames[static_cast<size_t>(fault)]; }

const std::vector<std::string>& SimFaultNames() {
    static const std::vector<std::string> names(kFaultNames.begin(), kFaultNames.end());
    return names;
}

const std::vector<std::string>& SimBadSetupFields() {
    static const std::vector<std::string> fields = {"TDIV",   "VDIV", "OFST", "DTINF",    "IDN",
                                                    "LENGTH", "TRDL", "TLVL", "INTERVAL", "VOLTS"};
    return fields;
}

bool SimFaultFromName(const std::string& name, SimFault& fault) {
    for (size_t i = 0; i < kFaultNames.size(); ++i)
        if (name == kFaultNames[i]) {
            fault = static_cast<SimFault>(i);
            return true;
        }
    return false;
}

SimReply ShapeBlock(SimFault fault, const std::string& payload) {
    using How = SimReply::How;
    switch (fault) {
    case SimFault::Refuse: return {How::SwitchOff, {}};
    case SimFault::BadHeader: return {How::Now, "#8 12X4567" + payload + "\n"};
    case SimFault::HugeBlock: return {How::Now, "#899999999" + payload.substr(0, 16)};
    case SimFault::Garbage: return {How::Now, std::string(kGarbage) + "\n"};
    case SimFault::CloseMidBlock:
        return {How::CloseAfter, BlockHeader(payload.size()) + payload.substr(0, payload.size() / 2)};
    case SimFault::ShortBlock: {
        const std::string half = payload.substr(0, payload.size() / 2);
        return {How::Now, BlockHeader(half.size()) + half + "\n"};
    }
    case SimFault::LongBlock: return {How::Now, BlockHeader(payload.size()) + payload + std::string(16, '\x55') + "\n"};
    case SimFault::NoTerminator: return {How::Now, BlockHeader(payload.size()) + payload};
    default: return {How::Now, BlockHeader(payload.size()) + payload + "\n"};
    }
}

SimReply Deliver(SimFault fault, SimReply reply, bool isBlock) {
    using How = SimReply::How;
    if (reply.how != How::Now) return reply;
    switch (fault) {
    case SimFault::Silent:
    case SimFault::Refuse: return {How::Drop, {}};
    case SimFault::Garbage:
        if (!isBlock) reply.bytes = std::string(kGarbage) + "\n";
        return reply;
    case SimFault::EndlessReply:
        if (!isBlock) return {How::Endless, {}};
        return reply;
    case SimFault::Late: reply.how = How::Late; return reply;
    case SimFault::OneByte: reply.how = How::Trickle; return reply;
    default: return reply;
    }
}

}  // namespace mervasto
