#include "common/RuntimeError.h"
#include "common/TextFile.h"

#include <gtest/gtest.h>

#include "support/FileBytes.h"

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

        ASSERT_TRUE(WriteFileReplacing(p, ToNarrow(c.utf8) + "\r\n")) << c.utf8;
        EXPECT_TRUE(FileExists(p));
        EXPECT_EQ(test::ReadBytes(PathFromText(p)), bytes + "\r\n") << c.utf8;
        TextLineReader r;
        r.open(p);
        std::string line;
        ASSERT_TRUE(r.next(line));
        EXPECT_EQ(line, c.utf8);
        r.close();
    }
    std::filesystem::remove(PathFromText(p));
}

TEST(TextFile, ReadsAnyLineEnd) {
    std::string p = tempPath("lines.txt");
    test::WriteBytes(p, "a\r\nb\nc\rd\r\n\r\ne");
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

#ifdef __linux__
// Runs body with the largest file this process may write set to bytes, as if
// the disk were full from there on.
template <class Body>
void withFileSizeLimit(size_t bytes, Body body) {
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = bytes;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    body();
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
}
#endif

TEST(TextFile, ReplacingWriteKeepsTheOldFileOnFailureAndLeavesNoTemporary) {
    const auto dir = std::filesystem::path(tempPath("replacing"));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const std::string p = (dir / "replace.txt").string();
    ASSERT_TRUE(WriteFileReplacing(p, "one\r\n"));
    ASSERT_TRUE(WriteFileReplacing(p, "two\r\n"));
    EXPECT_EQ(test::ReadBytes(p), "two\r\n");

    const std::string missing = tempPath("no/such/dir/x.txt");
    const Outcome failed = WriteFileReplacing(missing, "x");
    EXPECT_EQ(failed.code(), ErrorCode::FileIo);
    EXPECT_EQ(failed.text(), missing + ": No such file or directory.");
#ifdef __linux__
    withFileSizeLimit(3, [&] {
        const Outcome full = WriteFileReplacing(p, "three\r\n");
        EXPECT_FALSE(full);
        EXPECT_EQ(full.text(), p + ": File too large.");
    });
    EXPECT_EQ(test::ReadBytes(p), "two\r\n");
#endif
    {
        // Abandoned half way: the old file stays and the temporary goes.
        FileReplacer out(p);
        out.write("half");
    }
    EXPECT_EQ(test::ReadBytes(p), "two\r\n");
    size_t files = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir)) files += e.is_regular_file();
    EXPECT_EQ(files, 1u);
}

TEST(TextFile, AppendsWholeLinesOrNothing) {
    std::string p = tempPath("append.txt");
    std::filesystem::remove(p);
    ASSERT_TRUE(AppendToFile(p, "one\r\n"));
    ASSERT_TRUE(AppendToFile(p, "two\r\n"));
    EXPECT_EQ(test::ReadBytes(p), "one\r\ntwo\r\n");
    EXPECT_FALSE(AppendToFile(tempPath("no/such/dir/x.txt"), "x"));
#ifdef __linux__
    // The disk fills in the middle of the line: the file keeps its old bytes,
    // whether the line came in one write or in several.
    const std::string before = test::ReadBytes(p);
    withFileSizeLimit(before.size() + 3, [&] {
        EXPECT_FALSE(AppendToFile(p, "a line longer than the space left\r\n"));
        FileAppender out(p);
        out.write("a line ");
        out.write("in two parts\r\n");
        EXPECT_EQ(out.finish().text(), p + ": File too large.");
    });
    EXPECT_EQ(test::ReadBytes(p), before);
    ASSERT_TRUE(AppendToFile(p, "three\r\n"));
    EXPECT_EQ(test::ReadBytes(p), before + "three\r\n");
#endif
}

TEST(TextFile, LongLinesCrossTheBufferBoundary) {
    std::string p = tempPath("long.txt");
    std::string big(kMaxLineBytes, 'x');
    {
        FileReplacer w(p);
        for (int i = 0; i < 5; ++i) w.write(big + "\r\n");
        w.write("tail\r\n");
        ASSERT_TRUE(w.commit());
    }
    TextLineReader r;
    r.open(p);
    std::string line;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(r.next(line));
        EXPECT_EQ(line.size(), big.size());
    }
    ASSERT_TRUE(r.next(line));
    EXPECT_EQ(line, "tail");
    EXPECT_FALSE(r.next(line));
}
