#include "common/RuntimeError.h"
#include "common/TextFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#ifdef __linux__
#include <csignal>
#include <sys/resource.h>
#endif

using namespace mervasto;

namespace {
std::string tempPath(const char* name) {
    auto dir = std::filesystem::temp_directory_path() / "mervasto-textfile-test";
    std::filesystem::create_directories(dir);
    return (dir / name).string();
}
std::string slurp(const std::string& p) {
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}
}  // namespace

TEST(TextFile, WritesCrLfAndReadsAnyLineEnd) {
    std::string p = tempPath("lines.txt");
    {
        TextFileWriter w(p, TextFileWriter::Mode::Truncate);
        w.writeLine("Max周期数, 1000");
        w.writeLine("");
        EXPECT_TRUE(w.close());
    }
    EXPECT_EQ(slurp(p), "Max周期数, 1000\r\n\r\n");
    {
        std::ofstream f(p, std::ios::binary);
        f << "a\r\nb\nc\rd\r\n\r\ne";
    }
    TextLineReader r;
    r.open(p);
    std::vector<std::string> got;
    std::string line;
    while (r.next(line)) got.push_back(line);
    EXPECT_EQ(got, (std::vector<std::string>{"a", "b", "c", "d", "", "e"}));
}

TEST(TextFile, MissingFileIsAnErrorAndNotAFile) {
    EXPECT_FALSE(FileExists(tempPath("none.txt")));
    EXPECT_FALSE(FileExists(""));
    EXPECT_FALSE(FileExists(std::filesystem::temp_directory_path().string()));
    TextLineReader r;
    EXPECT_THROW(r.open(tempPath("none.txt")), RuntimeError);
}

TEST(TextFile, ReplacingWriteLeavesNoTemporary) {
    std::string p = tempPath("replace.txt");
    ASSERT_TRUE(WriteFileReplacing(p, "one\r\n"));
    ASSERT_TRUE(WriteFileReplacing(p, "two\r\n"));
    EXPECT_EQ(slurp(p), "two\r\n");
    EXPECT_FALSE(FileExists(p + ".tmp"));
    EXPECT_FALSE(WriteFileReplacing(tempPath("no/such/dir/x.txt"), "x"));
}

TEST(TextFile, AppendsWholeLinesOrNothing) {
    std::string p = tempPath("append.txt");
    std::filesystem::remove(p);
    ASSERT_TRUE(AppendToFile(p, "one\r\n"));
    ASSERT_TRUE(AppendToFile(p, "two\r\n"));
    EXPECT_EQ(slurp(p), "one\r\ntwo\r\n");
    EXPECT_FALSE(AppendToFile(tempPath("no/such/dir/x.txt"), "x"));
#ifdef __linux__
    // The disk fills in the middle of the line: the file keeps its old bytes.
    const std::string before = slurp(p);
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = before.size() + 3;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool appended = AppendToFile(p, "a line longer than the space left\r\n");
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(appended);
    EXPECT_EQ(slurp(p), before);
    ASSERT_TRUE(AppendToFile(p, "three\r\n"));
    EXPECT_EQ(slurp(p), before + "three\r\n");
#endif
}

TEST(TextFile, LongLinesCrossTheBufferBoundary) {
    std::string p = tempPath("long.txt");
    std::string big(3 << 20, 'x');
    {
        TextFileWriter w(p, TextFileWriter::Mode::Truncate);
        w.writeLine(big);
        w.writeLine("tail");
    }
    TextLineReader r;
    r.open(p);
    std::string line;
    ASSERT_TRUE(r.next(line));
    EXPECT_EQ(line.size(), big.size());
    ASSERT_TRUE(r.next(line));
    EXPECT_EQ(line, "tail");
    EXPECT_FALSE(r.next(line));
}
