#pragma once
// Where the application gets its main window, and the window's own layout (its splitters)
// beside the geometry the shell keeps. The shell needs nothing more of it than a QMainWindow.
#include <QMainWindow>
#include <memory>

class QSettings;

namespace velmora {

class Model;

std::unique_ptr<QMainWindow> createMainWindow(Model& model);
void saveWindowLayout(QMainWindow& window, QSettings& store);
void restoreWindowLayout(QMainWindow& window, QSettings& store);

}  // namespace velmora
