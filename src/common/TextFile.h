#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/LineScanner.h"

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
    // False at end of file. Throws a FileIo RuntimeError on a read error.
    bool next(std::string& line);
    void close() { scanner_.close(); }

private:
    LineScanner scanner_;
};

// Writes text lines ended by CR LF. Errors are remembered, not thrown: the
// writers go on past a failed statement and the caller asks ok() when it
// cares.
class TextFileWriter {
public:
    enum class Mode { Truncate, Append };
    TextFileWriter() = default;
    TextFileWriter(std::string_view fileName, Mode mode) { open(fileName, mode); }
    ~TextFileWriter();
    TextFileWriter(const TextFileWriter&) = delete;
    TextFileWriter& operator=(const TextFileWriter&) = delete;

    bool open(std::string_view fileName, Mode mode);
    void writeLine(std::string_view text);
    // Text without a line end, converted to the narrow encoding.
    void write(std::string_view text);
    // Bytes as they stand (already narrow, line ends included).
    void writeRaw(std::string_view bytes);
    // Flushes to the operating system; false when anything failed so far.
    bool flush();
    // Flushes and asks the system to put the bytes on the disk (so that a
    // power cut after a rename finds them there).
    bool sync();
    bool close();
    bool ok() const { return ok_; }
    bool isOpen() const { return file_ != nullptr; }

private:
    std::FILE* file_ = nullptr;
    bool ok_ = false;
};

// Writes the whole content to a temporary file beside fileName, puts it on
// the disk and renames it over fileName, so that a failed, interrupted or
// crashed write leaves the old file whole.
bool WriteFileReplacing(std::string_view fileName, std::string_view bytes);

// Appends bytes to a file (created when missing) and flushes them. On any
// failure (full disk, read-only folder) the file is cut back to its old
// length, so that no half line is left for the next append to join.
bool AppendToFile(std::string_view fileName, std::string_view bytes);

}  // namespace mervasto
