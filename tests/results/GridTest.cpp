#include <gtest/gtest.h>

#include <vector>

#include "common/RuntimeError.h"
#include "results/Grid.h"

namespace mervasto {
namespace {

ErrorCode codeOf(const auto& f) {
    try {
        f();
    } catch (const RuntimeError& e) {
        return e.code();
    }
    return ErrorCode::Link;  // nothing thrown
}

TEST(Grid, RowAndColumnWritesCheckTheirBounds) {
    Grid g(4, 3);
    const std::vector<std::string> two = {"a", "b"};
    SetGridRow(g, 1, 0, 1, two);
    SetGridColumn(g, 2, 3, 2, two);
    EXPECT_EQ(GetGridCell(g, 1, 0), "a");
    EXPECT_EQ(GetGridCell(g, 1, 1), "b");
    EXPECT_EQ(GetGridCell(g, 2, 2), "a");
    EXPECT_EQ(GetGridCell(g, 3, 2), "b");

    // A range longer than the text list, and cells outside the grid.
    EXPECT_EQ(codeOf([&] { SetGridRow(g, 0, 0, 2, two); }), ErrorCode::Subscript);
    EXPECT_EQ(codeOf([&] { SetGridColumn(g, 0, 2, 0, two); }), ErrorCode::Subscript);
    EXPECT_EQ(codeOf([&] { SetGridCell(g, 4, 0, "x"); }), ErrorCode::Subscript);
    EXPECT_EQ(codeOf([&] { SetGridCell(g, 0, -1, "x"); }), ErrorCode::Subscript);
    EXPECT_EQ(codeOf([&] { (void)GetGridCell(g, 0, 3); }), ErrorCode::Subscript);
    // The failed writes left the row alone.
    EXPECT_EQ(GetGridCell(g, 0, 0), "");
    EXPECT_EQ(GetGridCell(g, 0, 1), "");
}

TEST(Grid, ResizingKeepsTextsAndColours) {
    Grid g(2, 2);
    SetGridCell(g, 0, 1, "x");
    SetGridCell(g, 1, 0, "y");
    g.setCellColour(1, 1, {1, 2});
    g.setCols(3);
    EXPECT_EQ(g.text(0, 1), "x");
    EXPECT_EQ(g.text(1, 0), "y");
    EXPECT_EQ(g.text(1, 2), "");
    ASSERT_TRUE(g.cellColour(1, 1));
    g.setRows(1);
    EXPECT_FALSE(g.cellColour(1, 1));
    g.setRows(5);
    EXPECT_EQ(g.text(0, 1), "x");
    EXPECT_EQ(g.text(4, 2), "");
}

TEST(Grid, ClipboardTextJoinsWithTabsAndCarriageReturns) {
    Grid g(3, 3);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) g.text(r, c) = std::to_string(r) + std::to_string(c);
    EXPECT_EQ(GridClipboardText(g, 1, 0, 2, 1), "10\t11\r20\t21");
    EXPECT_EQ(GridClipboardText(g, 2, 2, 1, 1), "11\t12\r21\t22");  // corners in any order
    EXPECT_EQ(GridClipboardText(g, 0, 0, 0, 0), "00");

    Grid other(1, 1);
    CopyCell(g, 2, 1, other, 0, 0);
    EXPECT_EQ(other.text(0, 0), "21");
}

}  // namespace
}  // namespace mervasto
