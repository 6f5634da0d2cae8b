#include "sim/SimFaults.h"

#include <array>
#include <cstdio>

namespace mervasto {

namespace {

constexpr std::array<const char*, 14> kFaultNames = {
    "none",       "refuse",  "silent",      "late",       "one-byte",      "close-mid-block", "bad-header",
    "huge-block", "garbage", "short-block", "long-block", "no-terminator", "endless-reply",   "bad-setup"};
const char kGarbage[] = "\x01\x02gArBaGe,,\x7f~";

std::string BlockHeader(size_t bytes, int digits) {
    char header[16];
    std::snprintf(header, sizeof header, "#%d%0*zu", digits, digits, bytes);
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

SimReply ShapeBlock(SimFault fault, const std::string& payload, int lengthDigits) {
    using How = SimReply::How;
    const auto digits = static_cast<size_t>(lengthDigits);
    const std::string count = "#" + std::to_string(lengthDigits);
    switch (fault) {
    case SimFault::Refuse: return {How::SwitchOff, {}};
    case SimFault::BadHeader: return {How::Now, count + std::string(" 12X456789").substr(0, digits) + payload + "\n"};
    case SimFault::HugeBlock: return {How::Now, count + std::string(digits, '9') + payload.substr(0, 16)};
    case SimFault::Garbage: return {How::Now, std::string(kGarbage) + "\n"};
    case SimFault::CloseMidBlock:
        return {How::CloseAfter, BlockHeader(payload.size(), lengthDigits) + payload.substr(0, payload.size() / 2)};
    case SimFault::ShortBlock: {
        const std::string half = payload.substr(0, payload.size() / 2);
        return {How::Now, BlockHeader(half.size(), lengthDigits) + half + "\n"};
    }
    case SimFault::LongBlock:
        return {How::Now, BlockHeader(payload.size(), lengthDigits) + payload + std::string(16, '\x55') + "\n"};
    case SimFault::NoTerminator: return {How::Now, BlockHeader(payload.size(), lengthDigits) + payload};
    default: return {How::Now, BlockHeader(payload.size(), lengthDigits) + payload + "\n"};
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
