#include "gui/GuiUi.h"

#include <QApplication>
#include <QClipboard>
#include <QColorDialog>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>

#include "display/WavePainter.h"

namespace mervasto {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }

// "*.txt;*.csv" -> "Files (*.txt *.csv)"
QString dialogFilter(const std::string& filter) {
    QString f = q(filter);
    f.replace(';', ' ');
    return QStringLiteral("Files (%1);;All files (*)").arg(f);
}
}  // namespace

GuiUi::GuiUi(QWidget* parent, QStatusBar* statusBar) : parent_(parent) {
    for (int i = 1; i <= 4; ++i) {
        panel_[i] = new QLabel(statusBar);
        panel_[i]->setObjectName(QStringLiteral("StatusPanel%1").arg(i));
        panel_[i]->setMinimumWidth(i == 1 ? 300 : 80);
        statusBar->addWidget(panel_[i], i == 1 ? 1 : 0);
        if (i == 3) {
            series_ = new QProgressBar(statusBar);
            series_->setObjectName(QStringLiteral("SeriesProgress"));
            series_->setMaximumWidth(120);
            series_->hide();
            statusBar->addWidget(series_);
        }
    }
    progress_ = new QProgressBar(statusBar);
    progress_->setObjectName(QStringLiteral("TransferProgress"));
    progress_->setMaximumWidth(160);
    progress_->hide();
    statusBar->addPermanentWidget(progress_);
}

void GuiUi::setStatus(int panel, const std::string& text) {
    if (panel < 1 || panel > 4) return;
    panel_[panel]->setText(q(text));
    // A long message is cut off by a narrow window; the tip keeps it whole.
    panel_[panel]->setToolTip(q(text));
    panel_[panel]->repaint();
}

std::string GuiUi::statusText(int panel) const {
    return panel >= 1 && panel <= 4 ? panel_[panel]->text().toStdString() : std::string();
}

MsgAnswer GuiUi::messageBox(const std::string& text, MsgButtons buttons, const std::string& title) {
    if (unattended) {
        std::string line = title + ": " + text;
        for (size_t cut; (cut = line.find("\r\n")) != std::string::npos;) line.replace(cut, 2, "\n");
        unattended(line);
        return DefaultAnswer(buttons);
    }
    if (answerHook) return answerHook(text, buttons, title);
    QMessageBox box(parent_);
    box.setWindowTitle(q(title));
    box.setText(q(text));
    std::vector<std::pair<QAbstractButton*, MsgAnswer>> map;
    auto add = [&](QMessageBox::StandardButton b, MsgAnswer a) { map.emplace_back(box.addButton(b), a); };
    auto addText = [&](const char* label, QMessageBox::ButtonRole role, MsgAnswer a) {
        map.emplace_back(box.addButton(QString::fromUtf8(label), role), a);
    };
    switch (buttons) {
    case MsgButtons::Ok: add(QMessageBox::Ok, MsgAnswer::Ok); break;
    case MsgButtons::OkCancel:
        add(QMessageBox::Ok, MsgAnswer::Ok);
        add(QMessageBox::Cancel, MsgAnswer::Cancel);
        break;
    case MsgButtons::AbortRetryIgnore:
        add(QMessageBox::Abort, MsgAnswer::Abort);
        add(QMessageBox::Retry, MsgAnswer::Retry);
        add(QMessageBox::Ignore, MsgAnswer::Ignore);
        break;
    case MsgButtons::YesNoCancel:
        add(QMessageBox::Yes, MsgAnswer::Yes);
        add(QMessageBox::No, MsgAnswer::No);
        add(QMessageBox::Cancel, MsgAnswer::Cancel);
        break;
    case MsgButtons::YesNo:
        add(QMessageBox::Yes, MsgAnswer::Yes);
        add(QMessageBox::No, MsgAnswer::No);
        break;
    case MsgButtons::RetryCancel:
        add(QMessageBox::Retry, MsgAnswer::Retry);
        add(QMessageBox::Cancel, MsgAnswer::Cancel);
        break;
    case MsgButtons::CancelTryContinue:
        addText("Cancel", QMessageBox::RejectRole, MsgAnswer::Cancel);
        addText("Try Again", QMessageBox::AcceptRole, MsgAnswer::TryAgain);
        addText("Continue", QMessageBox::AcceptRole, MsgAnswer::Continue);
        break;
    }
    box.exec();
    for (auto& [b, a] : map)
        if (box.clickedButton() == b) return a;
    return buttons == MsgButtons::Ok ? MsgAnswer::Ok : MsgAnswer::Cancel;
}

std::optional<std::string> GuiUi::chooseOpenFile(const std::string& title, const std::string& initialName,
                                                 const std::string& initialFolder, const std::string& filter) {
    if (unattended) return std::nullopt;
    if (fileHook) return fileHook(title, initialName, initialFolder);
    QString start = q(initialFolder);
    if (!initialName.empty()) start += QStringLiteral("/") + q(initialName);
    QString f = QFileDialog::getOpenFileName(parent_, q(title), start, dialogFilter(filter));
    if (f.isEmpty()) return std::nullopt;
    return f.toStdString();
}

std::optional<std::string> GuiUi::chooseSaveFile(const std::string& title, const std::string& initialName,
                                                 const std::string& initialFolder, const std::string& filter) {
    if (unattended) return std::nullopt;
    if (fileHook) return fileHook(title, initialName, initialFolder);
    QString start = q(initialFolder);
    if (!initialName.empty()) start += QStringLiteral("/") + q(initialName);
    QString f = QFileDialog::getSaveFileName(parent_, q(title), start, dialogFilter(filter));
    if (f.isEmpty()) return std::nullopt;
    return f.toStdString();
}

std::optional<uint32_t> GuiUi::chooseColor(uint32_t initial) {
    if (unattended) return std::nullopt;
    if (colorHook) return colorHook(initial);
    QColor c = QColorDialog::getColor(ColorFromBgr(initial), parent_);
    if (!c.isValid()) return std::nullopt;
    return BgrFromColor(c);
}

void GuiUi::progress(int64_t done, int64_t total) {
    if (total <= 0 || done >= total) {
        progress_->hide();
        return;
    }
    progress_->setRange(0, 1000);
    progress_->setValue(static_cast<int>(done * 1000 / total));
    progress_->show();
}

void GuiUi::seriesProgress(int64_t done, int64_t total) {
    if (total <= 0) {
        series_->hide();
        return;
    }
    series_->setRange(0, 1000);
    series_->setValue(static_cast<int>(std::min(done, total) * 1000 / total));
    series_->show();
}

void GuiUi::setClipboardText(const std::string& text) { QApplication::clipboard()->setText(q(text)); }

}  // namespace mervasto
