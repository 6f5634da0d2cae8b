#pragma once

#include <QObject>

#include <functional>
#include <map>
#include <optional>
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
// A text a field refuses stays in its box, marked red with the reason and
// the range in its tool tip, until corrected; the field keeps its last good
// value meanwhile. A value the program wrote that the box would refuse (an
// index advanced past its range) is marked the same way.
class SettingsBinding : public QObject {
    Q_OBJECT
public:
    SettingsBinding(Settings& settings, QWidget* root);

    // Every control from its field (start-up, settings loaded).
    void showAll();
    // Only the controls whose fields changed behind them.
    void showChanged();
    // One control from its field, whatever it holds.
    void show(const QWidget* control);

    // The first marked box, named as the window labels it ("Level", "Ch2 V
    // Rate"), with why: what a command that must not start says.
    std::optional<std::string> firstRefusal() const;

    // After a user's change was written to its field.
    std::function<void(const FieldRef&)> edited;

private:
    struct Bound {
        FieldRef ref;
        QWidget* control;
        std::string shown;    // the field's text when the control last matched it
        QString help;         // the control's own tool tip, with the range it takes
        std::string caption;  // the label beside it
        std::string refusal;  // why the text is refused; empty when it is taken
    };
    void show(Bound& b);
    void userChanged(Bound& b, const std::string& text);
    void mark(Bound& b, const Outcome& taken);

    Settings& settings_;
    std::vector<Bound> bound_;
    bool showing_ = false;
};

}  // namespace mervasto
