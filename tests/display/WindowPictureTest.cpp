#include <gtest/gtest.h>

#include <QImage>
#include <QImageReader>

#include <filesystem>
#include <string>

#include "display/WindowPicture.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

#ifdef _WIN32
const std::string kSep = "\\";
#else
const std::string kSep = "/";
#endif

TEST(WindowPicture, CaptureFileNames) {
    const struct {
        const char* folder;
        const char* sample;
        int16_t counter;
        const char* suffix;
        std::string name;
    } cases[] = {
        {"data", "S1", 0, kMainPictureSuffix, "data" + kSep + "Outputdata" + kSep + "S1_0_Main.jpg"},
        {"data", "S1", 1, kWavePictureSuffix, "data" + kSep + "Outputdata" + kSep + "S1_1_Wave.jpg"},
        {"data/", "AB12", -3, kMainPictureSuffix, "data/Outputdata" + kSep + "AB12_-3_Main.jpg"},
        {"d", "", 32767, kWavePictureSuffix, "d" + kSep + "Outputdata" + kSep + "_32767_Wave.jpg"},
    };
    for (const auto& c : cases) EXPECT_EQ(CaptureFileName(c.folder, c.sample, c.counter, c.suffix), c.name);
}

class WindowPictureFile : public testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("mervasto_picture_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                                            std::to_string(reinterpret_cast<uintptr_t>(this)));
        fs::create_directories(dir_ / "Outputdata");
    }
    void TearDown() override { fs::remove_all(dir_); }
    fs::path dir_;
};

TEST_F(WindowPictureFile, WritesReadableJpegAndNothingElse) {
    QImage image(120, 80, QImage::Format_RGB32);
    image.fill(QColor(200, 30, 30));
    const std::string name = CaptureFileName(dir_.string(), "S7", 2, kMainPictureSuffix);
    ASSERT_TRUE(SaveWindowPicture(image, name));
    // Overwritten without asking.
    image.fill(QColor(30, 30, 200));
    ASSERT_TRUE(SaveWindowPicture(image, name));

    QImageReader reader(QString::fromStdString(name));
    EXPECT_EQ(reader.format(), "jpeg");
    const QImage back = reader.read();
    ASSERT_FALSE(back.isNull());
    EXPECT_EQ(back.size(), image.size());
    const QColor middle = back.pixelColor(60, 40);
    EXPECT_NEAR(middle.blue(), 200, 12);
    EXPECT_NEAR(middle.red(), 30, 12);

    int files = 0;
    for (const auto& e : fs::directory_iterator(dir_ / "Outputdata")) {
        ++files;
        EXPECT_EQ(e.path().filename(), "S7_2_Main.jpg");
    }
    EXPECT_EQ(files, 1);
}

TEST_F(WindowPictureFile, TransparentPicturesAndFailures) {
    QImage clear(10, 10, QImage::Format_ARGB32);
    clear.fill(Qt::transparent);
    const std::string name = (dir_ / "Outputdata" / "a.jpg").string();
    ASSERT_TRUE(SaveWindowPicture(clear, name));
    EXPECT_GT(QImage(QString::fromStdString(name)).pixelColor(5, 5).lightness(), 240);  // flattened onto white

    EXPECT_FALSE(SaveWindowPicture(QImage(), (dir_ / "Outputdata" / "b.jpg").string()));
    EXPECT_FALSE(SaveWindowPicture(clear, (dir_ / "missing" / "c.jpg").string()));
    EXPECT_FALSE(fs::exists(dir_ / "Outputdata" / "b.jpg"));
}

}  // namespace
}  // namespace mervasto
