#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <vector>

namespace mervasto::test {

namespace detail {

// The folders this test program made, removed when it ends. Their names
// carry a token of their own, so test programs running at the same time
// (two developers, two build trees) never share one.
struct TestFolders {
    std::string token = [] {
        std::random_device rd;
        return std::to_string(rd() % 100000000u);
    }();
    std::vector<std::filesystem::path> made;
    ~TestFolders() {
        std::error_code ec;
        for (const auto& dir : made) std::filesystem::remove_all(dir, ec);
    }
};

inline TestFolders& Folders() {
    static TestFolders folders;
    return folders;
}

}  // namespace detail

// A fresh, empty folder for the running test: the temporary folder, then
// prefix, the test's name and this program's token.
inline std::filesystem::path FreshTestFolder(const std::string& prefix) {
    auto& folders = detail::Folders();
    // A parameterised test's name ("Round/Sqlite") names one folder, not two.
    std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    for (char& c : name)
        if (c == '/') c = '_';
    const auto dir = std::filesystem::temp_directory_path() / (prefix + name + "_" + folders.token);
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    folders.made.push_back(dir);
    return dir;
}

}  // namespace mervasto::test
