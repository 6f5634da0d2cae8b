#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <vector>

namespace mervasto {

// Reads a text file line by line through one large buffer and hands out each
// line as a view into it, without copying: the wave reader passes millions of
// sample rows, where a copy per line cost as much as parsing it. A line ends
// at CR LF, LF or a lone CR; the end marks are not part of the line. Bytes are
// as in the file (the narrow encoding); the caller converts header texts.
class LineScanner {
public:
    LineScanner() = default;
    ~LineScanner();
    LineScanner(const LineScanner&) = delete;
    LineScanner& operator=(const LineScanner&) = delete;

    // Throws a FileNotFound RuntimeError when the file cannot be opened.
    // Reading starts at byte offset (which may fall inside a line).
    void open(std::string_view fileName, uint64_t offset = 0);
    // False at end of file. The view stays valid until the next call.
    // Throws a FileIo RuntimeError on a read error.
    bool next(std::string_view& line);
    void close();
    // The byte offset in the file of the line last handed out.
    uint64_t lineStart() const { return lineStart_; }
    // The file's size in bytes (0 when unknown).
    uint64_t fileSize() const;

private:
    bool fill();

    std::FILE* file_ = nullptr;
    std::filesystem::path path_;
    std::vector<char> buffer_;
    size_t pos_ = 0;
    size_t end_ = 0;
    bool eof_ = false;
    bool pendingLf_ = false;  // a CR ended the last line; skip a following LF
    uint64_t consumed_ = 0;   // file bytes before buffer_[0]
    uint64_t lineStart_ = 0;
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

}  // namespace mervasto
