#include <gtest/gtest.h>

#include <QImage>
#include <QImageReader>

#include <unistd.h>

#include <filesystem>
#include <string>

#include "display/WindowPicture.h"

namespace mervasto {
namespace {

namespace fs = std::filesystem;

TEST(WindowPicture, CaptureFileNames) {
    const std::string sep(1, fs::path::preferred_separator);
    EXPECT_EQ(CaptureFileName("data", "S1", 0, kMainPictureSuffix),
              "data" + sep + "Outputdata" + sep + "S1_0_Main.jpg");
    EXPECT_EQ(CaptureFileName("data/", "AB12", 1, kWavePictureSuffix), "data/Outputdata" + sep + "AB12_1_Wave.jpg");
    EXPECT_EQ(CaptureFileName("d", "", -3, kWavePictureSuffix), "d" + sep + "Outputdata" + sep + "_-3_Wave.jpg");
}

TEST(WindowPicture, WritesReadableJpegOverTheOldOneAndNothingElse) {
    const fs::path dir = fs::temp_directory_path() / ("mervasto_picture_" + std::to_string(::getpid()));
    fs::create_directories(dir / "Outputdata");
    QImage image(120, 80, QImage::Format_RGB32);
    image.fill(QColor(200, 30, 30));
    const std::string name = CaptureFileName(dir.string(), "S7", 2, kMainPictureSuffix);
    ASSERT_TRUE(SaveWindowPicture(image, name));
    image.fill(QColor(30, 30, 200));
    ASSERT_TRUE(SaveWindowPicture(image, name));  // overwritten without asking

    QImageReader reader(QString::fromStdString(name));
    EXPECT_EQ(reader.format(), "jpeg");
    const QImage back = reader.read();
    ASSERT_EQ(back.size(), image.size());
    EXPECT_NEAR(back.pixelColor(60, 40).blue(), 200, 12);
    EXPECT_NEAR(back.pixelColor(60, 40).red(), 30, 12);

    QImage clear(10, 10, QImage::Format_ARGB32);
    clear.fill(Qt::transparent);
    const std::string flat = (dir / "Outputdata" / "a.jpg").string();
    ASSERT_TRUE(SaveWindowPicture(clear, flat));
    EXPECT_GT(QImage(QString::fromStdString(flat)).pixelColor(5, 5).lightness(), 240);  // onto white

    EXPECT_FALSE(SaveWindowPicture(QImage(), (dir / "Outputdata" / "b.jpg").string()));
    EXPECT_FALSE(SaveWindowPicture(clear, (dir / "missing" / "c.jpg").string()));
    int files = 0;
    for (const auto& e : fs::directory_iterator(dir / "Outputdata")) files += e.is_regular_file();
    EXPECT_EQ(files, 2);  // no temporary files, nothing from the failures
    fs::remove_all(dir);
}

}  // namespace
}  // namespace mervasto
