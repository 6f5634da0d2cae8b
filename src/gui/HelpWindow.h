#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>

class QListWidget;
class QTextBrowser;

namespace mervasto {

// Where the user guide may be, in the order looked at: a "docs" folder
// beside the program (the Windows installation), the installed
// documentation of the package, the source tree of a build.
QStringList HelpFolderCandidates(const QString& programDir);
// The first of them that holds the user guide, or an empty text.
QString FindHelpFolder(const QStringList& candidates);

// The program, its version and the package's, the licence and Qt.
QString AboutText();

// The documents shipped with the program, read offline: the user guide
// first, then the other pages, each opened from the list or a link.
class HelpWindow : public QWidget {
    Q_OBJECT
public:
    explicit HelpWindow(const QStringList& candidates, QWidget* parent = nullptr);
    // The folder the pages came from; empty when none was found.
    const QString& folder() const { return folder_; }

private:
    QString folder_;
    QListWidget* pages_;
    QTextBrowser* text_;
};

}  // namespace mervasto
