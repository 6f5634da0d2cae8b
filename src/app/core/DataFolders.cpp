#include "app/core/DataFolders.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "app/core/Version.h"
#include "common/TextFile.h"

namespace mervasto {

namespace fs = std::filesystem;

std::string JoinPath(std::string_view a, std::string_view b) {
    std::string out(a);
    if (!out.empty() && out.back() != kPathSeparator && out.back() != '/') out.push_back(kPathSeparator);
    out.append(b);
    return out;
}

std::string DefaultDataFolder() {
#ifdef _WIN32
    return "C:\\ProgramData\\Mervasto";
#else
    const char* home = std::getenv("HOME");
    std::string base = home && *home ? home : ".";
    return JoinPath(JoinPath(JoinPath(base, ".local"), "share"), "Mervasto");
#endif
}

std::string PrepareDataFolder(const std::optional<std::string>& overridePath) {
    std::string folder = overridePath && !overridePath->empty() ? *overridePath : DefaultDataFolder();
    std::error_code ec;
    fs::create_directories(PathFromText(folder), ec);
    for (const char* sub : {"OutputData", "Parameter", "Debug"})
        fs::create_directory(PathFromText(JoinPath(folder, sub)), ec);

    // The default output folder is spelt "Outputdata"; on a case-sensitive
    // file system that would be a second folder without this link.
    const fs::path lowerCase = PathFromText(JoinPath(folder, "Outputdata"));
    if (!fs::exists(fs::symlink_status(lowerCase, ec))) fs::create_directory_symlink("OutputData", lowerCase, ec);
    return folder;
}

std::string ResumeFileName(std::string_view dataFolder) {
    return JoinPath(JoinPath(dataFolder, "Parameter"), "Resume" + std::string(kVersionText) + ".txt");
}

}  // namespace mervasto
