#include "common/TextFile.h"

#include "common/RuntimeError.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
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

TextFileWriter::~TextFileWriter() { close(); }

bool TextFileWriter::open(std::string_view fileName, Mode mode) {
    close();
    file_ = openFile(fileName, mode == Mode::Append ? "ab" : "wb");
    ok_ = file_ != nullptr;
    return ok_;
}

void TextFileWriter::writeLine(std::string_view text) {
    write(text);
    writeRaw("\r\n");
}

void TextFileWriter::write(std::string_view text) {
#ifdef _WIN32
    writeRaw(ToNarrow(text));
#else
    writeRaw(text);
#endif
}

void TextFileWriter::writeRaw(std::string_view bytes) {
    if (!file_) {
        ok_ = false;
        return;
    }
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) ok_ = false;
}

bool TextFileWriter::flush() {
    if (!file_) return false;
    if (std::fflush(file_) != 0) ok_ = false;
    return ok_;
}

bool TextFileWriter::sync() {
    if (!flush()) return false;
#ifdef _WIN32
    if (_commit(_fileno(file_)) != 0) ok_ = false;
#else
    if (::fsync(fileno(file_)) != 0) ok_ = false;
#endif
    return ok_;
}

bool TextFileWriter::close() {
    if (file_) {
        if (std::fclose(file_) != 0) ok_ = false;
        file_ = nullptr;
    }
    return ok_;
}

bool WriteFileReplacing(std::string_view fileName, std::string_view bytes) {
    std::string temp = std::string(fileName) + ".tmp";
    {
        TextFileWriter w;
        if (!w.open(temp, TextFileWriter::Mode::Truncate)) return false;
        w.writeRaw(bytes);
        w.sync();
        if (!w.close()) {
            std::error_code ec;
            std::filesystem::remove(PathFromText(temp), ec);
            return false;
        }
    }
    std::error_code ec;
    std::filesystem::rename(PathFromText(temp), PathFromText(fileName), ec);
    if (ec) {
        std::filesystem::remove(PathFromText(temp), ec);
        return false;
    }
    return true;
}

bool AppendToFile(std::string_view fileName, std::string_view bytes) {
    const std::filesystem::path path = PathFromText(fileName);
    std::error_code ec;
    const bool existed = std::filesystem::exists(path, ec);
    const auto oldSize = existed ? std::filesystem::file_size(path, ec) : 0;
    const bool sized = !ec;
    TextFileWriter w;
    bool ok = w.open(fileName, TextFileWriter::Mode::Append);
    if (ok) {
        w.writeRaw(bytes);
        ok = w.flush();
        ok = w.close() && ok;
    }
    if (!ok && sized && std::filesystem::is_regular_file(path, ec)) {
        if (existed)
            std::filesystem::resize_file(path, oldSize, ec);
        else
            std::filesystem::remove(path, ec);
    }
    return ok;
}

}  // namespace mervasto
