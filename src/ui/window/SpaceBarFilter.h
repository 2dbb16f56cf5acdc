#pragma once
// The space bar, anywhere in the application: it toggles listening (Model::toggleListening)
// unless a text field has the focus, the model is busy, or a menu or a modal dialog is up, in
// which cases the key goes on as usual. The A key flips the A/B comparison (Model::toggleAB)
// under the same rules, a job running or not: it only changes what is heard. Installed on the
// application by the main window.
#include <QObject>

class QWidget;

namespace velmora {

class Model;

namespace window {

class SpaceBarFilter : public QObject {
    Q_OBJECT
public:
    SpaceBarFilter(Model& model, QObject* parent);
    // A widget where a space is typed: line and text edits, spin boxes, editable combo boxes.
    static bool isTextField(const QWidget* widget);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    Model& model_;
};

}  // namespace window
}  // namespace velmora
