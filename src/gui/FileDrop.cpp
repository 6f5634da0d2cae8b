#include "gui/FileDrop.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMetaObject>
#include <QMimeData>
#include <QUrl>
#include <QWidget>

namespace mervasto {

namespace {

// The first local file among the dragged data; empty when there is none.
QString droppedFile(const QMimeData* data) {
    if (!data || !data->hasUrls()) return {};
    for (const QUrl& url : data->urls())
        if (url.isLocalFile()) return url.toLocalFile();
    return {};
}

}  // namespace

FileDropFilter::FileDropFilter(QWidget* window, std::function<bool()> accepting,
                               std::function<void(const std::string&)> open)
    : QObject(window), accepting_(std::move(accepting)), open_(std::move(open)) {
    window->setAcceptDrops(true);
    window->installEventFilter(this);
}

bool FileDropFilter::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        auto* drag = static_cast<QDragMoveEvent*>(event);
        if (accepting_() && !droppedFile(drag->mimeData()).isEmpty())
            drag->acceptProposedAction();
        else
            drag->ignore();
        return true;
    }
    case QEvent::Drop: {
        auto* drop = static_cast<QDropEvent*>(event);
        const QString file = droppedFile(drop->mimeData());
        if (!accepting_() || file.isEmpty()) {
            drop->ignore();
            return true;
        }
        drop->acceptProposedAction();
        QMetaObject::invokeMethod(
            this, [this, path = file.toStdString()] { open_(path); }, Qt::QueuedConnection);
        return true;
    }
    default: return QObject::eventFilter(watched, event);
    }
}

}  // namespace mervasto
