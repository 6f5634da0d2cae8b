#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "wavefile/WaveCsv.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

struct Loaded {
    WaveCsvLoadResult result;
    DsoSetup setup;
    WaveRecord record;
};

Loaded load(const std::string& file, uint64_t splitBytes) {
    Loaded l;
    l.result = LoadWaveCsv(file, l.setup, l.record, {splitBytes});
    return l;
}

// A file read by two threads gives exactly what one thread gives, whatever
// the rows after the middle look like and wherever the middle falls.
TEST(WaveCsvSplitTest, TwoThreadsReadWhatOneReads) {
    struct Shape {
        const char* name;
        const char* eol;
        // the row text for row k of n
        std::function<std::string(int k, int n)> row;
        const char* points;
    };
    auto plain = [](int k, int) {
        return std::to_string(k) + "." + std::to_string(k % 7) + ",-." + std::to_string(k) + ",1E-3," +
               std::to_string(k * 3);
    };
    const std::vector<Shape> shapes = {
        {"CR LF", "\r\n", plain, "99999"},
        {"LF", "\n", plain, "99999"},
        {"CR", "\r", plain, "99999"},
        {"five fields", "\r\n", [&](int k, int n) { return plain(k, n) + ",x"; }, "99999"},
        {"two fields", "\r\n", [](int k, int) { return std::to_string(k) + ",2"; }, "99999"},
        {"a short row late", "\r\n", [&](int k, int n) { return k == n * 3 / 4 ? std::string("7,8,9") : plain(k, n); },
         "99999"},
        {"a setup line late", "\r\n",
         [&](int k, int n) { return k == n * 3 / 4 ? std::string("ModelName,DS-5352") : plain(k, n); }, "99999"},
        {"an empty third field late", "\r\n",
         [&](int k, int n) { return k == n * 3 / 4 ? std::string("1,2,,4") : plain(k, n); }, "99999"},
        {"blank lines", "\r\n", [&](int k, int n) { return k % 5 == 0 ? std::string() : plain(k, n); }, "99999"},
        {"points end late", "\r\n", plain, "50"},
        {"points end early", "\r\n", plain, "10"},
        {"blanks around", "\r\n", [](int k, int) { return " " + std::to_string(k) + " , 2 , 3 , 4 "; }, "99999"},
        {"long rows first", "\r\n", [&](int k, int n) { return k < n / 3 ? plain(k, n) + ",a,b" : plain(k, n); },
         "99999"},
    };
    const fs::path dir = fs::temp_directory_path() / "mervasto_wavecsv_split";
    fs::create_directories(dir);
    const std::string file = (dir / "w.csv").string();
    for (const auto& shape : shapes) {
        for (int n = 52; n < 64; ++n) {  // moves the middle across a row
            std::string text = std::string("ModelName,DS-5354") + shape.eol + "Delta (second), 1E-06" + shape.eol +
                               "Points ," + shape.points + shape.eol + "Ch1 V,Ch2 V,Ch3 V,Ch4 V" + shape.eol;
            for (int k = 0; k < n; ++k) text += shape.row(k, n) + shape.eol;
            std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
            const Loaded one = load(file, ~uint64_t{0});
            const Loaded two = load(file, 1);
            const std::string at = std::string(shape.name) + ", " + std::to_string(n) + " rows";
            EXPECT_EQ(two.result.outcome, one.result.outcome) << at;
            EXPECT_EQ(two.result.rowsRead, one.result.rowsRead) << at;
            EXPECT_EQ(two.setup.RecordLength, one.setup.RecordLength) << at;
            EXPECT_EQ(two.setup.Model, one.setup.Model) << at;
            for (size_t ch = 0; ch < 4; ++ch) {
                ASSERT_EQ(two.record.wave[ch].empty(), one.record.wave[ch].empty()) << at << ", Ch" << ch + 1;
                if (one.record.wave[ch].empty()) continue;
                const size_t common = std::min(one.record.wave[ch].size(), two.record.wave[ch].size());
                const int32_t filled = one.result.ok() ? one.setup.RecordLength : 0;
                ASSERT_GE(common, static_cast<size_t>(std::max(one.result.rowsRead, filled))) << at;
                EXPECT_EQ(std::memcmp(one.record.wave[ch].data(), two.record.wave[ch].data(), common * sizeof(float)),
                          0)
                    << at << ", Ch" << ch + 1;
            }
        }
    }
    fs::remove_all(dir);
}

}  // namespace
}  // namespace mervasto
