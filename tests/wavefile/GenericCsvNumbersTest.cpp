#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "wavefile/GenericCsv.h"

namespace mervasto {
namespace {

// Sample texts of every length an export prints, read by the generic reader,
// against the correctly rounded float of std::from_chars: the 8- and 9-digit
// texts most exports write, and texts on and beside the points halfway
// between two floats, where a double rounded again to float can go wrong.
TEST(GenericCsvNumbers, SamplesReadAsTheNearestFloat) {
    std::vector<std::string> texts;
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> volts(-12.0f, 12.0f);
    char buf[64];
    for (int i = 0; i < 3000; ++i) {
        const float f = volts(rng);
        for (int digits : {6, 8, 9, 12}) {
            std::snprintf(buf, sizeof buf, "%.*g", digits, static_cast<double>(f));
            texts.emplace_back(buf);
        }
        // Halfway to the next float, exactly and a hair either side.
        const double mid = (static_cast<double>(f) + static_cast<double>(std::nextafter(f, 100.0f))) / 2;
        for (double m : {mid, std::nextafter(mid, 0.0), std::nextafter(mid, 100.0)}) {
            for (int digits : {16, 17}) {
                std::snprintf(buf, sizeof buf, "%.*g", digits, m);
                texts.emplace_back(buf);
            }
        }
    }
    // Leading zeros, plain decimals at the edges of the eight-character
    // steps (8, 16 and 17 places), digits beyond what a mantissa takes.
    for (const char* t : {"0.000012345678", "000123.5", "0.1234567812345678", "0.12345678123456789", "1.2345678e3",
                          "0.00000000", "1.00000000", "9.9999999999999999", "0.0000000000000001",
                          "-0.00000000000000000000123456", "12345678901234567890123", "0.1234567890123456789",
                          "1234567.25", "00000000", "-0", "7", "1e-7", "12345678e-9"})
        texts.emplace_back(t);
    // Each text twice: inside the row, where the reader has the following
    // characters to read ahead into, and as the row's last field.
    std::string file = "Time(s),CH1(V),CH2(V)\r\n";
    for (size_t k = 0; k < texts.size(); ++k) file += std::to_string(k) + "e-6," + texts[k] + "," + texts[k] + "\r\n";

    DsoSetup setup;
    WaveRecord record;
    const WaveCsvLoadResult r = LoadGenericCsvBytes(file, "numbers.csv", setup, record);
    ASSERT_EQ(r.status, 0) << r.errorText;
    ASSERT_EQ(static_cast<size_t>(r.rowsRead), texts.size());
    for (size_t k = 0; k < texts.size(); ++k) {
        float want = 0;
        const auto& t = texts[k];
        ASSERT_EQ(std::from_chars(t.data(), t.data() + t.size(), want).ec, std::errc()) << t;
        ASSERT_EQ(record.wave[0][k], want) << t;
        ASSERT_EQ(record.wave[1][k], want) << t;
    }
}

}  // namespace
}  // namespace mervasto
