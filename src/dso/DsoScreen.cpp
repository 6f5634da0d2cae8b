#include "dso/DsoScreen.h"

#include <QFile>

#include <vector>

#include "common/RuntimeError.h"

namespace mervasto {

Outcome SaveDsoScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                      int32_t* bytes) {
    if (bytes) *bytes = -1;
    return Guarded([&]() -> Outcome {
        if (!link.DsoLinked) {
            const DsoAddress address = ParseDsoAddress(addressText);
            if (link.LinkToSLA(address.host, address.port) == kLinkError) return {ErrorCode::Link, kDsoNotInterfaced};
        }
        link.SendDsoCommand("DISP ON");
        link.SendDsoCommand("TSCRN? PNG");
        std::vector<uint8_t> image;
        const int32_t n = link.ReadDsoBlock(image, &ui);
        link.SendDsoCommand("GTL");

        // The file is written with a 16-bit record length: a larger image cannot be stored.
        if (n > kMaxScreenBytes)
            throw RuntimeError(ErrorCode::Overflow, "Overflow: the DSO's screen image has " + std::to_string(n) +
                                                        " bytes, more than the " + std::to_string(kMaxScreenBytes) +
                                                        " bytes that can be stored; no file was written.");
        image.push_back(0);

        QFile file(QString::fromStdString(fileName));
        // ReadWrite keeps an older, longer file's tail, as the image files always have.
        if (!file.open(QIODevice::ReadWrite))
            throw RuntimeError(ErrorCode::FileIo, "The screen image file \"" + fileName + "\" could not be opened.");
        const qint64 written =
            file.write(reinterpret_cast<const char*>(image.data()), static_cast<qint64>(image.size()));
        file.close();
        if (written != static_cast<qint64>(image.size()))
            throw RuntimeError(ErrorCode::FileIo, "The screen image file \"" + fileName + "\" could not be written.");
        if (bytes) *bytes = n;
        return Outcome::Ok();
    });
}

}  // namespace mervasto
