#include <gtest/gtest.h>

#include "dso/DsoLink.h"
#include "dso/LinkFraming.h"

namespace mervasto::test {
namespace {

TEST(LinkFramingTest, ReplyLines) {
    struct Case {
        std::string pending;
        bool quiet;
        bool complete;
        int32_t maxLength;
        std::string reply, left;
    };
    const std::vector<Case> cases = {
        {"DS-5354\n", false, true, 256, "DS-5354", ""},
        {"DS-5354\r\nrest", false, true, 256, "DS-5354", "rest"},
        {"a\rb\n", false, true, 256, "a", "b\n"},  // a lone CR ends the line
        {"\n", false, true, 256, "", ""},
        {"+.025", false, false, 256, "+.025", ""},  // not yet: no line end, not quiet
        {"+.025", true, true, 256, "+.025", ""},    // taken whole after the quiet time
        {"", true, false, 256, "", ""},
        {"abcdef\n", false, true, 3, "abc", ""},
        {"abcdef\n", false, true, -5, "", ""},
    };
    for (const auto& c : cases) {
        size_t scanned = 0;
        EXPECT_EQ(ScanReply(c.pending, scanned, c.quiet) == ReplyState::Complete, c.complete) << c.pending;
        if (!c.complete) continue;
        std::string pending = c.pending;
        EXPECT_EQ(TakeReplyLine(pending, c.maxLength), c.reply) << c.pending;
        EXPECT_EQ(pending, c.left) << c.pending;
    }
}

// A reply is scanned piece by piece as it arrives: each byte once, and one
// that runs on without a line end is cut off at the cap.
TEST(LinkFramingTest, RepliesScannedInPiecesAndCapped) {
    struct Case {
        std::vector<std::string> pieces;
        size_t cap;
        ReplyState state;
        size_t scannedAfter;
    };
    const std::vector<Case> cases = {
        {{"DS-", "53", "54\r\n"}, 100, ReplyState::Complete, 7},
        {{"abc", "def"}, 100, ReplyState::NeedMore, 6},
        {{"abcd", "efgh"}, 6, ReplyState::TooLong, 8},
        {{"abcdef"}, 6, ReplyState::NeedMore, 6},  // exactly at the cap is still a reply
        {{"abcdefgh\n"}, 6, ReplyState::TooLong, 8},
        {{"\n"}, 6, ReplyState::Complete, 0},
    };
    for (const auto& c : cases) {
        std::string pending;
        size_t scanned = 0;
        ReplyState state = ReplyState::NeedMore;
        for (const auto& p : c.pieces) {
            pending += p;
            state = ScanReply(pending, scanned, false, c.cap);
        }
        EXPECT_EQ(state, c.state) << pending;
        EXPECT_EQ(scanned, c.scannedAfter) << pending;
    }
}

TEST(LinkFramingTest, NumberTexts) {
    struct Case {
        std::string text;
        bool number;
    };
    const std::vector<Case> cases = {
        {"1.0000E-03", true}, {" -2.5 ", true}, {"+.5", true},  {"5.", true},   {"1e6", true},
        {"", false},          {" ", false},     {"abc", false}, {"1e", false},  {"1.0V", false},
        {"ERR?", false},      {".", false},     {"1 2", false}, {"--1", false}, {"0x10", false},
    };
    for (const auto& c : cases) EXPECT_EQ(IsNumberText(c.text), c.number) << '"' << c.text << '"';
}

TEST(LinkFramingTest, BlockHeaders) {
    using S = BlockHeaderState;
    struct Case {
        std::string pending;
        bool quiet;
        S state;
        int64_t length;
    };
    const std::vector<Case> cases = {
        {"#800000004abcd\n", false, S::Block, 4},
        {"#800000000\n", false, S::Block, 0},
        {"#8000", false, S::NeedMore, 0},
        {"#8000", true, S::NeedMore, 0},  // the caller's time-out decides
        {"", true, S::NeedMore, 0},
        {"ERR\n", false, S::NotBlock, 0},  // a short text reply: no need to wait for ten bytes
        {"ERR", false, S::NeedMore, 0},
        {"ERR", true, S::NotBlock, 0},
        {"#8000000x4abcd", false, S::NotBlock, 0},
        {"X800000004abcd", false, S::NotBlock, 0},
        {"#810000022\n", false, S::Block, 10000022},
        {"#810000023\n", false, S::TooLong, 10000023},
        {"#899999999", false, S::TooLong, 99999999},
    };
    for (const auto& c : cases) {
        const BlockHeader h = ParseBlockHeader(c.pending, c.quiet, kMaxBlockBytes - 1);
        EXPECT_EQ(h.state, c.state) << c.pending;
        if (c.state == S::Block || c.state == S::TooLong) {
            EXPECT_EQ(h.length, c.length) << c.pending;
        }
    }
}

TEST(LinkFramingTest, NumericReplies) {
    for (const char* good : {"", " ", "1", " 1", "+.5", "-3E2", "0,1", " 17 "}) EXPECT_TRUE(LooksNumeric(good)) << good;
    for (const char* bad : {"\x01\x02gArBaGe", "ERR", ".", "-", "+.x", "OK 1"}) EXPECT_FALSE(LooksNumeric(bad)) << bad;
}

TEST(LinkFramingTest, PrintableBytesEscapesTheRest) {
    EXPECT_EQ(PrintableBytes(std::string("ab\x01\xff\n", 5), 24), "ab\\x01\\xFF\\x0A");
    EXPECT_EQ(PrintableBytes("abcdef", 3), "abc");
}

}  // namespace
}  // namespace mervasto::test
