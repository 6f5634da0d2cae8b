#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Cli.h"
#include "support/TestFolder.h"

namespace mervasto::test {

// A fresh folder (with the example records written into it, unless asked
// otherwise) and mervasto-cli run with its data folder there.
class CliRun : public ::testing::Test {
protected:
    explicit CliRun(const char* prefix, bool examples = true) : prefix_(prefix), examples_(examples) {}
    void SetUp() override {
        dir_ = FreshTestFolder(prefix_);
        if (examples_) {
            ASSERT_EQ(run({"make-examples", dir_.string()}), 0);
        }
    }
    int run(std::vector<std::string> args) {
        out.str("");
        err.str("");
        args.insert(args.begin(), {"--data-folder", (dir_ / "data").string()});
        return RunCli(args, out, err);
    }
    std::string example(const char* name) const { return (dir_ / (std::string(name) + ".csv")).string(); }
    // A file of the data folder's OutputData, line by line (none when missing).
    std::vector<std::string> outputLines(const char* name) const {
        std::ifstream f(dir_ / "data" / "OutputData" / name, std::ios::binary);
        std::vector<std::string> lines;
        for (std::string l; std::getline(f, l);) lines.push_back(l);
        return lines;
    }

    std::filesystem::path dir_;
    std::ostringstream out;
    std::ostringstream err;

private:
    const char* prefix_;
    bool examples_;
};

}  // namespace mervasto::test
