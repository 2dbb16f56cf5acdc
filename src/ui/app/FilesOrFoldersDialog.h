#pragma once
// The open panel, which takes files and folders together. QFileDialog accepts files or a
// folder, never both; this one accepts whatever is selected in its list, or the folder it
// shows when nothing is, and a double-click still goes into a folder. It is Qt's own dialog,
// not the desktop's: only its widgets can be told to do this. [main thread]
#include <QFileDialog>
#include <QStringList>

namespace velmora {

class FilesOrFoldersDialog : public QFileDialog {
    Q_OBJECT
public:
    FilesOrFoldersDialog(QWidget* parent, const QString& title, const QString& confirm, const QString& folder);

    // What was accepted, in the order the list shows it.
    const QStringList& chosen() const { return chosen_; }

    void accept() override;

protected:
    void showEvent(QShowEvent* event) override;

private:
    QStringList selectedEntries() const;
    void keepOpenEnabled();

    QString confirm_;
    QStringList chosen_;
    bool hooked_ = false;
};

// Qt's own dialogs carry English words unless Qt's translations are installed: the labels are
// given in French here.
void useFrenchLabels(QFileDialog& dialog);

}  // namespace velmora
