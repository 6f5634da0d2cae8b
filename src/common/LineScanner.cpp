#include "common/LineScanner.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "common/RuntimeError.h"
#include "common/TextFile.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#else
#include <unistd.h>
#endif

namespace mervasto {

namespace {

constexpr size_t kChunk = size_t{4} << 20;
static_assert(kChunk > 2 * kMaxLineBytes, "a whole line must fit the buffer beside the rest of the last read");

// The first CR or LF in [p, end), or end.
const char* findLineEnd(const char* p, const char* end) {
    for (; end - p >= 8; p += 8) {
        uint64_t x;
        std::memcpy(&x, p, sizeof x);
        const uint64_t hit = ByteMask(x, '\r') | ByteMask(x, '\n');
        if (hit) return p + (std::countr_zero(hit) >> 3);
    }
    for (; p < end; ++p)
        if (*p == '\r' || *p == '\n') return p;
    return end;
}

}  // namespace

const char* FindByte(const char* p, const char* end, char c) {
    for (; end - p >= 8; p += 8) {
        uint64_t x;
        std::memcpy(&x, p, sizeof x);
        const uint64_t hit = ByteMask(x, c);
        if (hit) return p + (std::countr_zero(hit) >> 3);
    }
    for (; p < end; ++p)
        if (*p == c) return p;
    return end;
}

std::string SystemReason(int error) { return std::generic_category().message(error); }

LineScanner::~LineScanner() { close(); }

void LineScanner::open(std::string_view fileName, uint64_t offset) {
    close();
    path_ = PathFromText(fileName);
    errno = 0;
#ifdef _WIN32
    file_ = _wfopen(path_.c_str(), L"rb");
#else
    file_ = std::fopen(path_.c_str(), "rb");
#endif
    // A folder opens on some systems and then fails on the first read,
    // which would only say "Read error."; on Windows it does not open, for
    // want of permission. Only what cannot be opened or has no size is asked.
    const auto refuseFolder = [this] {
        if (std::error_code folderError; !std::filesystem::is_directory(path_, folderError)) return;
        close();
        throw RuntimeError(ErrorCode::FileIo, "This is a folder, not a file.");
    };
    if (!file_) {
        const int error = errno;
        refuseFolder();
        throw RuntimeError(ErrorCode::FileNotFound, error ? SystemReason(error) + "." : "File not found.");
    }
    std::error_code ec;
    const auto fileSize = std::filesystem::file_size(path_, ec);
    if (ec) refuseFolder();
#ifdef _WIN32
    const int sought = offset > 0 ? _fseeki64(file_, static_cast<long long>(offset), SEEK_SET) : 0;
#else
    const int sought = offset > 0 ? fseeko(file_, static_cast<off_t>(offset), SEEK_SET) : 0;
#endif
    if (sought != 0) throw RuntimeError(ErrorCode::FileIo, "Read error.");
    // A short file needs no 4 MiB buffer, and clearing one for each of many
    // small files cost more than reading them; fill() grows it if the file
    // turns out longer.
    // It is made at the first read, which readHead never comes to.
    const uint64_t want = ec ? kChunk : std::max<uint64_t>(fileSize - std::min<uint64_t>(offset, fileSize) + 1, 4096);
    bufferWant_ = static_cast<size_t>(std::min<uint64_t>(want, kChunk));
    data_ = buffer_.data();
    ownsFile_ = true;
    memory_ = false;
    consumed_ = offset;
    lineStart_ = offset;
    lineNumber_ = 0;
    pos_ = end_ = 0;
    eof_ = false;
    pendingLf_ = false;
}

void LineScanner::openStream(std::FILE* file, std::string_view ahead) {
    close();
    path_.clear();
    file_ = file;
    ownsFile_ = false;
    bufferWant_ = std::max<size_t>(ahead.size() + 1, size_t{64} << 10);
    buffer_.resize(bufferWant_);
    std::memcpy(buffer_.data(), ahead.data(), ahead.size());
    data_ = buffer_.data();
    memory_ = false;
    consumed_ = 0;
    lineStart_ = 0;
    lineNumber_ = 0;
    pos_ = 0;
    end_ = ahead.size();
    eof_ = false;
    pendingLf_ = false;
}

void LineScanner::openBytes(std::string_view bytes, uint64_t offset) {
    close();
    path_.clear();
    memory_ = true;
    memorySize_ = bytes.size();
    offset = std::min<uint64_t>(offset, bytes.size());
    data_ = bytes.data() + offset;
    consumed_ = offset;
    lineStart_ = offset;
    lineNumber_ = 0;
    pos_ = 0;
    end_ = bytes.size() - static_cast<size_t>(offset);
    eof_ = true;
    pendingLf_ = false;
}

uint64_t LineScanner::size() const {
    if (memory_) return memorySize_;
    std::error_code ec;
    if (path_.empty()) return 0;
    const auto n = std::filesystem::file_size(path_, ec);
    return ec ? 0 : static_cast<uint64_t>(n);
}

void LineScanner::close() {
    if (file_ && ownsFile_) std::fclose(file_);
    file_ = nullptr;
    ownsFile_ = true;
    memory_ = false;
}

std::string LineScanner::readHead(size_t n) {
    std::string out(n, '\0');
    const size_t got = file_ ? std::fread(out.data(), 1, n, file_) : 0;
    if (file_ && got < n && std::ferror(file_)) throw RuntimeError(ErrorCode::FileIo, "Read error.");
    out.resize(got);
    return out;
}

bool LineScanner::fill() {
    if (eof_ || !file_) return false;
    if (pos_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + pos_, end_ - pos_);
        consumed_ += pos_;
        end_ -= pos_;
        pos_ = 0;
    }
    if (buffer_.size() < bufferWant_) {
        buffer_.resize(bufferWant_);
        data_ = buffer_.data();
    }
    if (end_ == buffer_.size() && buffer_.size() < kChunk) {
        buffer_.resize(kChunk);
        data_ = buffer_.data();
    }
    const size_t got = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_);
    if (got == 0) {
        if (std::ferror(file_)) throw RuntimeError(ErrorCode::FileIo, "Read error.");
        eof_ = true;
        return false;
    }
    end_ += got;
    return true;
}

void LineScanner::tooLong() {
    ++lineNumber_;
    throw RuntimeError(ErrorCode::FileIo, "The line is longer than 1 MiB (" + std::to_string(kMaxLineBytes) +
                                              " bytes); reading stops here.");
}

bool LineScanner::next(std::string_view& line) {
    if (!file_ && !memory_) return false;
    size_t scanned = 0;  // bytes after pos_ known to hold no end mark
    while (true) {
        if (pendingLf_ && pos_ < end_) {
            if (data_[pos_] == '\n') ++pos_;
            pendingLf_ = false;
        }
        const char* start = data_ + pos_;
        const char* stop = data_ + end_;
        const char* hit = lfOnly_ ? FindByte(start + scanned, stop, '\n') : findLineEnd(start + scanned, stop);
        if (static_cast<size_t>(hit - start) > kMaxLineBytes) tooLong();
        if (hit < stop) {
            line = std::string_view(start, static_cast<size_t>(hit - start));
            lineStart_ = consumed_ + pos_;
            ++lineNumber_;
            size_t after = static_cast<size_t>(hit - data_) + 1;
            if (*hit == '\r') {
                if (after < end_) {
                    if (data_[after] == '\n') ++after;
                } else {
                    pendingLf_ = true;
                }
            }
            pos_ = after;
            return true;
        }
        scanned = static_cast<size_t>(stop - start);
        if (!fill()) {
            pendingLf_ = false;
            if (pos_ < end_) {
                line = std::string_view(data_ + pos_, end_ - pos_);
                lineStart_ = consumed_ + pos_;
                ++lineNumber_;
                pos_ = end_;
                return true;
            }
            return false;
        }
    }
}

}  // namespace mervasto

namespace mervasto {

InputStream::~InputStream() {
    if (file_) std::fclose(file_);
}

void InputStream::ensureOpen() {
    if (file_ || ended_) return;
    errno = 0;
    if (fileName_ == "-") {
        // A handle of its own, so that closing it leaves the program's
        // standard input in place.
#ifdef _WIN32
        const int fd = _dup(0);
        if (fd >= 0) {
            _setmode(fd, _O_BINARY);
            file_ = _fdopen(fd, "rb");
        }
#else
        const int fd = dup(0);
        if (fd >= 0) file_ = fdopen(fd, "rb");
#endif
    } else {
#ifdef _WIN32
        file_ = _wfopen(PathFromText(fileName_).c_str(), L"rb");
#else
        file_ = std::fopen(PathFromText(fileName_).c_str(), "rb");
#endif
    }
    if (!file_) {
        const int error = errno;
        throw RuntimeError(ErrorCode::FileNotFound, error ? SystemReason(error) + "." : "File not found.");
    }
}

std::string_view InputStream::peek(size_t n) {
    if (taken_) throw RuntimeError(ErrorCode::FileIo, "The input was read already; it can be read only once.");
    ensureOpen();
    while (ahead_.size() < n && !ended_) {
        const size_t had = ahead_.size();
        ahead_.resize(n);
        const size_t got = std::fread(ahead_.data() + had, 1, n - had, file_);
        ahead_.resize(had + got);
        if (got == 0) {
            if (std::ferror(file_)) throw RuntimeError(ErrorCode::FileIo, "Read error.");
            ended_ = true;
        }
    }
    return std::string_view(ahead_).substr(0, std::min(n, ahead_.size()));
}

void InputStream::open(LineScanner& in) {
    if (taken_) throw RuntimeError(ErrorCode::FileIo, "The input was read already; it can be read only once.");
    ensureOpen();
    taken_ = true;
    in.openStream(file_, ahead_);
    ahead_ = {};
}

LineSource LineSource::Input(std::string_view fileName) {
    if (fileName == "-") return {"standard input", {}, false, std::make_shared<InputStream>("-")};
    std::error_code ec;
    const auto status = std::filesystem::status(PathFromText(fileName), ec);
    if (!ec && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
        !std::filesystem::is_directory(status))
        return {std::string(fileName), {}, false, std::make_shared<InputStream>(std::string(fileName))};
    return File(fileName);
}

void LineSource::open(LineScanner& in, uint64_t offset) const {
    if (memory) return in.openBytes(bytes, offset);
    if (!stream) return in.open(name, offset);
    if (offset != 0) throw RuntimeError(ErrorCode::FileIo, "Read error.");
    stream->open(in);
}

std::string LineSource::head(size_t n) const {
    if (memory) return std::string(bytes.substr(0, n));
    if (stream) return std::string(stream->peek(n));
    LineScanner in;
    in.open(name);
    return in.readHead(n);
}

}  // namespace mervasto
