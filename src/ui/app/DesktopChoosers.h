#pragma once
// The model's panels on a Linux desktop: Qt's file dialogs for opening, saving and picking a
// folder, and the file manager for showing results. [main thread]
#include <QDBusConnection>
#include <QPointer>
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
    // Where the next panel opens; each panel then starts where the last one was left.
    void setStartFolder(const QString& folder) { lastFolder_ = folder; }
    const QString& startFolder() const { return lastFolder_; }

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
    QString lastFolder_;
};

}  // namespace velmora
