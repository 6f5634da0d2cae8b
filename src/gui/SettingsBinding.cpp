#include "gui/SettingsBinding.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>

namespace mervasto {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }
}  // namespace

SettingsBinding::SettingsBinding(Settings& settings, QWidget* root) : QObject(root), settings_(settings) {
    for (QWidget* w : root->findChildren<QWidget*>()) {
        const FieldRef ref = FindControlField(w->objectName().toStdString());
        if (ref) bound_.push_back({ref, w, {}, w->toolTip()});
    }
    for (size_t i = 0; i < bound_.size(); ++i) {
        QWidget* w = bound_[i].control;
        auto changed = [this, i](const std::string& text) { userChanged(bound_[i], text); };
        if (auto* e = qobject_cast<QLineEdit*>(w)) {
            connect(e, &QLineEdit::textChanged, this, [changed](const QString& t) { changed(t.toStdString()); });
        } else if (auto* p = qobject_cast<QPlainTextEdit*>(w)) {
            connect(p, &QPlainTextEdit::textChanged, this, [changed, p] { changed(p->toPlainText().toStdString()); });
        } else if (auto* c = qobject_cast<QCheckBox*>(w)) {
            connect(c, &QCheckBox::toggled, this, [changed](bool on) { changed(on ? "1" : "0"); });
        } else if (auto* b = qobject_cast<QComboBox*>(w)) {
            const bool byIndex = bound_[i].ref.field->kind == FieldKind::Index;
            connect(b, &QComboBox::currentIndexChanged, this, [changed, b, byIndex](int index) {
                if (index >= 0) changed(byIndex ? std::to_string(index) : b->currentText().toStdString());
            });
        }
    }
}

void SettingsBinding::userChanged(Bound& b, const std::string& text) {
    if (showing_) return;
    Outcome set = SetField(settings_, b.ref, text);
    // A refused text is marked until it is corrected (style sheets are
    // touched only on a change: each one costs the widget a new style).
    if (b.control->property("refused").toBool() != !set.ok()) {
        b.control->setProperty("refused", !set.ok());
        b.control->setStyleSheet(set.ok() ? QString() : QStringLiteral("background-color: #ffd0d0;"));
    }
    b.control->setToolTip(set.ok() ? b.help : q(set.text()));
    if (!set) return;
    b.shown = FieldText(settings_, b.ref);
    if (edited) edited(b.ref);
}

void SettingsBinding::show(Bound& b) {
    const std::string text = FieldText(settings_, b.ref);
    showing_ = true;
    QWidget* w = b.control;
    if (auto* e = qobject_cast<QLineEdit*>(w)) {
        if (e->text().toStdString() != text) e->setText(q(text));
    } else if (auto* p = qobject_cast<QPlainTextEdit*>(w)) {
        if (p->toPlainText().toStdString() != text) p->setPlainText(q(text));
    } else if (auto* c = qobject_cast<QCheckBox*>(w)) {
        c->setChecked(text == "1");
    } else if (auto* box = qobject_cast<QComboBox*>(w)) {
        if (b.ref.field->kind == FieldKind::Index)
            box->setCurrentIndex(std::stoi(text));
        else
            box->setCurrentText(q(text));
    }
    showing_ = false;
    if (w->property("refused").toBool()) {
        w->setProperty("refused", false);
        w->setStyleSheet(QString());
        w->setToolTip(b.help);
    }
    b.shown = text;
}

void SettingsBinding::showAll() {
    for (auto& b : bound_) show(b);
}

void SettingsBinding::showChanged() {
    for (auto& b : bound_)
        if (FieldText(settings_, b.ref) != b.shown) show(b);
}

}  // namespace mervasto
