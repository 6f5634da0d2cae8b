#include "common/RuntimeError.h"
#include "common/TextFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#ifdef _WIN32
#include <windows.h>
#endif
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

// The legacy files hold their Japanese labels in the Japanese code page, and
// a Japanese PC must write exactly those bytes, a trail byte that is a
// backslash (表) included; elsewhere the files are UTF-8. File names with
// such texts reach the same file whichever way they are spelt.
TEST(TextFile, NarrowTextsAndNamesGoThroughTheCodePage) {
    struct Case {
        const char* utf8;
        const char* cp932;
    };
    const Case cases[] = {
        {"Max周期数, 1000", "Max\x8E\xFC\x8A\xFA\x90\x94, 1000"},
        {"Ch4 表示off, 1 ", "Ch4 \x95\x5C\x8E\xA6off, 1 "},
        {",σ(s),No. of Pulse", ",\x83\xD0(s),No. of Pulse"},
        {"//波形のcsv形式ファイル",
         "//\x94g\x8C`\x82\xCC"
         "csv\x8C`\x8E\xAE\x83t\x83@\x83"
         "C\x83\x8B"},
    };
#ifdef _WIN32
    if (GetACP() != 932) GTEST_SKIP() << "needs code page 932 (scripts/windows-check sets it)";
    const bool japanese = true;
#else
    const bool japanese = false;
#endif
    const std::string p = TextFromPath(std::filesystem::path(tempPath("")) / PathFromText("波形 表示.txt"));
    for (const auto& c : cases) {
        const std::string bytes = japanese ? c.cp932 : c.utf8;
        EXPECT_EQ(ToNarrow(c.utf8), bytes) << c.utf8;
        EXPECT_EQ(FromNarrow(bytes), c.utf8) << c.utf8;

        TextFileWriter w(p, TextFileWriter::Mode::Truncate);
        w.writeLine(c.utf8);
        ASSERT_TRUE(w.close()) << c.utf8;
        EXPECT_TRUE(FileExists(p));
        std::ifstream f(PathFromText(p), std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(f), {}), bytes + "\r\n") << c.utf8;
        f.close();
        TextLineReader r;
        r.open(p);
        std::string line;
        ASSERT_TRUE(r.next(line));
        EXPECT_EQ(line, c.utf8);
        r.close();
    }
    std::filesystem::remove(PathFromText(p));
}

TEST(TextFile, WritesCrLfAndReadsAnyLineEnd) {
    std::string p = tempPath("lines.txt");
    {
        TextFileWriter w(p, TextFileWriter::Mode::Truncate);
        w.writeLine("Max周期数, 1000");
        w.writeLine("");
        EXPECT_TRUE(w.close());
    }
    EXPECT_EQ(slurp(p), ToNarrow("Max周期数, 1000") + "\r\n\r\n");
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
