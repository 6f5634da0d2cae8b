#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "wavefile/ExampleRecords.h"
#include "wavefile/WaveCsv.h"

namespace mervasto::test {

// Writes the bundled example record `name` as dir/name.csv, the way "Save"
// writes it, and returns the file's path.
inline std::string WriteExample(const std::filesystem::path& dir, const std::string& name) {
    DsoSetup setup;
    WaveRecord record;
    EXPECT_TRUE(MakeExampleRecord(name, setup, record)) << name;
    const std::string file = (dir / (name + ".csv")).string();
    EXPECT_TRUE(SaveWaveCsv(file, setup, record)) << file;
    return file;
}

}  // namespace mervasto::test
