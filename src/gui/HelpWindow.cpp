#include "gui/HelpWindow.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>
#include <QSplitter>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>

#include "app/core/Version.h"
#include "common/PackageVersion.h"

namespace mervasto {

namespace {

constexpr const char* kGuidePage = "user-guide.md";

// A page's title: its first heading, else its file name.
QString pageTitle(const QString& path) {
    QFile f(path);
    if (f.open(QIODevice::ReadOnly | QIODevice::Text)) {
        const QString first = QString::fromUtf8(f.readLine()).trimmed();
        if (first.startsWith("# ")) return first.mid(2);
    }
    return QFileInfo(path).fileName();
}

}  // namespace

QStringList HelpFolderCandidates(const QString& programDir) {
    QStringList folders{QDir(programDir).filePath("docs")};
#ifdef MERVASTO_DOCS_FROM_PROGRAM
    folders << QDir::cleanPath(QDir(programDir).filePath(MERVASTO_DOCS_FROM_PROGRAM));
#endif
#ifdef MERVASTO_SOURCE_DOCS
    folders << QStringLiteral(MERVASTO_SOURCE_DOCS);
#endif
    return folders;
}

QString FindHelpFolder(const QStringList& candidates) {
    for (const QString& folder : candidates)
        if (QFileInfo::exists(QDir(folder).filePath(kGuidePage))) return folder;
    return {};
}

QString AboutText() {
    return QStringLiteral(
               "Mervasto %1\nPeriods/Encoder Pulses Analyzing\n\nPackage version %2\nLicence: MIT\n"
               "Qt %3 (built with %4)")
        .arg(QString::fromStdString(CaptionSuffix()),
             QString::fromUtf8(kPackageVersion.data(), static_cast<int>(kPackageVersion.size())), qVersion(),
             QStringLiteral(QT_VERSION_STR));
}

HelpWindow::HelpWindow(const QStringList& candidates, QWidget* parent)
    : QWidget(parent, Qt::Window), folder_(FindHelpFolder(candidates)) {
    setObjectName("HelpWindow");
    setWindowTitle("Mervasto User Guide");
    auto* layout = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    auto* back = new QPushButton("Back", this);
    back->setObjectName("HelpBack");
    auto* forward = new QPushButton("Forward", this);
    forward->setObjectName("HelpForward");
    bar->addWidget(back);
    bar->addWidget(forward);
    bar->addStretch(1);
    layout->addLayout(bar);
    auto* split = new QSplitter(this);
    pages_ = new QListWidget(split);
    pages_->setObjectName("HelpPages");
    text_ = new QTextBrowser(split);
    text_->setObjectName("HelpText");
    text_->setOpenExternalLinks(true);
    split->setStretchFactor(1, 1);
    split->setSizes({200, 700});
    layout->addWidget(split, 1);
    back->setEnabled(false);
    forward->setEnabled(false);
    connect(back, &QPushButton::clicked, text_, &QTextBrowser::backward);
    connect(forward, &QPushButton::clicked, text_, &QTextBrowser::forward);
    connect(text_, &QTextBrowser::backwardAvailable, back, &QWidget::setEnabled);
    connect(text_, &QTextBrowser::forwardAvailable, forward, &QWidget::setEnabled);
    resize(900, 680);

    if (folder_.isEmpty()) {
        text_->setPlainText("The user guide was not found. It is looked for in:\n\n" + candidates.join('\n'));
        return;
    }
    QDir dir(folder_);
    QStringList files = dir.entryList({"*.md"}, QDir::Files, QDir::Name);
    files.removeAll(kGuidePage);
    files.prepend(kGuidePage);
    for (const QString& f : files) {
        auto* item = new QListWidgetItem(pageTitle(dir.filePath(f)), pages_);
        item->setData(Qt::UserRole, QUrl::fromLocalFile(dir.filePath(f)));
    }
    connect(pages_, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item) text_->setSource(item->data(Qt::UserRole).toUrl(), QTextDocument::MarkdownResource);
    });
    // A link to another page marks that page in the list.
    connect(text_, &QTextBrowser::sourceChanged, this, [this](const QUrl& url) {
        for (int i = 0; i < pages_->count(); ++i)
            if (pages_->item(i)->data(Qt::UserRole).toUrl() == url) {
                const QSignalBlocker block(pages_);
                pages_->setCurrentRow(i);
            }
    });
    pages_->setCurrentRow(0);
}

}  // namespace mervasto
