#include "ui/app/MainWindowFactory.h"

#include "ui/MainWindow.h"

namespace velmora {

std::unique_ptr<QMainWindow> createMainWindow(Model& model) { return std::make_unique<MainWindow>(model); }

void saveWindowLayout(QMainWindow& window, QSettings& store) {
    if (auto* main = dynamic_cast<MainWindow*>(&window)) main->saveLayout(store);
}

void restoreWindowLayout(QMainWindow& window, QSettings& store) {
    if (auto* main = dynamic_cast<MainWindow*>(&window)) main->restoreLayout(store);
}

}  // namespace velmora
