#include "gui/DemoSeries.h"

#include <QApplication>
#include <QCheckBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

#include <memory>

#include "gui/GuiUi.h"
#include "gui/MainForm.h"
#include "results/Grid.h"
#include "results/ResultGrids.h"

namespace mervasto {

namespace {
constexpr const char* kDemoSampleName = "DemoLot";

// Keys as a person types them: press and release, one character at a time.
void typeInto(QWidget* w, const QString& text, bool enter) {
    w->setFocus();
    auto key = [w](int code, const QString& t, Qt::KeyboardModifiers mods = Qt::NoModifier) {
        QKeyEvent press(QEvent::KeyPress, code, mods, t);
        QKeyEvent release(QEvent::KeyRelease, code, mods, t);
        QApplication::sendEvent(w, &press);
        QApplication::sendEvent(w, &release);
    };
    key(Qt::Key_A, {}, Qt::ControlModifier);  // select what is there
    for (QChar c : text) key(c.toUpper().unicode(), QString(c));
    if (enter) key(Qt::Key_Return, QStringLiteral("\r"));
}

struct Demo {
    std::string boxes;
    int passes = 0;
    Subscription onPass;
    Subscription onEnd;
};
}  // namespace

void StartDemoSeries(MainForm& form, const std::function<void(const std::string&)>& done) {
    auto demo = std::make_shared<Demo>();
    form.ui().answerHook = [demo](const std::string& text, MsgButtons, const std::string& title) {
        demo->boxes += "box: " + title + ": " + text + "\n";
        return MsgAnswer::Ok;
    };
    auto& a = form.state().settings().analysis;
    a.RepeatCheck = a.DaqCheck = true;
    a.TotalRepeats = "20";
    form.showSettings();
    demo->onPass = form.state().passFinished.subscribe([demo, &form] {
        ++demo->passes;
        if (demo->passes == 5) typeInto(form.findChild<QLineEdit*>("SampleNo"), kDemoSampleName, true);
        if (demo->passes == 8) form.findChild<QCheckBox*>("DispOffCheck1")->click();
        if (demo->passes == 12) form.findChild<QPushButton*>("Stop")->click();
    });
    demo->onEnd = form.state().runEnded.subscribe([demo, &form, done](const Outcome& end) {
        std::string report = demo->boxes;
        if (!end) report += "run ended early: " + end.text() + "\n";
        report += "passes: " + std::to_string(demo->passes) + "\n";
        const Grid& log = form.state().logGrid();
        report += "log grid:\n" + GridClipboardText(log, kLogHeaderRows, 0, log.nextRow - 1, log.cols() - 1);
        QTimer::singleShot(0, &form, [demo, done, report] {
            demo->onPass.reset();
            demo->onEnd.reset();
            done(report);
        });
    });
    QTimer::singleShot(0, &form, [&form] { form.findChild<QPushButton*>("WFStartCommand")->click(); });
}

}  // namespace mervasto
