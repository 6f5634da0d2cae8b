#include "gui/FileDrop.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMetaObject>
#include <QMimeData>
#include <QUrl>
#include <QWidget>

#include "app/RunState.h"
#include "wavefile/GenericCsv.h"

namespace mervasto {

namespace {

// The local files among the dragged data, in their order.
std::vector<std::string> droppedFiles(const QMimeData* data) {
    std::vector<std::string> files;
    if (!data || !data->hasUrls()) return files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile()) files.push_back(url.toLocalFile().toStdString());
    return files;
}

}  // namespace

Outcome InputDroppedFiles(RunState& state, UiPort& window, const std::vector<std::string>& files) {
    if (files.size() == 1) {
        DroppedFileUi dropped(window, files.front());
        return state.InputFromFile_Click(dropped);
    }
    // The run state reads "a file": during this input, that file is the
    // record the dropped files make together.
    DroppedFileUi dropped(window, CombinedName(files));
    state.setFileLoader([&](const std::string&, DsoSetup& setup, WaveRecord& record) {
        return LoadCombinedWaveCsv(files, setup, record, state.importOptions());
    });
    Outcome input = state.InputFromFile_Click(dropped);
    state.setFileLoader({});
    return input;
}

FileDropFilter::FileDropFilter(QWidget* window, std::function<bool()> accepting, Open open)
    : QObject(window), accepting_(std::move(accepting)), open_(std::move(open)) {
    window->setAcceptDrops(true);
    window->installEventFilter(this);
}

bool FileDropFilter::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        auto* drag = static_cast<QDragMoveEvent*>(event);
        if (accepting_() && !droppedFiles(drag->mimeData()).empty())
            drag->acceptProposedAction();
        else
            drag->ignore();
        return true;
    }
    case QEvent::Drop: {
        auto* drop = static_cast<QDropEvent*>(event);
        std::vector<std::string> files = droppedFiles(drop->mimeData());
        if (!accepting_() || files.empty()) {
            drop->ignore();
            return true;
        }
        drop->acceptProposedAction();
        QMetaObject::invokeMethod(
            this, [this, files = std::move(files)] { open_(files); }, Qt::QueuedConnection);
        return true;
    }
    default: return QObject::eventFilter(watched, event);
    }
}

}  // namespace mervasto
