#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>

#include <gtest/gtest.h>

#include <ostream>

#include "gui/GuiUi.h"
#include "gui/MainForm.h"
#include "sim/DsoSimulator.h"
#include "support/TestFolder.h"

// "Input from DSO" with each instrument family's simulator: a new family is
// one more value of the parameter. (The application object is MainFormTest's.)
namespace mervasto {
namespace {

struct Family {
    const char* dialect;
    const char* model;
    const char* name;  // in the Instrument drop-down
    bool rejectRange;  // read from the instrument's cursors, else greyed with the reason
    friend void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }
};

class FamilyWindowTest : public ::testing::TestWithParam<Family> {};

TEST_P(FamilyWindowTest, InputFromDsoShowsResults) {
    const Family& f = GetParam();
    SimOptions o;
    o.dialect = f.dialect;
    o.state.recordLength = 2000;
    DsoSimulator sim(o);
    ASSERT_TRUE(sim.start());
    MainForm form((test::FreshTestFolder("mervasto-family-gui-") / "data").string());
    std::vector<std::string> boxes;
    form.ui().answerHook = [&](const std::string& text, MsgButtons, const std::string& title) {
        boxes.push_back(title + ": " + text);
        return MsgAnswer::Ok;
    };
    auto* family = form.findChild<QComboBox*>("Instrument");
    ASSERT_NE(family, nullptr);
    EXPECT_EQ(family->currentText(), "Auto");
    EXPECT_GE(family->findText(f.name), 1);
    form.findChild<QLineEdit*>("IPAdressText")->setText(QString::fromStdString(sim.address()));

    form.findChild<QPushButton*>("WFStartCommand")->click();
    EXPECT_TRUE(boxes.empty()) << boxes.front();
    EXPECT_EQ(form.ui().statusText(1), "Completed data transffering.");
    EXPECT_EQ(form.ui().statusText(4), std::string(f.model) + " at " + sim.address());
    auto* results = form.findChild<QTableView*>("ResultGrid1")->model();
    EXPECT_FALSE(results->data(results->index(2, 7)).toString().isEmpty());
    EXPECT_EQ(form.state().resultLines().written(), 1);
    auto* readRange = form.findChild<QPushButton*>("ReadRejectRange");
    EXPECT_EQ(readRange->isEnabled(), f.rejectRange);
    EXPECT_EQ(readRange->toolTip().contains(f.name), !f.rejectRange) << readRange->toolTip().toStdString();

    // Naming the family keeps the link; naming another drops it, and the
    // next press refuses the instrument's identity in one box.
    family->setCurrentText(f.name);
    EXPECT_EQ(form.state().settings().analysis.Instrument, f.name);
    EXPECT_TRUE(form.state().linked());
    family->setCurrentText(std::string(f.name) == "Rigol" ? "Legacy" : "Rigol");
    EXPECT_FALSE(form.state().linked());
    EXPECT_EQ(form.ui().statusText(4), "");
    form.findChild<QPushButton*>("WFStartCommand")->click();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_NE(boxes[0].find("identification"), std::string::npos) << boxes[0];
}

// The address box's other doors: a VXI-11 address typed in, and a USB
// instrument's node (the simulator's stand-in).
TEST_P(FamilyWindowTest, InputFromDsoOverVxi11AndUsb) {
    const Family& f = GetParam();
    for (const char* transport : {"vxi11", "usbtmc"}) {
        SimOptions o;
        o.dialect = f.dialect;
        o.transport = transport;
        o.state.recordLength = 2000;
        DsoSimulator sim(o);
        ASSERT_TRUE(sim.start());
        MainForm form((test::FreshTestFolder("mervasto-family-gui-") / "data").string());
        std::vector<std::string> boxes;
        form.ui().answerHook = [&](const std::string& text, MsgButtons, const std::string& title) {
            boxes.push_back(title + ": ");
            boxes.back() += text;
            return MsgAnswer::Ok;
        };
        form.findChild<QLineEdit*>("IPAdressText")->setText(QString::fromStdString(sim.address()));
        form.findChild<QPushButton*>("WFStartCommand")->click();
        EXPECT_TRUE(boxes.empty()) << transport << ": " << boxes.front();
        EXPECT_EQ(form.ui().statusText(1), "Completed data transffering.") << transport;
        EXPECT_EQ(form.ui().statusText(4), std::string(f.model) + " at " + sim.address());
        EXPECT_EQ(form.state().resultLines().written(), 1) << transport;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, FamilyWindowTest,
                         ::testing::Values(Family{"legacy", "DS-5354", "Legacy", true},
                                           Family{"rigol", "DS1104Z", "Rigol", true},
                                           Family{"siglent", "SDS1104X-E", "Siglent", false},
                                           Family{"keysight", "DSOX3024T", "Keysight", true},
                                           Family{"tektronix", "MSO44", "Tektronix", false}),
                         [](const ::testing::TestParamInfo<Family>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace mervasto
