#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "common/RuntimeError.h"
#include "common/LineScanner.h"

namespace mervasto {
namespace {

std::vector<std::string> scanAll(const std::string& bytes) {
    const auto file = std::filesystem::temp_directory_path() / "mervasto_linescanner.txt";
    std::ofstream(file, std::ios::binary) << bytes;
    LineScanner in;
    in.open(file.string());
    std::vector<std::string> lines;
    std::string_view line;
    while (in.next(line)) lines.emplace_back(line);
    in.close();  // Windows cannot remove a file that is open
    std::filesystem::remove(file);
    return lines;
}

TEST(LineScannerTest, AllLineEnds) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(scanAll(""), Lines{});
    EXPECT_EQ(scanAll("a\r\nb\nc\rd"), (Lines{"a", "b", "c", "d"}));
    EXPECT_EQ(scanAll("\r\n\r\nx\r\r\n"), (Lines{"", "", "x", ""}));
    EXPECT_EQ(scanAll("0123456789abcdef,0123456789\n"), Lines{"0123456789abcdef,0123456789"});

    // A CR LF split by the end of the first buffer, and a line longer than it.
    const size_t chunk = size_t{4} << 20;
    std::string big(chunk - 1, 'x');
    big += "\r\nshort\r\n" + std::string(chunk + 10, 'y');
    const Lines got = scanAll(big);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].size(), chunk - 1);
    EXPECT_EQ(got[1], "short");
    EXPECT_EQ(got[2].size(), chunk + 10);

    LineScanner missing;
    EXPECT_THROW(missing.open("/nonexistent/dir/file.csv"), RuntimeError);
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
