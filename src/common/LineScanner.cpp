#include "common/LineScanner.h"

#include <bit>
#include <cstring>
#include <filesystem>
#include <string>

#include "common/RuntimeError.h"
#include "common/TextFile.h"

namespace mervasto {

namespace {

constexpr size_t kChunk = size_t{4} << 20;
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

LineScanner::~LineScanner() { close(); }

void LineScanner::open(std::string_view fileName, uint64_t offset) {
    close();
    path_ = PathFromText(fileName);
#ifdef _WIN32
    file_ = _wfopen(PathFromText(fileName).c_str(), L"rb");
#else
    file_ = std::fopen(PathFromText(fileName).c_str(), "rb");
#endif
    if (!file_) throw RuntimeError(ErrorCode::FileNotFound, "File not found: " + std::string(fileName));
#ifdef _WIN32
    const int sought = offset > 0 ? _fseeki64(file_, static_cast<long long>(offset), SEEK_SET) : 0;
#else
    const int sought = offset > 0 ? fseeko(file_, static_cast<off_t>(offset), SEEK_SET) : 0;
#endif
    if (sought != 0) throw RuntimeError(ErrorCode::FileIo, "Read error.");
    buffer_.resize(kChunk);
    consumed_ = offset;
    lineStart_ = offset;
    pos_ = end_ = 0;
    eof_ = false;
    pendingLf_ = false;
}

uint64_t LineScanner::fileSize() const {
    std::error_code ec;
    if (path_.empty()) return 0;
    const auto n = std::filesystem::file_size(path_, ec);
    return ec ? 0 : static_cast<uint64_t>(n);
}

void LineScanner::close() {
    if (file_) std::fclose(file_);
    file_ = nullptr;
}

bool LineScanner::fill() {
    if (eof_ || !file_) return false;
    if (pos_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + pos_, end_ - pos_);
        consumed_ += pos_;
        end_ -= pos_;
        pos_ = 0;
    }
    if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2);  // a very long line
    const size_t got = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_);
    if (got == 0) {
        if (std::ferror(file_)) throw RuntimeError(ErrorCode::FileIo, "Read error.");
        eof_ = true;
        return false;
    }
    end_ += got;
    return true;
}

bool LineScanner::next(std::string_view& line) {
    if (!file_) return false;
    size_t scanned = 0;  // bytes after pos_ known to hold no end mark
    while (true) {
        if (pendingLf_ && pos_ < end_) {
            if (buffer_[pos_] == '\n') ++pos_;
            pendingLf_ = false;
        }
        const char* base = buffer_.data();
        const char* start = base + pos_;
        const char* stop = base + end_;
        const char* hit = findLineEnd(start + scanned, stop);
        if (hit < stop) {
            line = std::string_view(start, static_cast<size_t>(hit - start));
            lineStart_ = consumed_ + pos_;
            size_t after = static_cast<size_t>(hit - base) + 1;
            if (*hit == '\r') {
                if (after < end_) {
                    if (base[after] == '\n') ++after;
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
                line = std::string_view(buffer_.data() + pos_, end_ - pos_);
                lineStart_ = consumed_ + pos_;
                pos_ = end_;
                return true;
            }
            return false;
        }
    }
}

}  // namespace mervasto
