#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mervasto {

#ifdef _WIN32
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif

// a + separator + b; no doubled separator when a already ends in one.
std::string JoinPath(std::string_view a, std::string_view b);

// C:\ProgramData\Mervasto on Windows, ~/.local/share/Mervasto elsewhere.
std::string DefaultDataFolder();

// Creates the data folder (the override when given) and "OutputData",
// "Parameter" and "Debug" inside it, ignoring failures, and returns the data
// folder. Where names are case-sensitive, "Outputdata" is made a link to
// "OutputData" so that both spellings reach one folder.
std::string PrepareDataFolder(const std::optional<std::string>& overridePath = std::nullopt);

// DataFolder/Parameter/Resume340.txt
std::string ResumeFileName(std::string_view dataFolder);

}  // namespace mervasto
