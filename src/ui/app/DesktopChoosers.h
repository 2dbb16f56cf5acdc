#pragma once
// The model's panels on a Linux desktop: Qt's file dialogs for opening, saving and picking a
// folder, and the file manager for showing results. [main thread]
#include <QDBusConnection>
#include <QPointer>
#include <QSettings>
#include <QString>
#include <QWidget>
#include <optional>

#include "model/Choosers.h"

namespace velmora {

class DesktopChoosers final : public Choosers {
public:
    // The file manager is asked over the session bus, joined at the first reveal.
    DesktopChoosers();
    // Over `bus` instead; a disconnected one goes straight to opening the folder.
    explicit DesktopChoosers(QDBusConnection bus);

    // The window the dialogs are modal to; they stay free-standing without one.
    void setDialogParent(QWidget* parent) { parent_ = parent; }
    // Where the next panels open: the open panel starts where the last one was left, the folder
    // and save panels where the last export went.
    void setStartFolder(const QString& folder) { openFolder_ = exportFolder_ = folder; }
    const QString& startFolder() const { return openFolder_; }
    const QString& exportFolder() const { return exportFolder_; }
    // Both folders are kept in `store` ("Velmora_lastOpenFolder", "Velmora_exportFolder") and
    // read back from it now, when they still exist; the store must outlive the choosers.
    void rememberFoldersIn(QSettings* store);

    QStringList chooseFilesOrFolders(const QString& title, const QString& confirm) override;
    std::optional<QString> chooseFolder(const QString& title, const QString& confirm) override;
    std::optional<QString> chooseSaveFile(const QString& title, const QString& confirm,
                                          const QString& proposedName) override;
    // Asks the file manager to show the items selected (freedesktop FileManager1 over D-Bus);
    // when no file manager answers, opens the folders that hold them. Returns at once: the
    // answer comes later on the event loop.
    void reveal(const QStringList& paths) override;

private:
    QPointer<QWidget> parent_;
    std::optional<QDBusConnection> bus_;
    void keep(QString& folder, const char* key, const QString& value);

    QPointer<QSettings> store_;
    QString openFolder_;
    QString exportFolder_;
};

}  // namespace velmora
