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

bool SaveWindowPicture(const QImage& image, const std::string& fileName) {
    if (image.isNull() || fileName.empty()) return false;
    // Written beside the target and renamed over it, so a failed write keeps
    // the old picture and never leaves half a file.
    QSaveFile file(QString::fromStdString(fileName));
    if (!file.open(QIODevice::WriteOnly)) return false;
    QImageWriter writer(&file, "jpeg");
    writer.setQuality(kPictureQuality);
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
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

}  // namespace mervasto
