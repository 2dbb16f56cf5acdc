#pragma once
// Section 14 of the window: one master per ticked norm from the selected file, the quick
// selections, the saved packs of norms, and the export with its progress.
#include <QWidget>
#include <map>

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace velmora {

class LedToggle;
class Model;
class StudioPanel;
class StudioPrimaryButton;

namespace window {

class TextLine;

class MultiMasterSection : public QWidget {
    Q_OBJECT
public:
    explicit MultiMasterSection(Model& model, QWidget* parent = nullptr);

    StudioPanel* panel() const { return panel_; }
    QPushButton* disclosure() const { return disclosure_; }
    LedToggle* normToggle(int index) const { return toggles_.at(index); }
    QPushButton* tickAllButton() const { return tickAll_; }
    QLineEdit* packNameField() const { return packName_; }
    QPushButton* savePackButton() const { return savePack_; }
    QLabel* packsTitle() const { return packsTitle_; }
    StudioPrimaryButton* exportButton() const { return export_; }
    TextLine* progressLabel() const { return progress_; }

private:
    void refreshOpen();
    void refreshTicks();
    void refreshPacks();
    void refreshProgress();

    Model& model_;
    StudioPanel* panel_;
    QPushButton* disclosure_;
    QWidget* body_;
    std::map<int, LedToggle*> toggles_;
    QPushButton* tickAll_;
    QLabel* packsTitle_;
    QWidget* packList_;
    QVBoxLayout* packRows_;
    QLineEdit* packName_;
    QPushButton* savePack_;
    StudioPrimaryButton* export_;
    TextLine* progress_;
    QProgressBar* progressBar_;
};

}  // namespace window
}  // namespace velmora
