#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "DsoTestSupport.h"
#include "common/RuntimeError.h"
#include "dso/DsoScreen.h"

namespace mervasto::test {
namespace {

using Log = std::vector<std::string>;

QByteArray ReadAll(const std::string& fileName) {
    QFile f(QString::fromStdString(fileName));
    if (!f.open(QIODevice::ReadOnly)) return {};
    return f.readAll();
}

class ScreenTest : public SimTest {
protected:
    void SetUp() override {
        SimTest::SetUp();
        ASSERT_TRUE(dir.isValid());
        file = QDir(dir.path()).filePath("Sample1.png").toStdString();
    }
    // The byte count stored; a failure goes on as the exception it carries.
    int32_t saveScreen() {
        int32_t n = 0;
        const Outcome saved = SaveDsoScreen(link, ui, sim->address(), file, &n);
        if (!saved) throw RuntimeError(saved.code(), saved.text());
        return n;
    }
    QTemporaryDir dir;
    std::string file;
};

TEST_F(ScreenTest, StoresTheImageWithItsLineEndAndAZero) {
    startSim();
    sim->setScreenBytes(1000);
    EXPECT_EQ(saveScreen(), 1000);
    EXPECT_EQ(logOf(3), (Log{"DISP ON", "TSCRN? PNG", "GTL"}));
    const QByteArray bytes = ReadAll(file);
    ASSERT_EQ(bytes.size(), 1002);
    EXPECT_TRUE(bytes.startsWith("\x89PNG"));
    EXPECT_EQ(bytes[1000], '\n');
    EXPECT_EQ(bytes[1001], '\0');
    // Connecting for the image does not mark the link as identified.
    EXPECT_FALSE(link.DsoLinked);
    EXPECT_EQ(link.state(), kLinkConnected);
}

TEST_F(ScreenTest, AnOlderLongerFileKeepsItsTail) {
    startSim();
    sim->setScreenBytes(1000);
    {
        QFile f(QString::fromStdString(file));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(3000, 'x'));
    }
    EXPECT_EQ(saveScreen(), 1000);
    const QByteArray bytes = ReadAll(file);
    ASSERT_EQ(bytes.size(), 3000);
    EXPECT_TRUE(bytes.startsWith("\x89PNG"));
    EXPECT_EQ(bytes[1001], '\0');
    EXPECT_EQ(bytes[1002], 'x');
}

TEST_F(ScreenTest, AFileThatCannotBeWrittenIsNamed) {
    startSim();
    sim->setScreenBytes(1000);
    file = QDir(dir.path()).filePath("missing/Sample1.png").toStdString();
    int32_t n = 0;
    const Outcome saved = SaveDsoScreen(link, ui, sim->address(), file, &n);
    EXPECT_EQ(saved.code(), ErrorCode::FileIo);
    EXPECT_EQ(saved.text(), file + ": No such file or directory.");
    EXPECT_EQ(n, -1);
    EXPECT_EQ(logOf(3), (Log{"DISP ON", "TSCRN? PNG", "GTL"}));
}

TEST_F(ScreenTest, TheNaturalScreenFits) {
    startSim(small("DS-5354", 20000));
    linkUp();
    const int32_t n = saveScreen();
    EXPECT_GT(n, 100);
    EXPECT_LE(n, kMaxScreenBytes);
    EXPECT_EQ(ReadAll(file).size(), n + 2);
    EXPECT_TRUE(link.DsoLinked);
}

TEST_F(ScreenTest, AnImageAboveTheLimitIsAnOverflowAndWritesNothing) {
    startSim();
    linkUp();
    for (int bytes : {32768, 40000}) {
        sim->setScreenBytes(bytes);
        sim->clearLog();
        try {
            saveScreen();
            ADD_FAILURE() << "no overflow for " << bytes;
        } catch (const RuntimeError& e) {
            EXPECT_EQ(e.code(), ErrorCode::Overflow);
            EXPECT_NE(std::string(e.what()).find(std::to_string(bytes)), std::string::npos) << e.what();
        }
        EXPECT_FALSE(QFile::exists(QString::fromStdString(file)));
        EXPECT_EQ(logOf(3), (Log{"DISP ON", "TSCRN? PNG", "GTL"}));
        // The link is still usable.
        EXPECT_TRUE(link.DsoLinked);
        EXPECT_EQ(link.QueryDso("TRMD?", 80), "SINGLE");
    }
    sim->setScreenBytes(kMaxScreenBytes);
    EXPECT_EQ(saveScreen(), kMaxScreenBytes);
}

TEST_F(ScreenTest, LinkDownIsTheInterfaceOutcome) {
    startSim();
    sim->setFault(SimFault::Refuse);
    int32_t n = 0;
    const Outcome saved = SaveDsoScreen(link, ui, sim->address(), file, &n);
    EXPECT_EQ(saved.code(), ErrorCode::Link);
    EXPECT_EQ(saved.text(), "DSO not interfaced normally.");
    EXPECT_EQ(n, -1);
    EXPECT_TRUE(ui.boxes.empty());  // the window shows it
    const auto box = LinkBoxOf(saved);
    ASSERT_TRUE(box.has_value());
    EXPECT_EQ(box->buttons, MsgButtons::OkCancel);
    EXPECT_STREQ(box->title, "Confirmation");
    EXPECT_FALSE(QFile::exists(QString::fromStdString(file)));
}

}  // namespace
}  // namespace mervasto::test
