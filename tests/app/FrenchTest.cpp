// Qt's own texts in French, as the application installs them: the standard buttons and the file
// dialog's words, whatever the desktop's language.
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "ui/app/VelmoraApp.h"

namespace velmora::test {
namespace {

TEST(French, QtsOwnButtonsAndFileDialogSpeakFrench) {
    QTranslator* translator = speakFrench(*qApp);
    ASSERT_NE(translator, nullptr) << "run scripts/setup-deps (qt6-translations-l10n)";
    EXPECT_FALSE(translator->isEmpty());

    QDialogButtonBox buttons(QDialogButtonBox::Ok | QDialogButtonBox::Cancel | QDialogButtonBox::Save |
                             QDialogButtonBox::Discard);
    EXPECT_EQ(buttons.button(QDialogButtonBox::Cancel)->text(), "Annuler");
    EXPECT_EQ(buttons.button(QDialogButtonBox::Save)->text(), "Enregistrer");

    QFileDialog dialog;
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setNameFilter(QStringLiteral("Audio (*.wav)"));
    QStringList texts;
    for (const auto* label : dialog.findChildren<QLabel*>()) texts << label->text();
    for (const auto* button : dialog.findChildren<QToolButton*>()) texts << button->toolTip();
    // "Look in:", "Files of type:", "Create New Folder" in French; none left in English.
    EXPECT_TRUE(texts.contains("Créer un nouveau dossier")) << texts.join(" | ").toStdString();
    EXPECT_FALSE(texts.contains("Create New Folder"));
    EXPECT_FALSE(texts.contains("Files of type:"));

    QCoreApplication::removeTranslator(translator);
    delete translator;
    EXPECT_EQ(QDialogButtonBox(QDialogButtonBox::Cancel).button(QDialogButtonBox::Cancel)->text(), "Cancel");
}

}  // namespace
}  // namespace velmora::test
