#include "gui/GuardedApplication.h"

#include <QMessageBox>

#include "common/UiPort.h"

namespace mervasto {

namespace {
std::function<void(const Outcome&)>& sink() {
    static std::function<void(const Outcome&)> s;
    return s;
}
}  // namespace

bool GuardedApplication::notify(QObject* receiver, QEvent* event) {
    bool handled = false;
    report(Guarded([&] { handled = QApplication::notify(receiver, event); }));
    return handled;
}

void GuardedApplication::setFailureSink(std::function<void(const Outcome&)> s) { sink() = std::move(s); }

void GuardedApplication::report(const Outcome& outcome) {
    if (outcome.ok() || outcome.code() == ErrorCode::Canceled || outcome.wasReported()) return;
    if (sink()) {
        sink()(outcome);
        return;
    }
    QMessageBox::critical(nullptr, QString::fromUtf8(kRunTimeErrorTitle), QString::fromStdString(outcome.text()));
}

}  // namespace mervasto
