#include "gui/SettingsBinding.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>

namespace mervasto {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }
}  // namespace

SettingsBinding::SettingsBinding(Settings& settings, QWidget* root) : QObject(root), settings_(settings) {
    std::map<const QWidget*, std::string> captions;
    for (const QLabel* l : root->findChildren<QLabel*>())
        if (l->buddy()) captions[l->buddy()] = l->text().remove('&').toStdString();
    for (QWidget* w : root->findChildren<QWidget*>()) {
        const FieldRef ref = FindControlField(w->objectName().toStdString());
        if (!ref) continue;
        QString help = w->toolTip();
        if (std::string range = RangeText(*ref.field); !range.empty())
            help += (help.isEmpty() ? "" : "\n") + q("Takes " + range.append("."));
        std::string caption = captions.count(w) ? captions[w] : std::string(ref.field->name);
        if (ref.field->perChannel) caption.insert(0, "Ch" + std::to_string(ref.ch + 1) + " ");
        w->setToolTip(help);
        bound_.push_back({ref, w, {}, help, caption, {}});
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

void SettingsBinding::mark(Bound& b, const Outcome& taken) {
    b.refusal = taken.ok() ? std::string() : taken.text();
    // Style sheets are touched only on a change: each one costs the widget a
    // new style.
    if (b.control->property("refused").toBool() != !taken.ok()) {
        b.control->setProperty("refused", !taken.ok());
        b.control->setStyleSheet(taken.ok() ? QString() : QStringLiteral("background-color: #ffd0d0;"));
    }
    b.control->setToolTip(taken.ok() ? b.help : q(taken.text()));
}

void SettingsBinding::userChanged(Bound& b, const std::string& text) {
    if (showing_) return;
    Outcome set = SetField(settings_, b.ref, text);
    mark(b, set);
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
    mark(b, CheckField(b.ref, text));
    b.shown = text;
}

void SettingsBinding::show(const QWidget* control) {
    for (auto& b : bound_)
        if (b.control == control) show(b);
}

void SettingsBinding::showAll() {
    for (auto& b : bound_) show(b);
}

void SettingsBinding::showChanged() {
    for (auto& b : bound_)
        if (FieldText(settings_, b.ref) != b.shown) show(b);
}

std::optional<std::string> SettingsBinding::firstRefusal() const {
    for (const auto& b : bound_)
        if (!b.refusal.empty()) return "the \"" + b.caption + "\" box: " + b.refusal;
    return std::nullopt;
}

}  // namespace mervasto
