#include "ui/app/AppMenus.h"

#include <QAction>
#include <QApplication>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QUndoStack>

#include "model/Model.h"
#include "ui/window/UndoHistory.h"

namespace velmora {

namespace {

// The platform's preferences keys, and Ctrl+, everywhere: most Linux desktops define none.
QList<QKeySequence> preferencesShortcuts() {
    QList<QKeySequence> keys = QKeySequence::keyBindings(QKeySequence::Preferences);
    const QKeySequence comma(Qt::CTRL | Qt::Key_Comma);
    if (!keys.contains(comma)) keys << comma;
    return keys;
}

// The platform's keys for a standard command, and `always` among them: Ctrl+Shift+Z redoes
// everywhere, whatever the desktop binds.
QList<QKeySequence> keysWith(QKeySequence::StandardKey standard, const QKeySequence& always) {
    QList<QKeySequence> keys = QKeySequence::keyBindings(standard);
    if (!keys.contains(always)) keys.prepend(always);
    return keys;
}

// "Annuler : Seuil" while there is a step to undo, a disabled "Annuler" when there is none.
void followStack(QAction* action, const QString& verb, bool can, const QString& step) {
    action->setEnabled(can);
    action->setText(can && !step.isEmpty() ? verb + QStringLiteral(" : ") + step : verb);
}

void addUndoCommands(QMenu* edit, QUndoStack& stack) {
    const QString undoVerb = QStringLiteral("Annuler"), redoVerb = QStringLiteral("Rétablir");
    QAction* undo = edit->addAction(undoVerb, &stack, &QUndoStack::undo);
    undo->setShortcuts(keysWith(QKeySequence::Undo, QKeySequence(Qt::CTRL | Qt::Key_Z)));
    QAction* redo = edit->addAction(redoVerb, &stack, &QUndoStack::redo);
    redo->setShortcuts(keysWith(QKeySequence::Redo, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)));
    const auto update = [undo, redo, undoVerb, redoVerb, steps = &stack] {
        followStack(undo, undoVerb, steps->canUndo(), steps->undoText());
        followStack(redo, redoVerb, steps->canRedo(), steps->redoText());
    };
    for (auto signal : {&QUndoStack::canUndoChanged, &QUndoStack::canRedoChanged})
        QObject::connect(&stack, signal, undo, update);
    for (auto signal : {&QUndoStack::undoTextChanged, &QUndoStack::redoTextChanged})
        QObject::connect(&stack, signal, undo, update);
    update();
}

void showAbout(QWidget* parent) {
    QMessageBox::about(parent, QStringLiteral("À propos de Velmora"),
                       QStringLiteral("<p><b>Velmora %1</b></p>"
                                      "<p>Mesure, vérifie et corrige la loudness des fichiers audio et vidéo "
                                      "(ITU-R BS.1770-4, EBU R128) et écrit des masters conformes aux normes "
                                      "de diffusion.</p>")
                           .arg(QStringLiteral(VELMORA_VERSION)));
}

}  // namespace

void installMenus(QMainWindow& window, Model& model, std::function<void()> showPreferences) {
    QMenu* file = window.menuBar()->addMenu(QStringLiteral("&Fichier"));
    QAction* open = file->addAction(QStringLiteral("Ouvrir un fichier ou un dossier…"), &model, &Model::openFiles);
    open->setShortcut(QKeySequence::Open);
    QAction* save = file->addAction(QStringLiteral("Enregistrer sous…"), &model, &Model::saveMaster);
    save->setShortcut(QKeySequence::Save);
    const auto updateSave = [save, &model] { save->setEnabled(model.canSaveMaster()); };
    for (auto signal : {&Model::busyChanged, &Model::selectedIDChanged, &Model::queueChanged})
        QObject::connect(&model, signal, save, updateSave);
    updateSave();
    QAction* exportBatch = file->addAction(QStringLiteral("Exporter…"), &model, &Model::exportBatch);
    exportBatch->setShortcut(Qt::CTRL | Qt::Key_E);
    QAction* multiMaster = file->addAction(QStringLiteral("Multi-master…"), &model, &Model::startMultiMaster);
    const auto updateJobs = [exportBatch, multiMaster, &model] {
        exportBatch->setEnabled(model.canExportBatch());
        multiMaster->setEnabled(model.canStartMultiMaster());
    };
    for (auto signal : {&Model::busyChanged, &Model::selectedIDChanged, &Model::queueChanged,
                        &Model::multiMasterPresetIndicesChanged})
        QObject::connect(&model, signal, exportBatch, updateJobs);
    updateJobs();

    file->addSeparator();
    QAction* preferences = file->addAction(QStringLiteral("Réglages…"), &window, std::move(showPreferences));
    preferences->setShortcuts(preferencesShortcuts());
    preferences->setMenuRole(QAction::PreferencesRole);
    file->addSeparator();
    QAction* quit = file->addAction(QStringLiteral("Quitter"), qApp, &QApplication::closeAllWindows);
    quit->setShortcut(Qt::CTRL | Qt::Key_Q);
    quit->setMenuRole(QAction::QuitRole);

    QMenu* edit = window.menuBar()->addMenu(QStringLiteral("É&dition"));
    addUndoCommands(edit, window::UndoHistory::of(model).stack());

    QMenu* help = window.menuBar()->addMenu(QStringLiteral("&Aide"));
    QAction* about = help->addAction(QStringLiteral("À propos de Velmora"), &window, [&window] { showAbout(&window); });
    about->setMenuRole(QAction::AboutRole);
    // Velmora comes from the system's packages, and is updated with them: there is nothing to
    // download from here.
    help->addAction(QStringLiteral("Rechercher les mises à jour…"), &model, [&model] {
        model.setGlobalStatus(QStringLiteral("Les mises à jour de Velmora arrivent par le gestionnaire de paquets du système."));
    });
}

}  // namespace velmora
