#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/LineScanner.h"
#include "common/Outcome.h"

// Text files as the measurement files have always been: the platform's narrow
// encoding (the active code page on Windows, UTF-8 elsewhere) and CR LF line
// ends. Inside the program every text is UTF-8; the conversion happens here.
namespace mervasto {

// A path from a UTF-8 text.
std::filesystem::path PathFromText(std::string_view utf8);
std::string TextFromPath(const std::filesystem::path& path);

// True when the file can be opened for reading.
bool FileExists(std::string_view fileName);

// Converts between the internal UTF-8 and the platform's narrow encoding
// (identity except on Windows).
std::string ToNarrow(std::string_view utf8);
std::string FromNarrow(std::string_view narrow);

// Reads a text file line by line (a LineScanner), each line converted from
// the narrow encoding. A line ends at CR LF, LF or a lone CR; the end marks
// are not part of the line.
class TextLineReader {
public:
    // Throws a FileNotFound RuntimeError when the file cannot be opened.
    void open(std::string_view fileName) { scanner_.open(fileName); }
    // Reads bytes that stay in place until reading ends.
    void openBytes(std::string_view bytes) { scanner_.openBytes(bytes); }
    // False at end of file. Throws a FileIo RuntimeError on a read error or
    // a line longer than kMaxLineBytes.
    bool next(std::string& line);
    void close() { scanner_.close(); }
    // The 1-based number of the line last read (or refused).
    uint64_t lineNumber() const { return scanner_.lineNumber(); }

private:
    LineScanner scanner_;
};

// Writes a whole file through a temporary file beside it (its name unique to
// this process), which commit() puts on the disk and renames over the file,
// syncing the folder after the rename. A failed, interrupted or crashed write
// leaves the old file whole; the temporary file goes unless committed.
class FileReplacer {
public:
    explicit FileReplacer(std::string_view fileName);
    ~FileReplacer();
    FileReplacer(const FileReplacer&) = delete;
    FileReplacer& operator=(const FileReplacer&) = delete;

    // Bytes as they stand (already narrow). The first failure is kept and
    // later writes are skipped.
    void write(std::string_view bytes);
    // The outcome names the file and the system's reason.
    Outcome commit();

private:
    std::string fileName_;
    std::string temp_;
    std::FILE* file_ = nullptr;
    int error_ = 0;
    bool committed_ = false;
};

// Appends to a file (created when missing). finish() flushes; on any failure
// (full disk, read-only folder) the file is cut back to its old length, so
// that no part of this append is left for the next one to join.
class FileAppender {
public:
    explicit FileAppender(std::string_view fileName);
    ~FileAppender();
    FileAppender(const FileAppender&) = delete;
    FileAppender& operator=(const FileAppender&) = delete;

    void write(std::string_view bytes);
    Outcome finish();

private:
    std::string fileName_;
    std::FILE* file_ = nullptr;
    bool existed_ = false;
    uint64_t oldSize_ = 0;
    int error_ = 0;
    bool finished_ = false;
};

// A write failure as the user reads it: the file and the reason.
Outcome WriteFailure(std::string_view fileName, int error);

// The whole content through a FileReplacer.
Outcome WriteFileReplacing(std::string_view fileName, std::string_view bytes);

// Appends bytes through a FileAppender: all of them or none.
Outcome AppendToFile(std::string_view fileName, std::string_view bytes);

}  // namespace mervasto
