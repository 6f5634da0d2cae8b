#include "common/TextFile.h"

#include "common/RuntimeError.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace mervasto {

namespace {

std::FILE* openFile(std::string_view fileName, const char* mode) {
#ifdef _WIN32
    std::wstring wmode(mode, mode + std::strlen(mode));
    return _wfopen(PathFromText(fileName).c_str(), wmode.c_str());
#else
    return std::fopen(PathFromText(fileName).c_str(), mode);
#endif
}
}  // namespace

std::filesystem::path PathFromText(std::string_view utf8) {
    return std::filesystem::path(std::u8string(reinterpret_cast<const char8_t*>(utf8.data()), utf8.size()));
}

std::string TextFromPath(const std::filesystem::path& path) {
    std::u8string s = path.u8string();
    return std::string(reinterpret_cast<const char*>(s.data()), s.size());
}

bool FileExists(std::string_view fileName) {
    if (fileName.empty()) return false;
    std::error_code ec;
    if (std::filesystem::is_directory(PathFromText(fileName), ec)) return false;
    std::FILE* f = openFile(fileName, "rb");
    if (!f) return false;
    std::fclose(f);
    return true;
}

#ifdef _WIN32
static std::string convert(std::string_view in, UINT from, UINT to) {
    if (in.empty()) return {};
    int wn = MultiByteToWideChar(from, 0, in.data(), static_cast<int>(in.size()), nullptr, 0);
    std::wstring w(static_cast<size_t>(wn), L'\0');
    MultiByteToWideChar(from, 0, in.data(), static_cast<int>(in.size()), w.data(), wn);
    int n = WideCharToMultiByte(to, 0, w.data(), wn, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(to, 0, w.data(), wn, out.data(), n, nullptr, nullptr);
    return out;
}
std::string ToNarrow(std::string_view utf8) { return convert(utf8, CP_UTF8, CP_ACP); }
std::string FromNarrow(std::string_view narrow) { return convert(narrow, CP_ACP, CP_UTF8); }
#else
std::string ToNarrow(std::string_view utf8) { return std::string(utf8); }
std::string FromNarrow(std::string_view narrow) { return std::string(narrow); }
#endif

bool TextLineReader::next(std::string& line) {
    std::string_view view;
    if (!scanner_.next(view)) return false;
    line = FromNarrow(view);
    return true;
}

namespace {

int lastError(int fallback = EIO) { return errno != 0 ? errno : fallback; }

std::string temporaryName(std::string_view fileName) {
    static std::atomic<unsigned> serial{0};
#ifdef _WIN32
    const long pid = static_cast<long>(GetCurrentProcessId());
#else
    const long pid = static_cast<long>(::getpid());
#endif
    return std::string(fileName) + ".tmp" + std::to_string(pid) + "-" + std::to_string(serial++);
}

// After a rename the new directory entry is only safe once the folder itself
// is on the disk.
void syncFolderOf(std::string_view fileName) {
#ifndef _WIN32
    std::filesystem::path folder = PathFromText(fileName).parent_path();
    if (folder.empty()) folder = ".";
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd < 0) return;
    (void)::fsync(fd);
    ::close(fd);
#else
    (void)fileName;
#endif
}

}  // namespace

Outcome WriteFailure(std::string_view fileName, int error) {
    return {ErrorCode::FileIo, std::string(fileName) + ": " + SystemReason(error) + "."};
}

FileReplacer::FileReplacer(std::string_view fileName) : fileName_(fileName), temp_(temporaryName(fileName)) {
    errno = 0;
    file_ = openFile(temp_, "wb");
    if (!file_) error_ = lastError(ENOENT);
}

FileReplacer::~FileReplacer() {
    if (file_) std::fclose(file_);
    if (!committed_) {
        std::error_code ec;
        std::filesystem::remove(PathFromText(temp_), ec);
    }
}

void FileReplacer::write(std::string_view bytes) {
    if (error_ != 0 || !file_ || bytes.empty()) return;
    errno = 0;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) error_ = lastError();
}

Outcome FileReplacer::commit() {
    if (file_ && error_ == 0) {
        errno = 0;
        if (std::fflush(file_) != 0) error_ = lastError();
#ifdef _WIN32
        if (error_ == 0 && _commit(_fileno(file_)) != 0) error_ = lastError();
#else
        if (error_ == 0 && ::fsync(fileno(file_)) != 0) error_ = lastError();
#endif
    }
    if (file_) {
        errno = 0;
        if (std::fclose(file_) != 0 && error_ == 0) error_ = lastError();
        file_ = nullptr;
    }
    if (error_ != 0) return WriteFailure(fileName_, error_);
    std::error_code ec;
    std::filesystem::rename(PathFromText(temp_), PathFromText(fileName_), ec);
    if (ec) return WriteFailure(fileName_, ec.value());
    committed_ = true;
    syncFolderOf(fileName_);
    return Outcome::Ok();
}

FileAppender::FileAppender(std::string_view fileName) : fileName_(fileName) {
    const std::filesystem::path path = PathFromText(fileName);
    std::error_code ec;
    existed_ = std::filesystem::exists(path, ec);
    oldSize_ = existed_ ? std::filesystem::file_size(path, ec) : 0;
    if (ec) {
        error_ = ec.value();
        return;
    }
    errno = 0;
    file_ = openFile(fileName, "ab");
    if (!file_) error_ = lastError(ENOENT);
}

FileAppender::~FileAppender() {
    if (!finished_) (void)finish();
}

void FileAppender::write(std::string_view bytes) {
    if (error_ != 0 || !file_ || bytes.empty()) return;
    errno = 0;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) error_ = lastError();
}

Outcome FileAppender::finish() {
    finished_ = true;
    const bool opened = file_ != nullptr;
    if (file_) {
        errno = 0;
        if (std::fflush(file_) != 0 && error_ == 0) error_ = lastError();
        if (std::fclose(file_) != 0 && error_ == 0) error_ = lastError();
        file_ = nullptr;
    }
    if (error_ == 0) return Outcome::Ok();
    if (opened) {
        const std::filesystem::path path = PathFromText(fileName_);
        std::error_code ec;
        if (std::filesystem::is_regular_file(path, ec)) {
            if (existed_)
                std::filesystem::resize_file(path, oldSize_, ec);
            else
                std::filesystem::remove(path, ec);
        }
    }
    return WriteFailure(fileName_, error_);
}

Outcome WriteFileReplacing(std::string_view fileName, std::string_view bytes) {
    FileReplacer out(fileName);
    out.write(bytes);
    return out.commit();
}

Outcome AppendToFile(std::string_view fileName, std::string_view bytes) {
    FileAppender out(fileName);
    out.write(bytes);
    return out.finish();
}

}  // namespace mervasto
