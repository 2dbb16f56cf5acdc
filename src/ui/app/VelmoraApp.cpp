#include "ui/app/VelmoraApp.h"

#include <QEvent>
#include <QGuiApplication>
#include <QLibraryInfo>
#include <QScreen>
#include <QTranslator>

#include "ui/app/AppMenus.h"
#include "ui/app/MainWindowFactory.h"
#include "ui/app/PreferencesWindow.h"

namespace velmora {

namespace {

const char* const geometryKey = "Velmora_window/geometry";
// The window's size the first time, within the screen it opens on.
constexpr QSize defaultSize(1600, 1000);

}  // namespace

QTranslator* speakFrench(QCoreApplication& app) {
    auto* translator = new QTranslator(&app);
    if (!translator->load(QStringLiteral("qtbase_fr"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)) ||
        !QCoreApplication::installTranslator(translator)) {
        delete translator;
        return nullptr;
    }
    return translator;
}

VelmoraApp::VelmoraApp(const StoreOpener& openStore)
    : layoutStore_(openStore()), model_(openStore(), &choosers_), window_(createMainWindow(model_)) {
    window_->setWindowTitle(QStringLiteral("Velmora"));
    choosers_.setDialogParent(window_.get());
    choosers_.rememberFoldersIn(layoutStore_.get());
    installMenus(*window_, model_, [this] { showPreferences(); });
    window_->installEventFilter(this);
}

VelmoraApp::~VelmoraApp() = default;

void VelmoraApp::start(const QStringList& launchPaths) {
    restoreLayout();
    window_->show();
    if (!launchPaths.isEmpty()) model_.addFilesOrFolders(launchPaths);
}

void VelmoraApp::showPreferences() {
    if (!preferences_) preferences_ = new PreferencesWindow(model_, window_.get());
    preferences_->show();
    preferences_->raise();
    preferences_->activateWindow();
}

bool VelmoraApp::eventFilter(QObject* watched, QEvent* event) {
    if (watched == window_.get() && event->type() == QEvent::Close) saveLayout();
    return QObject::eventFilter(watched, event);
}

void VelmoraApp::saveLayout() {
    if (!layoutStore_) return;
    layoutStore_->setValue(geometryKey, window_->saveGeometry());
    saveWindowLayout(*window_, *layoutStore_);
    layoutStore_->sync();
}

void VelmoraApp::restoreLayout() {
    if (!layoutStore_ || !window_->restoreGeometry(layoutStore_->value(geometryKey).toByteArray())) {
        QSize size = defaultSize;
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            size = size.boundedTo(screen->availableGeometry().size());
        window_->resize(size);
    }
    if (layoutStore_) restoreWindowLayout(*window_, *layoutStore_);
}

}  // namespace velmora
