#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "app/SampleCodeFill.h"
#include "common/RuntimeError.h"
#include "support/JobsFor.h"

namespace mervasto {
namespace {

// A record long enough that Ch3 and Ch4 are converted beside Ch1 and Ch2.
constexpr int32_t kLong = int32_t{1} << 20;

DsoSetup setupOf(int16_t channels) {
    DsoSetup s;
    s.ChannelCount = channels;
    const float vdiv[] = {1.0f, 0.5f, -2.0f, 0.25f};  // Ch3 gives display codes only
    for (int ch = 1; ch <= 4; ++ch) {
        s.trace(ch - 1).VoltsPerDiv = vdiv[ch - 1];
        s.trace(ch - 1).Offset = -0.125f * static_cast<float>(ch);
    }
    return s;
}

WaveRecord recordOf(int32_t n) {
    WaveRecord r;
    r.WaveLength = n;
    r.ensureLength(n);
    for (size_t c = 0; c < 4; ++c)
        for (int32_t k = 0; k < n; ++k)
            r.wave[c][static_cast<size_t>(k)] =
                static_cast<float>((k * 7 + static_cast<int32_t>(c) * 13) % 101) / 16.0f - 3.0f;
    return r;
}

struct Filled {
    WaveRecord record;
    std::optional<std::string> refused;
};

Filled fill(const DsoSetup& setup, WaveRecord record, unsigned jobs) {
    test::JobsFor cap(jobs);
    Filled f{std::move(record), {}};
    try {
        FillSampleCodes(setup, f.record);
    } catch (const RuntimeError& e) {
        f.refused = e.what();
    }
    return f;
}

// The second pair of channels, converted by a job of the work pool, gives
// what one thread gives: the same codes, the same refusal of a code that
// does not fit, and nothing for a channel the record or the setup lacks.
TEST(FillSampleCodes, TwoChannelsBesideTwoGiveWhatOneThreadGives) {
    struct Case {
        const char* name;
        int16_t channels;
        std::function<void(WaveRecord&, DsoSetup&)> change;
        const char* refusal;  // how the refusal starts; nullptr when none
        std::array<bool, 4> coded;
    };
    const Case cases[] = {
        {"four channels", 4, [](WaveRecord&, DsoSetup&) {}, nullptr, {true, true, true, true}},
        {"a code of Ch4 beyond 16 bits",
         4,
         [](WaveRecord& r, DsoSetup&) { r.wave[3][kLong - 1] = 1e6f; },
         "Overflow",
         {true, true, true, true}},
        {"Ch3 and Ch4 not in the record",
         4,
         [](WaveRecord& r, DsoSetup& s) {
             r.wave[2].clear();
             r.wave[3].clear();
             s.trace(2).VoltsPerDiv = s.trace(3).VoltsPerDiv = 0;
         },
         nullptr,
         {true, true, false, false}},
        {"two channels by the setup", 2, [](WaveRecord&, DsoSetup&) {}, nullptr, {true, true, false, false}},
        {"no scale for Ch2",
         4,
         [](WaveRecord&, DsoSetup& s) { s.trace(1).VoltsPerDiv = 0; },
         "Division by zero",
         {false, false, false, false}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DsoSetup setup = setupOf(c.channels);
        WaveRecord record = recordOf(kLong);
        c.change(record, setup);
        const Filled one = fill(setup, record, 1);
        const Filled two = fill(setup, record, 2);
        EXPECT_EQ(two.refused, one.refused);
        EXPECT_EQ(one.refused.value_or("").rfind(c.refusal ? c.refusal : "", 0), 0u) << one.refused.value_or("");
        EXPECT_EQ(one.refused.has_value(), c.refusal != nullptr);
        if (one.refused && !c.coded[0]) continue;
        for (size_t ch = 0; ch < 4; ++ch) {
            EXPECT_EQ(two.record.displayCode[ch], one.record.displayCode[ch]) << "Ch" << ch + 1;
            EXPECT_EQ(two.record.raw[ch], one.record.raw[ch]) << "Ch" << ch + 1;
            EXPECT_EQ(one.record.displayCode[ch].size(), c.coded[ch] ? static_cast<size_t>(kLong) : 0u) << ch;
            EXPECT_EQ(one.record.raw[ch].size(), c.coded[ch] && ch != 2 ? static_cast<size_t>(kLong) : 0u) << ch;
        }
    }
}

}  // namespace
}  // namespace mervasto
