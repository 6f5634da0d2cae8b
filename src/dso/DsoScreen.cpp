#include "dso/DsoScreen.h"

#include <QFile>

#include <vector>

#include "common/RuntimeError.h"
#include "common/TextFile.h"

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

        // The image files have always been written over an older one without
        // cutting it: a longer old file keeps its tail beyond the new image.
        std::string content(image.begin(), image.end());
        if (QFile old(QString::fromStdString(fileName));
            old.size() > static_cast<qint64>(content.size()) && old.open(QIODevice::ReadOnly)) {
            old.seek(static_cast<qint64>(content.size()));
            const QByteArray tail = old.readAll();
            content.append(tail.constData(), static_cast<size_t>(tail.size()));
        }
        if (Outcome written = WriteFileReplacing(fileName, content); !written) return written;
        if (bytes) *bytes = n;
        return Outcome::Ok();
    });
}

}  // namespace mervasto
