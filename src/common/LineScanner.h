#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
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
    void setLineEnds(LineEnds ends) { lfOnly_ = ends == LineEnds::LfOnly; }
    // False at end of input. The view stays valid until the next call.
    // Throws a FileIo RuntimeError on a read error or a line longer than
    // kMaxLineBytes; lineNumber() then names the line that failed.
    bool next(std::string_view& line);
    void close();
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
    std::filesystem::path path_;
    std::vector<char> buffer_;
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

// Where a reader's lines come from: a file, or its bytes in memory with name
// standing for the file in texts. Both are read through the same code, so
// that a reader fed from memory (the fuzzers) meets every path a file takes.
struct LineSource {
    std::string name;
    std::string_view bytes;
    bool memory = false;

    static LineSource File(std::string_view fileName) { return {std::string(fileName), {}, false}; }
    static LineSource Bytes(std::string_view bytes, std::string_view name) { return {std::string(name), bytes, true}; }
    // Throws as LineScanner::open does.
    void open(LineScanner& in, uint64_t offset = 0) const {
        if (memory)
            in.openBytes(bytes, offset);
        else
            in.open(name, offset);
    }
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
