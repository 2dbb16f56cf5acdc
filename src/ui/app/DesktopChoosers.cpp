#include "ui/app/DesktopChoosers.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUrl>

#include "ui/app/FilesOrFoldersDialog.h"

namespace velmora {

namespace {

// Each distinct folder once, in the order the paths come.
void openContainingFolders(const QStringList& paths) {
    QStringList folders;
    for (const QString& path : paths) {
        const QString folder = QFileInfo(path).absolutePath();
        if (!folders.contains(folder)) folders << folder;
    }
    for (const QString& folder : folders) QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

QString startingFolder() {
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    return QFileInfo(music).isDir() ? music : QDir::homePath();
}

}  // namespace

const char* const openFolderKey = "Velmora_lastOpenFolder";
const char* const exportFolderKey = "Velmora_exportFolder";

DesktopChoosers::DesktopChoosers() : openFolder_(startingFolder()), exportFolder_(openFolder_) {}

DesktopChoosers::DesktopChoosers(QDBusConnection bus)
    : bus_(std::move(bus)), openFolder_(startingFolder()), exportFolder_(openFolder_) {}

void DesktopChoosers::rememberFoldersIn(QSettings* store) {
    store_ = store;
    if (!store) return;
    // A folder since removed or unmounted is forgotten: the panel would open somewhere else.
    for (auto [folder, key] : {std::pair{&openFolder_, openFolderKey}, std::pair{&exportFolder_, exportFolderKey}}) {
        const QString kept = store->value(QLatin1String(key)).toString();
        if (!kept.isEmpty() && QFileInfo(kept).isDir()) *folder = kept;
    }
}

void DesktopChoosers::keep(QString& folder, const char* key, const QString& value) {
    if (value.isEmpty()) return;
    folder = value;
    if (store_) store_->setValue(QLatin1String(key), value);
}

QStringList DesktopChoosers::chooseFilesOrFolders(const QString& title, const QString& confirm) {
    FilesOrFoldersDialog dialog(parent_, title, confirm, openFolder_);
    const bool accepted = dialog.exec() == QDialog::Accepted;
    keep(openFolder_, openFolderKey, dialog.directory().absolutePath());
    return accepted ? dialog.chosen() : QStringList{};
}

std::optional<QString> DesktopChoosers::chooseFolder(const QString& title, const QString& confirm) {
    QFileDialog dialog(parent_, title, exportFolder_);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    useFrenchLabels(dialog);
    dialog.setLabelText(QFileDialog::Accept, confirm);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    const QString folder = dialog.selectedFiles().first();
    keep(exportFolder_, exportFolderKey, folder);
    return folder;
}

std::optional<QString> DesktopChoosers::chooseSaveFile(const QString& title, const QString& confirm,
                                                       const QString& proposedName) {
    QFileDialog dialog(parent_, title, exportFolder_);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    useFrenchLabels(dialog);
    dialog.setLabelText(QFileDialog::Accept, confirm);
    dialog.selectFile(proposedName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    const QString file = dialog.selectedFiles().first();
    keep(exportFolder_, exportFolderKey, QFileInfo(file).absolutePath());
    return file;
}

void DesktopChoosers::reveal(const QStringList& paths) {
    if (paths.isEmpty()) return;
    if (!bus_) bus_ = QDBusConnection::sessionBus();
    if (!bus_->isConnected()) {
        openContainingFolders(paths);
        return;
    }
    QStringList uris;
    for (const QString& path : paths)
        uris << QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded);
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
                                                       QStringLiteral("/org/freedesktop/FileManager1"),
                                                       QStringLiteral("org.freedesktop.FileManager1"),
                                                       QStringLiteral("ShowItems"));
    call << uris << QString();  // no startup notification id
    // Asynchronous: the bus may first have to start a file manager, and the window must not
    // wait for it. No file manager on the bus (or one that refuses) answers with an error.
    auto* watcher = new QDBusPendingCallWatcher(bus_->asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [paths](QDBusPendingCallWatcher* w) {
        if (w->isError()) openContainingFolders(paths);
        w->deleteLater();
    });
}

}  // namespace velmora
