// The menu commands on the main window: their words and keys, and what they make the model do.
#include <QTest>
#include <fstream>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "model/ModelTesting.h"
#include "ui/app/AppMenus.h"
#include "ui/app/MainWindowFactory.h"

namespace velmora::test {
namespace {

TEST(Menus, CommandsWithTheirKeys) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    auto window = createMainWindow(model);
    installMenus(*window, model, [] {});

    const std::pair<QString, QKeySequence> commands[] = {
        {"Ouvrir un fichier ou un dossier…", QKeySequence(Qt::CTRL | Qt::Key_O)},
        {"Enregistrer sous…", QKeySequence(Qt::CTRL | Qt::Key_S)},
        {"Exporter…", QKeySequence(Qt::CTRL | Qt::Key_E)},
        {"Multi-master…", QKeySequence()},
        {"Quitter", QKeySequence(Qt::CTRL | Qt::Key_Q)},
        {"À propos de Velmora", QKeySequence()},
        {"Rechercher les mises à jour…", QKeySequence()},
    };
    for (const auto& [text, key] : commands) {
        const QAction* a = menuCommand(*window, text);
        ASSERT_NE(a, nullptr) << text.toStdString();
        EXPECT_EQ(a->shortcut(), key) << text.toStdString();
    }
    const QAction* preferences = menuCommand(*window, "Réglages…");
    ASSERT_NE(preferences, nullptr);
    EXPECT_TRUE(preferences->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::Key_Comma)));
    for (const QKeySequence& k : QKeySequence::keyBindings(QKeySequence::Preferences))
        EXPECT_TRUE(preferences->shortcuts().contains(k)) << k.toString().toStdString();

    // The updates command follows the about item, in the same menu.
    const auto helpActions = window->menuBar()->actions().last()->menu()->actions();
    ASSERT_EQ(helpActions.size(), 2);
    EXPECT_EQ(helpActions[0]->text(), "À propos de Velmora");
    EXPECT_EQ(helpActions[1]->text(), "Rechercher les mises à jour…");

    menuCommand(*window, "Rechercher les mises à jour…")->trigger();
    EXPECT_TRUE(model.globalStatus().contains("gestionnaire de paquets du système")) << model.globalStatus().toStdString();
}

TEST(Menus, KeysOpenSaveAndShowThePreferences) {
    ScratchDir dir;
    writeFloatWav(dir / "tone.wav", sine(3.0, 0.25), 48000);
    std::ofstream(dir / "notes.txt") << "not audio\n";
    FixedChoosers choosers;
    choosers.files = {q(dir / "tone.wav"), q(dir / "notes.txt")};
    Model model(nullptr, &choosers);
    auto window = createMainWindow(model);
    int preferencesShown = 0;
    installMenus(*window, model, [&] { ++preferencesShown; });
    window->show();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));

    QAction* save = menuCommand(*window, "Enregistrer sous…");
    EXPECT_FALSE(save->isEnabled()) << "nothing selected";

    // The open panel's answer goes through its rule: the text file is left out.
    QTest::keyClick(window.get(), Qt::Key_O, Qt::ControlModifier);
    ASSERT_EQ(model.queue().size(), 1u);
    EXPECT_EQ(model.queue()[0].name, "tone.wav");
    EXPECT_FALSE(save->isEnabled()) << "selected but not measured yet";
    ASSERT_TRUE(waitIdle(model));
    EXPECT_TRUE(save->isEnabled());

    choosers.saveFile = q(dir / "master.wav");
    QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier);
    EXPECT_TRUE(model.busy());
    EXPECT_FALSE(save->isEnabled()) << "while the master is written";
    ASSERT_TRUE(waitIdle(model));
    EXPECT_TRUE(std::filesystem::exists(dir / "master.wav")) << model.globalStatus().toStdString();
    EXPECT_TRUE(save->isEnabled());

    QTest::keyClick(window.get(), Qt::Key_Comma, Qt::ControlModifier);
    EXPECT_EQ(preferencesShown, 1);
}

TEST(Menus, ExportAndMultiMasterRunFromTheMenuWhenTheyCan) {
    ScratchDir dir;
    writeFloatWav(dir / "tone.wav", sine(3.0, 0.25), 48000);
    std::filesystem::create_directories(dir / "exports");
    std::filesystem::create_directories(dir / "masters");
    FixedChoosers choosers;
    choosers.files = {q(dir / "tone.wav")};
    Model model(nullptr, &choosers);
    model.setMultiMasterPresetIndices({});
    auto window = createMainWindow(model);
    installMenus(*window, model, [] {});
    window->show();
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));

    QAction* exportBatch = menuCommand(*window, "Exporter…");
    QAction* multiMaster = menuCommand(*window, "Multi-master…");
    ASSERT_TRUE(exportBatch && multiMaster);
    EXPECT_FALSE(exportBatch->isEnabled()) << "nothing queued";
    EXPECT_FALSE(multiMaster->isEnabled()) << "nothing queued";

    model.openFiles();
    EXPECT_TRUE(model.busy());
    EXPECT_FALSE(exportBatch->isEnabled()) << "while the analysis runs";
    ASSERT_TRUE(waitIdle(model));
    EXPECT_TRUE(exportBatch->isEnabled());
    EXPECT_FALSE(multiMaster->isEnabled()) << "no norm ticked";
    model.setMultiMasterPresetIndices({0, 1});
    EXPECT_TRUE(multiMaster->isEnabled());

    // Ctrl+E exports the batch into the chosen folder.
    choosers.folder = q(dir / "exports");
    QTest::keyClick(window.get(), Qt::Key_E, Qt::ControlModifier);
    EXPECT_TRUE(model.busy());
    EXPECT_FALSE(exportBatch->isEnabled());
    EXPECT_FALSE(multiMaster->isEnabled());
    ASSERT_TRUE(waitIdle(model));
    EXPECT_FALSE(std::filesystem::is_empty(dir / "exports")) << model.globalStatus().toStdString();

    // One master a ticked norm.
    choosers.folder = q(dir / "masters");
    multiMaster->trigger();
    ASSERT_TRUE(waitIdle(model));
    int masters = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir / "masters"))
        if (entry.path().extension() == ".wav") ++masters;
    EXPECT_EQ(masters, 2) << model.globalStatus().toStdString();

    model.select(QUuid());
    EXPECT_FALSE(multiMaster->isEnabled()) << "nothing selected";
    EXPECT_TRUE(exportBatch->isEnabled()) << "the batch needs no selection";
}

}  // namespace
}  // namespace velmora::test
