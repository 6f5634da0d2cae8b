#include <gtest/gtest.h>

#include "common/OncRpc.h"

namespace mervasto::test {
namespace {

using namespace mervasto::rpc;

std::string Fragment(std::string_view bytes, bool last) {
    std::string out = RecordMarked(bytes);
    if (!last) out[0] = static_cast<char>(out[0] & 0x7f);
    return out;
}

// Records come out of the stream whole, however the stream was cut, and
// what follows a record stays for the next one.
TEST(OncRpcTest, RecordMarkingJoinsFragmentsAndWaitsForWholeRecords) {
    struct Case {
        const char* name;
        std::string stream;
        size_t maxBytes;
        RecordState state;
        std::string record;
        size_t left;  // stream bytes left behind
    };
    const std::string two = Fragment("abc", false) + Fragment("defg", true);
    const std::vector<Case> cases = {
        {"one fragment", RecordMarked("hello"), 100, RecordState::Complete, "hello", 0},
        {"two fragments", two, 100, RecordState::Complete, "abcdefg", 0},
        {"the next record stays", RecordMarked("a") + RecordMarked("bc"), 100, RecordState::Complete, "a", 6},
        {"half a mark", RecordMarked("hello").substr(0, 3), 100, RecordState::NeedMore, "", 3},
        {"half a payload", RecordMarked("hello").substr(0, 6), 100, RecordState::NeedMore, "", 6},
        {"the last fragment missing", Fragment("abc", false), 100, RecordState::NeedMore, "", 7},
        {"an empty record", RecordMarked(""), 100, RecordState::Complete, "", 0},
        {"longer than taken", two, 5, RecordState::TooLong, "", two.size()},
    };
    for (const auto& c : cases) {
        std::string stream = c.stream;
        std::string record;
        EXPECT_EQ(TakeRecord(stream, record, c.maxBytes), c.state) << c.name;
        if (c.state == RecordState::Complete) {
            EXPECT_EQ(record, c.record) << c.name;
        }
        EXPECT_EQ(stream.size(), c.left) << c.name;
    }
}

TEST(OncRpcTest, XdrPadsOpaqueDataAndRefusesShortOrOverlongData) {
    XdrWriter w;
    w.u32(0x01020304);
    w.opaque("abcde");
    w.i32(-2);
    ASSERT_EQ(w.bytes().size(), 4u + 4u + 8u + 4u);
    XdrReader r(w.bytes());
    EXPECT_EQ(r.u32(), 0x01020304u);
    EXPECT_EQ(r.opaque(), "abcde");
    EXPECT_EQ(r.i32(), -2);
    EXPECT_TRUE(r.ok());
    EXPECT_EQ(r.u32(), 0u);  // past the end
    EXPECT_FALSE(r.ok());

    XdrReader cut(std::string_view(w.bytes()).substr(0, 10));
    cut.u32();
    EXPECT_EQ(cut.opaque(), "");
    EXPECT_FALSE(cut.ok());
    XdrReader capped(w.bytes());
    capped.u32();
    capped.opaque(4);
    EXPECT_FALSE(capped.ok());
}

TEST(OncRpcTest, CallsAndRepliesRoundTripAndAreNotTakenForEachOther) {
    const std::string call = EncodeCall({7, kCoreProgram, kCoreVersion, kDeviceRead, "ARGS"});
    Call c;
    ASSERT_TRUE(ParseCall(call, c));
    EXPECT_EQ(c.xid, 7u);
    EXPECT_EQ(c.program, kCoreProgram);
    EXPECT_EQ(c.procedure, kDeviceRead);
    EXPECT_EQ(c.args, "ARGS");
    Reply notReply;
    EXPECT_FALSE(ParseReply(call, notReply));

    const std::string reply = EncodeReply(7, AcceptStat::ProgramMismatch, "LOHI");
    Reply r;
    ASSERT_TRUE(ParseReply(reply, r));
    EXPECT_EQ(r.xid, 7u);
    EXPECT_TRUE(r.accepted);
    EXPECT_EQ(r.stat, AcceptStat::ProgramMismatch);
    EXPECT_EQ(r.results, "LOHI");
    EXPECT_FALSE(ParseCall(reply, c));
    EXPECT_FALSE(ParseCall(call.substr(0, 20), c));
}

}  // namespace
}  // namespace mervasto::test
