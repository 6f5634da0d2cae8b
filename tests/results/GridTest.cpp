#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "common/RuntimeError.h"
#include "results/Grid.h"

namespace mervasto {
namespace {

TEST(Grid, WritesCheckBoundsAndTextList) {
    Grid g(4, 3);
    const std::vector<std::string> two = {"a", "b"};
    SetGridRow(g, 1, 0, 1, two);
    SetGridColumn(g, 2, 3, 2, two);
    EXPECT_EQ(GetGridCell(g, 1, 0) + GetGridCell(g, 1, 1) + GetGridCell(g, 2, 2) + GetGridCell(g, 3, 2), "abab");

    const std::function<void()> bad[] = {
        [&] { SetGridRow(g, 0, 0, 2, two); },  // one past the text list
        [&] { SetGridColumn(g, 0, 2, 0, two); }, [&] { SetGridCell(g, 4, 0, "x"); },
        [&] { SetGridCell(g, 0, -1, "x"); },     [&] { (void)GetGridCell(g, 0, 3); },
    };
    for (const auto& f : bad) {
        try {
            f();
            ADD_FAILURE() << "no error";
        } catch (const RuntimeError& e) {
            EXPECT_EQ(e.code(), ErrorCode::Subscript);
        }
    }
    EXPECT_EQ(g.text(0, 0) + g.text(0, 1) + g.text(1, 0), "a");  // failed writes wrote nothing
}

TEST(Grid, ResizeKeepsTextsAndClipboardJoinsCells) {
    Grid g(2, 2);
    g.text(0, 1) = "01";
    g.text(1, 0) = "10";
    g.text(1, 1) = "11";
    g.setCellColour(1, 1, {1, 2});
    g.setCols(3);
    g.setRows(3);
    EXPECT_EQ(GridClipboardText(g, 0, 0, 2, 2), "\t01\t\r10\t11\t\r\t\t");
    EXPECT_EQ(GridClipboardText(g, 1, 1, 0, 0), "\t01\r10\t11");  // corners in any order
    EXPECT_TRUE(g.cellColour(1, 1));
    g.setRows(1);
    EXPECT_FALSE(g.cellColour(1, 1));
}

}  // namespace
}  // namespace mervasto
