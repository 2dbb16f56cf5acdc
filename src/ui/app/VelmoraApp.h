#pragma once
// The desktop application: the one model with the desktop's panels, the main window with its
// menus and remembered geometry, and the preferences window, made when first asked for.
// [main thread]
#include <QMainWindow>
#include <QPointer>
#include <QSettings>
#include <QCoreApplication>
#include <QTranslator>
#include <functional>
#include <memory>

#include "model/Model.h"
#include "ui/app/DesktopChoosers.h"
#include "ui/app/PreferencesWindow.h"

namespace velmora {

// Velmora speaks French whatever the desktop's language: so do Qt's own texts (file dialogs,
// standard buttons, context menus), from Qt's French translations (Debian:
// qt6-translations-l10n). The translator installed, owned by `app`; null when they are missing.
QTranslator* speakFrench(QCoreApplication& app);

class VelmoraApp : public QObject {
    Q_OBJECT
public:
    // Opens the per-user store; called twice, for the model's settings and the window's layout.
    using StoreOpener = std::function<std::unique_ptr<QSettings>()>;

    explicit VelmoraApp(const StoreOpener& openStore = &Model::userStore);
    ~VelmoraApp() override;

    // Shows the window where it was left and queues the files and folders the application was
    // opened with (folders are walked as the open panel walks them).
    void start(const QStringList& launchPaths);

    void showPreferences();

    Model& model() { return model_; }
    QMainWindow& window() { return *window_; }
    DesktopChoosers& choosers() { return choosers_; }
    // Null until first shown.
    PreferencesWindow* preferences() const { return preferences_; }

protected:
    // The window's place and layout are kept when it closes, however it is closed.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void saveLayout();
    void restoreLayout();

    std::unique_ptr<QSettings> layoutStore_;
    DesktopChoosers choosers_;
    Model model_;
    std::unique_ptr<QMainWindow> window_;
    QPointer<PreferencesWindow> preferences_;  // a child of the window
};

}  // namespace velmora
