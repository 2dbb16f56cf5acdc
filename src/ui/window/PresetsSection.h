#pragma once
// Section 13 of the window: the side panel's two tabs. "PRESETS" saves and loads the whole
// chain under a name; "UTILITAIRES" writes the RLL calibration noise and the A/B excerpts and
// shows the French TV delivery check (PAD, CST RT-040) of the selected file.
#include <QWidget>
#include <optional>

class QGridLayout;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QStackedWidget;
class QVBoxLayout;

namespace velmora {

class Model;
class StudioMenuPicker;
class StudioSegmentButton;

namespace window {

enum class PresetTab { presets, utilitaires };

class PresetsSection : public QWidget {
    Q_OBJECT
public:
    explicit PresetsSection(Model& model, QWidget* parent = nullptr);

    void setTab(PresetTab tab);
    PresetTab tab() const { return tab_; }
    QLineEdit* presetNameField() const { return presetName_; }
    QPushButton* savePresetButton() const { return savePreset_; }
    StudioMenuPicker* loadPicker() const { return load_; }
    QLabel* noPresetNote() const { return noPreset_; }
    QPushButton* pinkNoiseButton() const { return pinkNoise_; }
    QPushButton* abButton() const { return ab_; }
    QLabel* padVerdict() const { return padVerdict_; }
    QLabel* padNote() const { return padNote_; }
    // The PAD lines shown, as "label · value · target".
    QStringList padLines() const;
    // The programme length the PAD check assumes: the file's own (nothing), short or long.
    void setPadLength(std::optional<bool> isShort);

private:
    QWidget* makePresetsPage();
    QWidget* makeUtilitiesPage();
    void refreshPresets();
    void refreshPad();
    void refreshBusy();

    Model& model_;
    PresetTab tab_ = PresetTab::presets;
    StudioSegmentButton* presetsTab_;
    StudioSegmentButton* utilitiesTab_;
    QStackedWidget* pages_;
    QLineEdit* presetName_;
    QPushButton* savePreset_;
    StudioMenuPicker* load_;
    QLabel* noPreset_;
    QPushButton* pinkNoise_;
    QPushButton* ab_;
    std::optional<bool> padShort_;
    StudioSegmentButton* padLengths_[3];
    QVBoxLayout* utilities_;
    QWidget* padBox_;
    QGridLayout* padGrid_;
    QLabel* padVerdict_;
    QLabel* padNote_ = nullptr;
    QString shownPad_;
};

}  // namespace window
}  // namespace velmora
