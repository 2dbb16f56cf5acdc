#pragma once
// What the model asks of the desktop: panels to pick files and folders, and showing results in
// the file browser. The window supplies dialogs; tests and the command line supply answers.
#include <QString>
#include <QStringList>
#include <optional>

namespace velmora {

class Choosers {
public:
    virtual ~Choosers() = default;
    // Files and folders, several at once; empty when cancelled.
    virtual QStringList chooseFilesOrFolders(const QString& title, const QString& confirm) = 0;
    // A folder; nothing when cancelled.
    virtual std::optional<QString> chooseFolder(const QString& title, const QString& confirm) = 0;
    // A file to write, starting from the proposed name; nothing when cancelled.
    virtual std::optional<QString> chooseSaveFile(const QString& title, const QString& confirm,
                                                  const QString& proposedName) = 0;
    virtual void reveal(const QStringList& paths) = 0;
};

// Hands back fixed answers: for the command line and tests.
class FixedChoosers final : public Choosers {
public:
    QStringList files;
    std::optional<QString> folder;
    std::optional<QString> saveFile;
    QStringList revealed;

    QStringList chooseFilesOrFolders(const QString&, const QString&) override { return files; }
    std::optional<QString> chooseFolder(const QString&, const QString&) override { return folder; }
    std::optional<QString> chooseSaveFile(const QString&, const QString&, const QString&) override { return saveFile; }
    void reveal(const QStringList& paths) override { revealed = paths; }
};

}  // namespace velmora
