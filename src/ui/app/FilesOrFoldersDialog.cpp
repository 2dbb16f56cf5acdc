#include "ui/app/FilesOrFoldersDialog.h"

#include <QDialogButtonBox>
#include <QFileSystemModel>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <algorithm>

#include "model/Model.h"

namespace velmora {

namespace {

// The names Qt gives the parts of its dialog: stable since Qt 4, and the only handle on them.
constexpr const char* listName = "listView";
constexpr const char* fileNameEditName = "fileNameEdit";
constexpr const char* buttonBoxName = "buttonBox";

}  // namespace

void useFrenchLabels(QFileDialog& dialog) {
    dialog.setLabelText(QFileDialog::LookIn, QStringLiteral("Dossier :"));
    dialog.setLabelText(QFileDialog::FileName, QStringLiteral("Nom :"));
    dialog.setLabelText(QFileDialog::FileType, QStringLiteral("Type :"));
    dialog.setLabelText(QFileDialog::Reject, QStringLiteral("Annuler"));
}

FilesOrFoldersDialog::FilesOrFoldersDialog(QWidget* parent, const QString& title, const QString& confirm,
                                           const QString& folder)
    : QFileDialog(parent, title, folder), confirm_(confirm) {
    setOption(QFileDialog::DontUseNativeDialog);
    setFileMode(QFileDialog::ExistingFiles);
    setAcceptMode(QFileDialog::AcceptOpen);
    useFrenchLabels(*this);
    setLabelText(QFileDialog::Accept, confirm);
    QStringList patterns;
    for (const QString& extension : Model::acceptedExtensions()) patterns << QStringLiteral("*.") + extension;
    setNameFilters({QStringLiteral("Audio et vidéo (%1)").arg(patterns.join(u' ')), QStringLiteral("Tous les fichiers (*)")});
}

void FilesOrFoldersDialog::showEvent(QShowEvent* event) {
    QFileDialog::showEvent(event);
    if (hooked_) return;
    hooked_ = true;
    // Qt turns the button off whenever the selection holds no file (a folder alone), and
    // renames it; these connections come after its own and undo both.
    if (const auto* list = findChild<QListView*>(listName))
        connect(list->selectionModel(), &QItemSelectionModel::selectionChanged, this, &FilesOrFoldersDialog::keepOpenEnabled);
    if (const auto* edit = findChild<QLineEdit*>(fileNameEditName))
        connect(edit, &QLineEdit::textChanged, this, &FilesOrFoldersDialog::keepOpenEnabled);
    keepOpenEnabled();
}

void FilesOrFoldersDialog::keepOpenEnabled() {
    if (const auto* box = findChild<QDialogButtonBox*>(buttonBoxName))
        if (QPushButton* open = box->button(QDialogButtonBox::Open)) {
            open->setEnabled(true);
            // Qt renames it after a folder: here it opens the folder as a choice. (Its own
            // label is the button's text by now.)
            open->setText(confirm_);
        }
}

QStringList FilesOrFoldersDialog::selectedEntries() const {
    const auto* list = findChild<QListView*>(listName);
    const auto* files = list ? qobject_cast<const QFileSystemModel*>(list->model()) : nullptr;
    if (!files) return {};
    QModelIndexList rows = list->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    QStringList paths;
    for (const QModelIndex& row : rows) paths << files->filePath(row);
    return paths;
}

void FilesOrFoldersDialog::accept() {
    QStringList entries = selectedEntries();
    const auto* edit = findChild<QLineEdit*>(fileNameEditName);
    const bool typed = edit && !edit->text().trimmed().isEmpty();
    // Nothing selected and nothing typed: the folder on show is the choice.
    if (entries.isEmpty() && !typed) entries << directory().absolutePath();
    if (entries.isEmpty()) {
        // A typed name that matches nothing listed: Qt's rules (a folder is entered, a file is
        // taken).
        QFileDialog::accept();
        if (result() == QDialog::Accepted) chosen_ = selectedFiles();
        return;
    }
    chosen_ = entries;
    QDialog::accept();
}

}  // namespace velmora
