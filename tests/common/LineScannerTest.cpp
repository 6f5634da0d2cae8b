#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "common/RuntimeError.h"
#include "common/LineScanner.h"

namespace mervasto {
namespace {

// The same lines from a file and from memory, and the line a refusal names.
struct Scan {
    std::vector<std::string> lines;
    std::string fault;
    uint64_t faultLine = 0;
};

Scan scanBoth(const std::string& bytes, LineScanner::LineEnds ends = LineScanner::LineEnds::Any) {
    const auto file = std::filesystem::temp_directory_path() /
                      ("mervasto_linescanner_both_" +
                       std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".txt");
    std::ofstream(file, std::ios::binary) << bytes;
    Scan scans[2];
    for (int way = 0; way < 2; ++way) {
        LineScanner in;
        if (way == 0)
            in.open(file.string());
        else
            in.openBytes(bytes);
        in.setLineEnds(ends);
        std::string_view line;
        try {
            while (in.next(line)) scans[way].lines.emplace_back(line);
        } catch (const RuntimeError& e) {
            scans[way].fault = e.what();
            scans[way].faultLine = in.lineNumber();
        }
    }
    std::filesystem::remove(file);
    EXPECT_EQ(scans[0].lines, scans[1].lines);
    EXPECT_EQ(scans[0].fault, scans[1].fault);
    EXPECT_EQ(scans[0].faultLine, scans[1].faultLine);
    return scans[1];
}

TEST(LineScannerTest, AllLineEnds) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(scanBoth("").lines, Lines{});
    EXPECT_EQ(scanBoth("a\r\nb\nc\rd").lines, (Lines{"a", "b", "c", "d"}));
    EXPECT_EQ(scanBoth("\r\n\r\nx\r\r\n").lines, (Lines{"", "", "x", ""}));
    EXPECT_EQ(scanBoth("0123456789abcdef,0123456789\n").lines, Lines{"0123456789abcdef,0123456789"});

    // A CR LF split by the end of the first buffer, and a line across the
    // end of the second.
    const size_t chunk = size_t{4} << 20;
    std::string big;
    Lines want;
    while (chunk - 1 - big.size() > kMaxLineBytes) {
        want.emplace_back(kMaxLineBytes, 'x');
        big += want.back() + "\r\n";
    }
    want.emplace_back(chunk - 1 - big.size(), 'z');
    big += want.back() + "\r\n";
    ASSERT_EQ(big.size(), chunk + 1);
    while (big.size() < 2 * chunk) {
        want.emplace_back(kMaxLineBytes, 'y');
        big += want.back() + "\n";
    }
    EXPECT_EQ(scanBoth(big).lines, want);
}

TEST(LineScannerTest, LinesUpToOneMiBAndNoLonger) {
    const std::string longest(kMaxLineBytes, 'x');
    struct Case {
        const char* name;
        std::string bytes;
        size_t linesBefore;  // lines handed out before the refusal (all when none)
        uint64_t faultLine;  // 0: no refusal
    };
    const Case cases[] = {
        {"longest line ended", "a\r\n" + longest + "\r\nb", 3, 0},
        {"longest line at the end", "a\n" + longest, 2, 0},
        {"one byte more", "a\r\nb\r\n" + longest + "y\r\nc\r\n", 2, 3},
        {"one byte more at the end", longest + "y", 0, 1},
        {"endless line", std::string(3 * kMaxLineBytes, ','), 0, 1},
    };
    for (const auto& c : cases) {
        const Scan s = scanBoth(c.bytes);
        EXPECT_EQ(s.lines.size(), c.linesBefore) << c.name;
        EXPECT_EQ(s.faultLine, c.faultLine) << c.name;
        EXPECT_EQ(s.fault.empty(), c.faultLine == 0) << c.name;
    }
}

TEST(LineScannerTest, LfOnlyKeepsCarriageReturnsInTheLine) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(scanBoth("a\rb\r\nc\n\n", LineScanner::LineEnds::LfOnly).lines, (Lines{"a\rb\r", "c", ""}));
    EXPECT_EQ(scanBoth("a\rb\r\nc\n\n").lines, (Lines{"a", "b", "c", ""}));
}

TEST(LineScannerTest, WhatCannotBeOpenedSaysWhy) {
    const auto folder = std::filesystem::temp_directory_path();
    const auto missing = folder / "mervasto_linescanner_no_such_file.csv";
    struct Case {
        std::filesystem::path path;
        const char* says;
    };
    for (const auto& c : {Case{folder, "This is a folder, not a file."}, Case{missing, "No such file or directory."}}) {
        LineScanner in;
        try {
            in.open(c.path.string());
            ADD_FAILURE() << c.path << " opened";
        } catch (const RuntimeError& e) {
            EXPECT_STREQ(e.what(), c.says) << c.path;
        }
    }
}

TEST(LineScannerTest, FindByte) {
    const std::string s = "abcdefghijklmnop,q";
    for (size_t len = 0; len <= s.size(); ++len) {
        const char* end = s.data() + len;
        EXPECT_EQ(FindByte(s.data(), end, ','), len > 16 ? s.data() + 16 : end) << len;
    }
    const std::string high = "\xff\xfe,\x80";
    EXPECT_EQ(FindByte(high.data(), high.data() + high.size(), ','), high.data() + 2);
}

}  // namespace
}  // namespace mervasto
