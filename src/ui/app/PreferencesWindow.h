#pragma once
// The preferences: the reports' language, and the real-time monitoring route (device, left and
// right channels) with its test tone. Every choice goes to the model at once and is saved; it
// takes effect the next time the monitor is routed. [main thread]
#include <QDialog>
#include <vector>

#include "audio/OutputDevice.h"

class QTabWidget;

namespace velmora {

class LedToggle;
class Model;
class StudioMenuPicker;

class PreferencesWindow : public QDialog {
    Q_OBJECT
public:
    explicit PreferencesWindow(Model& model, QWidget* parent = nullptr);

protected:
    // The devices are listed again each time the window opens: cards come and go.
    void showEvent(QShowEvent* event) override;

private:
    QWidget* languageTab();
    QWidget* monitoringTab();
    void showLanguage();
    void showRoute();
    const OutputDevice* chosenDevice() const;

    Model& model_;
    std::vector<OutputDevice> devices_;
    QTabWidget* tabs_;
    StudioMenuPicker* language_ = nullptr;
    LedToggle* monitoring_ = nullptr;
    StudioMenuPicker* device_ = nullptr;
    StudioMenuPicker* left_ = nullptr;
    StudioMenuPicker* right_ = nullptr;
};

}  // namespace velmora
