#include "display/WindowPicture.h"

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageWriter>
#include <QPainter>
#include <QString>

#include "common/TextFile.h"

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
    // Encoded whole in memory, then written by the checked writer: a short
    // write (a full disk, a file size limit) is seen, the old picture stays
    // and no half file is left.
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    if (std::string_view(format) == "jpeg") writer.setQuality(kPictureQuality);
    // JPEG has no alpha; flatten onto white rather than let the encoder guess.
    bool encoded;
    if (image.hasAlphaChannel()) {
        QImage flat(image.size(), QImage::Format_RGB32);
        flat.fill(Qt::white);
        {
            QPainter painter(&flat);
            painter.drawImage(0, 0, image);
        }
        encoded = writer.write(flat);
    } else {
        encoded = writer.write(image);
    }
    if (!encoded) return failed(writer.errorString());
    return WriteFileReplacing(fileName, std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())));
}

}  // namespace

Outcome SaveWindowPicture(const QImage& image, const std::string& fileName) {
    return savePicture(image, fileName, "jpeg");
}

Outcome SavePlotPicture(const QImage& image, const std::string& fileName) {
    return savePicture(image, fileName, "png");
}

}  // namespace mervasto
