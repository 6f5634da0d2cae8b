#pragma once

#include <QObject>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/core/SettingsTable.h"

class QWidget;

namespace mervasto {

// Binds every control of a window whose object name is a field of the
// settings table to that field, so that each value flows one way at a time:
// a user's change writes its field at once (the run reads it at its next
// use), and a field the program changed itself (the sample index a run
// advances, a clamped value) is shown by its control on showChanged().
// A text a Number field refuses stays in its box, marked, until corrected;
// the field keeps its last good value.
class SettingsBinding : public QObject {
    Q_OBJECT
public:
    SettingsBinding(Settings& settings, QWidget* root);

    // Every control from its field (start-up, settings loaded).
    void showAll();
    // Only the controls whose fields changed behind them.
    void showChanged();

    // After a user's change was written to its field.
    std::function<void(const FieldRef&)> edited;

private:
    struct Bound {
        FieldRef ref;
        QWidget* control;
        std::string shown;  // the field's text when the control last matched it
        QString help;       // the control's own tool tip
    };
    void show(Bound& b);
    void userChanged(Bound& b, const std::string& text);

    Settings& settings_;
    std::vector<Bound> bound_;
    bool showing_ = false;
};

}  // namespace mervasto
