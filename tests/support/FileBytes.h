#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace mervasto::test {

// A file's bytes exactly as stored (empty when it cannot be read, a folder
// in its place included).
inline std::string ReadBytes(const std::filesystem::path& file) {
    std::error_code ec;
    if (std::filesystem::is_directory(file, ec)) return {};
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteBytes(const std::filesystem::path& file, std::string_view bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

// The lines of a text, each ended by CR LF; what follows the last CR LF is
// no line.
inline std::vector<std::string> CrLfLines(const std::string& text) {
    std::vector<std::string> out;
    for (size_t pos = 0, end; (end = text.find("\r\n", pos)) != std::string::npos; pos = end + 2)
        out.push_back(text.substr(pos, end - pos));
    return out;
}

}  // namespace mervasto::test
