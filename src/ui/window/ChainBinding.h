#pragma once
// Binds the chain's controls to the model's `mp`: each knob, switch and slider shows one field
// of MasterParams and writes it back through Model::setMp, which the live streamer hears from
// its next block. One refresh on mpChanged puts every control back in step, after an undo too:
// the undo history keeps every chain change and names its steps after these controls.
#include <QObject>
#include <QString>
#include <functional>
#include <vector>

#include "mastering/MasterParams.h"

class QColor;
class QWidget;

namespace velmora {

class LedToggle;
class Model;
class SSLKnob;

namespace window {

class LabeledSlider;

class ChainBinding : public QObject {
    Q_OBJECT
public:
    ChainBinding(Model& model, QObject* parent);

    // A knob on `field` over the field's range (ParamRanges.h), reset by a double-click to the
    // field's default.
    SSLKnob* knob(double MasterParams::*field, const QString& label, const char* format,
                  const QString& unit, const QColor& colour, int size, QWidget* parent,
                  const QString& accessibleName = {});
    LedToggle* toggle(bool MasterParams::*field, const QString& label, QWidget* parent);
    LabeledSlider* slider(double MasterParams::*field, const QString& caption, double step,
                          std::function<QString(double)> format, QWidget* parent);
    // Anything else that shows the chain (graphs, notes, glows).
    void onChange(std::function<void(const MasterParams&)> show);

    // Writes one change into a copy of `mp` and hands it to the model.
    void edit(const std::function<void(MasterParams&)>& change);
    void refresh();

private:
    Model& model_;
    std::vector<std::function<void(const MasterParams&)>> shows_;
};

}  // namespace window
}  // namespace velmora
