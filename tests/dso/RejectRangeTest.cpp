#include <gtest/gtest.h>

#include "common/RuntimeError.h"
#include "dso/RejectRange.h"

namespace mervasto::test {
namespace {

TEST(RejectRangeTest, ZoomWindowAndCursorsToSampleIndices) {
    struct Case {
        const char* name;
        float zoomTimePerDiv, zoomDelay;  // main time base 1e-3 s/div, delay 0
        int32_t n;
        std::array<float, 2> cursors;
        RejectRange expected;
    };
    const std::vector<Case> cases = {
        {"zoom = main", 1e-3f, 0.0f, 10000, {2.5f, 7.5f}, {0, 10000, 2500, 7500}},
        {"default cursors", 1e-3f, 0.0f, 10000, {1.0f, 9.0f}, {0, 10000, 1000, 9000}},
        {"half the time base", 5e-4f, 0.0f, 10000, {0.0f, 10.0f}, {2500, 7500, 2500, 7500}},
        {"zoom one division earlier", 1e-3f, -1e-3f, 10000, {0.0f, 5.0f}, {1000, 11000, 1000, 6000}},
        {"halves to even", 1e-3f, 0.0f, 10, {2.5f, 3.5f}, {0, 10, 2, 4}},
        {"tenfold zoom off centre", 1e-4f, 2e-3f, 100000, {2.0f, 8.0f}, {25000, 35000, 27000, 33000}},
    };
    DsoSetup setup;
    setup.TimePerDiv = 1e-3f;
    setup.TriggerDelay = 0.0f;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const RejectRange r = RejectRangeFromCursors(setup, c.zoomTimePerDiv, c.zoomDelay, c.n, c.cursors);
        EXPECT_EQ(r.ZoomStart, c.expected.ZoomStart);
        EXPECT_EQ(r.ZoomEnd, c.expected.ZoomEnd);
        EXPECT_EQ(r.RejectStart, c.expected.RejectStart);
        EXPECT_EQ(r.RejectEnd, c.expected.RejectEnd);
    }
}

TEST(RejectRangeTest, FaultsOfTheArithmetic) {
    DsoSetup setup;
    setup.TimePerDiv = 0.0f;
    try {
        (void)RejectRangeFromCursors(setup, 1e-3f, 0.0f, 1000, {1.0f, 9.0f});
        ADD_FAILURE() << "no division by zero";
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.code(), ErrorCode::DivisionByZero);
    }
    setup.TimePerDiv = 1e-9f;  // a zoom window a million times wider does not fit 32 bits
    try {
        (void)RejectRangeFromCursors(setup, 1e-3f, 0.0f, 5000000, {1.0f, 9.0f});
        ADD_FAILURE() << "no overflow";
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.code(), ErrorCode::Overflow);
    }
}

}  // namespace
}  // namespace mervasto::test
