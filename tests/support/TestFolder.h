#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace mervasto::test {

// A fresh, empty folder for the running test: the temporary folder, then
// prefix and the test's name. Whatever an earlier run left there is removed.
inline std::filesystem::path FreshTestFolder(const std::string& prefix) {
    const auto dir = std::filesystem::temp_directory_path() /
                     (prefix + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

}  // namespace mervasto::test
