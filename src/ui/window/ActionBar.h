#pragma once
// Sections 15 and 16 of the window: the actions on the session (measure again, export every
// ready file, save the selected one) and the status line, across the bottom, never scrolled.
#include <QWidget>
#include <optional>

#include "ui/window/Icons.h"

class QPushButton;

namespace velmora {

class Model;
class StudioPrimaryButton;

namespace window {

class TextLine;

class ActionBar : public QWidget {
    Q_OBJECT
public:
    explicit ActionBar(Model& model, QWidget* parent = nullptr);

    StudioPrimaryButton* analyseButton() const { return analyse_; }
    StudioPrimaryButton* exportButton() const { return export_; }
    QPushButton* saveAsButton() const { return saveAs_; }
    TextLine* statusLine() const { return status_; }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    void refresh();
    void refreshStatus();

    Model& model_;
    StudioPrimaryButton* analyse_;
    StudioPrimaryButton* export_;
    QPushButton* saveAs_;
    TextLine* status_;
    std::optional<Icon> exportFace_;
};

}  // namespace window
}  // namespace velmora
