#pragma once

#include <QApplication>

#include <functional>

#include "common/Outcome.h"

namespace mervasto {

// The window program's application object. Every slot, editor commit and
// event handler runs under its notify(), so a fault that a handler did not
// turn into an Outcome itself still ends in the run-time error box instead
// of ending the program and losing the session's settings.
class GuardedApplication : public QApplication {
public:
    using QApplication::QApplication;

    bool notify(QObject* receiver, QEvent* event) override;

    // Where failures that reached the boundary are shown: the main window
    // sets its message box; without one they go to a plain message box.
    static void setFailureSink(std::function<void(const Outcome&)> sink);
    // Shows a failure (nothing for success, a cancel or one already told).
    static void report(const Outcome& outcome);
};

}  // namespace mervasto
