#include "display/WindowPicture.h"

#include <QImage>
#include <QImageWriter>
#include <QPainter>
#include <QSaveFile>
#include <QString>

namespace mervasto {

namespace {
#ifdef _WIN32
constexpr char kSeparator = '\\';
#else
constexpr char kSeparator = '/';
#endif
}  // namespace

std::string CaptureFileName(std::string_view dataFolder, std::string_view sampleName, int16_t counter,
                            std::string_view suffix) {
    std::string name(dataFolder);
    if (name.empty() || (name.back() != kSeparator && name.back() != '/')) name += kSeparator;
    name += "Outputdata";
    name += kSeparator;
    name += sampleName;
    name += '_';
    name += std::to_string(counter);
    name += suffix;
    return name;
}

namespace {

Outcome savePicture(const QImage& image, const std::string& fileName, const char* format) {
    auto failed = [&](const QString& reason) {
        return Outcome(ErrorCode::FileIo, fileName + ": " + reason.toStdString());
    };
    if (image.isNull()) return failed(QStringLiteral("there is no picture to write."));
    if (fileName.empty()) return failed(QStringLiteral("no file name."));
    // Written beside the target and renamed over it, so a failed write keeps
    // the old picture and never leaves half a file.
    QSaveFile file(QString::fromStdString(fileName));
    if (!file.open(QIODevice::WriteOnly)) return failed(file.errorString());
    QImageWriter writer(&file, format);
    if (std::string_view(format) == "jpeg") writer.setQuality(kPictureQuality);
    // JPEG has no alpha; flatten onto white rather than let the encoder guess.
    bool written;
    if (image.hasAlphaChannel()) {
        QImage flat(image.size(), QImage::Format_RGB32);
        flat.fill(Qt::white);
        {
            QPainter painter(&flat);
            painter.drawImage(0, 0, image);
        }
        written = writer.write(flat);
    } else {
        written = writer.write(image);
    }
    if (!written) {
        const QString reason = writer.errorString();
        file.cancelWriting();
        return failed(reason);
    }
    if (!file.commit()) return failed(file.errorString());
    return Outcome::Ok();
}

}  // namespace

Outcome SaveWindowPicture(const QImage& image, const std::string& fileName) {
    return savePicture(image, fileName, "jpeg");
}

Outcome SavePlotPicture(const QImage& image, const std::string& fileName) {
    return savePicture(image, fileName, "png");
}

}  // namespace mervasto
