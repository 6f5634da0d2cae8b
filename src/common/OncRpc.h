#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The remote procedure calls a network instrument answers (VXI-11): XDR
// numbers and opaque data, calls and replies, and the record marking that
// cuts them out of a TCP stream. Shared by the program's client and the
// simulator's server, so both read the same wire; plain bytes in and out.
namespace mervasto::rpc {

inline constexpr uint32_t kPortmapProgram = 100000;
inline constexpr uint32_t kPortmapVersion = 2;
inline constexpr uint32_t kPortmapGetPort = 3;
inline constexpr uint32_t kProtocolTcp = 6;
inline constexpr uint16_t kPortmapPort = 111;

inline constexpr uint32_t kCoreProgram = 0x0607AF;
inline constexpr uint32_t kCoreVersion = 1;
inline constexpr uint32_t kCreateLink = 10;
inline constexpr uint32_t kDeviceWrite = 11;
inline constexpr uint32_t kDeviceRead = 12;
inline constexpr uint32_t kDestroyLink = 23;

// Device_Flags and the reasons a device_read ended.
inline constexpr uint32_t kFlagEnd = 0x08;
inline constexpr uint32_t kReasonRequestCount = 0x01;
inline constexpr uint32_t kReasonTermChar = 0x02;
inline constexpr uint32_t kReasonEnd = 0x04;

// Device_ErrorCode values the program tells apart.
inline constexpr int32_t kNoError = 0;
inline constexpr int32_t kDeviceNotAccessible = 3;
inline constexpr int32_t kInvalidLink = 4;
inline constexpr int32_t kIoTimeout = 15;
inline constexpr int32_t kIoError = 17;

// The longest record either side takes: a data block of the longest record
// and the call around it.
inline constexpr size_t kMaxRecordBytes = 16 * 1024 * 1024;

class XdrWriter {
public:
    void u32(uint32_t v);
    void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
    // Variable-length opaque data or a string: the length, the bytes, padding to four.
    void opaque(std::string_view bytes);
    std::string& bytes() { return out_; }

private:
    std::string out_;
};

// Reads in order; a read past the end (or an opaque longer than allowed)
// leaves ok() false and gives zeros from then on.
class XdrReader {
public:
    explicit XdrReader(std::string_view in) : in_(in) {}
    uint32_t u32();
    int32_t i32() { return static_cast<int32_t>(u32()); }
    std::string_view opaque(size_t maxBytes = kMaxRecordBytes);
    bool ok() const { return ok_; }
    std::string_view rest() const { return in_.substr(at_); }

private:
    std::string_view in_;
    size_t at_ = 0;
    bool ok_ = true;
};

// One record as one last fragment: the length with the top bit set, the bytes.
std::string RecordMarked(std::string_view record);

enum class RecordState { NeedMore, Complete, TooLong };
// Takes the first whole record (all its fragments joined) off the front of
// the stream's bytes into record.
RecordState TakeRecord(std::string& stream, std::string& record, size_t maxBytes = kMaxRecordBytes);

struct Call {
    uint32_t xid = 0;
    uint32_t program = 0;
    uint32_t version = 0;
    uint32_t procedure = 0;
    std::string_view args;
};
// A call with no credentials (AUTH_NONE).
std::string EncodeCall(const Call& call);
// False when the record is not a call of RPC version 2.
bool ParseCall(std::string_view record, Call& call);

enum class AcceptStat : uint32_t {
    Success = 0,
    ProgramUnavailable = 1,
    ProgramMismatch = 2,  // results: the lowest and highest version served
    ProcedureUnavailable = 3,
    GarbageArgs = 4,
};
struct Reply {
    uint32_t xid = 0;
    bool accepted = false;  // false: denied (RPC version or authentication)
    AcceptStat stat = AcceptStat::Success;
    std::string_view results;
};
std::string EncodeReply(uint32_t xid, AcceptStat stat, std::string_view results);
// False when the record is not a reply.
bool ParseReply(std::string_view record, Reply& reply);

}  // namespace mervasto::rpc
