#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace mervasto {

// The longest line any reader takes. A longer one is refused rather than
// buffered: a file of one endless line would otherwise cost its whole size
// in memory, and many times that once split into fields.
inline constexpr size_t kMaxLineBytes = size_t{1} << 20;

// Reads text line by line, from a file through one large buffer or from
// bytes already in memory, and hands out each line as a view without
// copying: the wave reader passes millions of sample rows, where a copy per
// line cost as much as parsing it. A line ends at CR LF, LF or a lone CR
// (only at LF with LineEnds::LfOnly); the end marks are not part of the line.
// Bytes are as given (the narrow encoding); the caller converts header texts.
class LineScanner {
public:
    enum class LineEnds { Any, LfOnly };

    LineScanner() = default;
    ~LineScanner();
    LineScanner(const LineScanner&) = delete;
    LineScanner& operator=(const LineScanner&) = delete;

    // Throws a FileNotFound RuntimeError, with the system's reason, when the
    // file cannot be opened. Reading starts at byte offset (which may fall
    // inside a line).
    void open(std::string_view fileName, uint64_t offset = 0);
    // Reads bytes that stay in place until reading ends.
    void openBytes(std::string_view bytes, uint64_t offset = 0);
    // Reads ahead (bytes already taken from file), then file, which stays
    // open after reading: a pipe, whose bytes come once.
    void openStream(std::FILE* file, std::string_view ahead);
    // Up to n bytes from where a file was opened, as they stand, for a look
    // at its head before any line is read.
    std::string readHead(size_t n);
    void setLineEnds(LineEnds ends) { lfOnly_ = ends == LineEnds::LfOnly; }
    // False at end of input. The view stays valid until the next call.
    // Throws a FileIo RuntimeError on a read error or a line longer than
    // kMaxLineBytes; lineNumber() then names the line that failed.
    bool next(std::string_view& line);
    void close();
    // The byte offset after the line last handed out: where the next begins.
    uint64_t position() const { return consumed_ + pos_; }
    // The byte offset of the line last handed out.
    uint64_t lineStart() const { return lineStart_; }
    // The 1-based number of the line last handed out, counted from where
    // reading started.
    uint64_t lineNumber() const { return lineNumber_; }
    // The input's size in bytes (0 when unknown).
    uint64_t size() const;

private:
    bool fill();
    [[noreturn]] void tooLong();

    std::FILE* file_ = nullptr;
    bool ownsFile_ = true;
    std::filesystem::path path_;
    std::vector<char> buffer_;
    size_t bufferWant_ = 0;       // the size the buffer is to have at the next read
    const char* data_ = nullptr;  // buffer_ or the bytes in memory
    uint64_t memorySize_ = 0;
    bool memory_ = false;
    bool lfOnly_ = false;
    size_t pos_ = 0;
    size_t end_ = 0;
    bool eof_ = false;
    bool pendingLf_ = false;  // a CR ended the last line; skip a following LF
    uint64_t consumed_ = 0;   // input bytes before data_[0]
    uint64_t lineStart_ = 0;
    uint64_t lineNumber_ = 0;
};

// A pipe, a terminal or standard input: its bytes come once, so they are
// read once, front to back, on one thread. The first of them can be looked
// at before the reading proper, which then gets them again.
class InputStream {
public:
    // "-" is standard input. Nothing is opened before it is needed.
    explicit InputStream(std::string fileName) : fileName_(std::move(fileName)) {}
    ~InputStream();
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;

    // Up to the first n bytes (fewer only at the end of the input). Throws
    // as LineScanner::open does.
    std::string_view peek(size_t n);
    // Hands the stream to in, the bytes peeked at first. Only once: a second
    // reading would find the bytes gone.
    void open(LineScanner& in);

private:
    void ensureOpen();

    std::string fileName_;
    std::FILE* file_ = nullptr;
    std::string ahead_;
    bool ended_ = false;
    bool taken_ = false;
};

// Where a reader's lines come from: a file, its bytes in memory with name
// standing for the file in texts, or a stream. Files and bytes are read
// through the same code, so that a reader fed from memory (the fuzzers)
// meets every path a file takes.
struct LineSource {
    std::string name;
    std::string_view bytes;
    bool memory = false;
    std::shared_ptr<InputStream> stream;

    static LineSource File(std::string_view fileName) { return {std::string(fileName), {}, false, nullptr}; }
    static LineSource Bytes(std::string_view bytes, std::string_view name) {
        return {std::string(name), bytes, true, nullptr};
    }
    // A file given by the user: "-" is standard input, and a named pipe or
    // device is read as the stream it is.
    static LineSource Input(std::string_view fileName);

    // Whether two readers may each open it at a place of their own.
    bool splittable() const { return !stream; }
    // Throws as LineScanner::open does; a stream opens once, at its start.
    void open(LineScanner& in, uint64_t offset = 0) const;
    // Up to the first n bytes, without using up a stream.
    std::string head(size_t n) const;
};

// The position of the first byte equal to c in [p, end), or end.
const char* FindByte(const char* p, const char* end, char c);

// The high bit of every byte of chunk that equals c, and nothing else.
inline uint64_t ByteMask(uint64_t chunk, char c) {
    constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7Fu;
    const uint64_t t = chunk ^ (0x0101010101010101u * static_cast<unsigned char>(c));
    // Adding 0x7F to the low seven bits sets the high bit unless they are all
    // zero, and never carries into the next byte.
    return ~(((t & kLow7) + kLow7) | t | kLow7);
}

// The system's words for an errno value ("No space left on device").
std::string SystemReason(int error);

}  // namespace mervasto
