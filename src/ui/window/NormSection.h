#pragma once
// Sections 9 and 10 of the window: the norm, the loudness target and the true-peak ceiling
// (locked when the norm imposes it), then the process mode, whose conformity choice hides the
// chain and says what it will do instead.
#include <QWidget>

class QLabel;

namespace velmora {

class Model;
class StudioMenuPicker;
class StudioPanel;
class StudioSegmentButton;

namespace window {

class LabeledSlider;

class NormSection : public QWidget {
    Q_OBJECT
public:
    explicit NormSection(Model& model, QWidget* parent = nullptr);

    StudioMenuPicker* normPicker() const { return norm_; }
    LabeledSlider* targetControl() const { return target_; }
    LabeledSlider* ceilingControl() const { return ceiling_; }
    QWidget* lockLine() const { return lockRow_; }
    QLabel* lockText() const { return lockText_; }
    StudioSegmentButton* masterButton() const { return master_; }
    StudioSegmentButton* conformButton() const { return conform_; }
    QLabel* conformityText() const { return conformText_; }

private:
    void refresh();

    Model& model_;
    StudioMenuPicker* norm_;
    LabeledSlider* target_;
    LabeledSlider* ceiling_;
    QWidget* lockRow_;
    QLabel* lockText_;
    QLabel* lockHint_;
    StudioSegmentButton* master_;
    StudioSegmentButton* conform_;
    QLabel* conformText_;
};

}  // namespace window
}  // namespace velmora
