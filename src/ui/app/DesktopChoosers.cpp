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

DesktopChoosers::DesktopChoosers() : lastFolder_(startingFolder()) {}

DesktopChoosers::DesktopChoosers(QDBusConnection bus) : bus_(std::move(bus)), lastFolder_(startingFolder()) {}

QStringList DesktopChoosers::chooseFilesOrFolders(const QString& title, const QString& confirm) {
    FilesOrFoldersDialog dialog(parent_, title, confirm, lastFolder_);
    const bool accepted = dialog.exec() == QDialog::Accepted;
    lastFolder_ = dialog.directory().absolutePath();
    return accepted ? dialog.chosen() : QStringList{};
}

std::optional<QString> DesktopChoosers::chooseFolder(const QString& title, const QString& confirm) {
    QFileDialog dialog(parent_, title, lastFolder_);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    useFrenchLabels(dialog);
    dialog.setLabelText(QFileDialog::Accept, confirm);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    const QString folder = dialog.selectedFiles().first();
    lastFolder_ = folder;
    return folder;
}

std::optional<QString> DesktopChoosers::chooseSaveFile(const QString& title, const QString& confirm,
                                                       const QString& proposedName) {
    QFileDialog dialog(parent_, title, lastFolder_);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    useFrenchLabels(dialog);
    dialog.setLabelText(QFileDialog::Accept, confirm);
    dialog.selectFile(proposedName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    const QString file = dialog.selectedFiles().first();
    lastFolder_ = QFileInfo(file).absolutePath();
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
