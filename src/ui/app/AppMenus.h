#pragma once
// The application's menu commands on a main window's menu bar: open, save as, the batch export,
// the multi-master, preferences and quit in "Fichier"; undo and redo of the window's settings in
// "Édition"; about and updates in "Aide". [main thread]
#include <functional>

class QMainWindow;

namespace velmora {

class Model;

void installMenus(QMainWindow& window, Model& model, std::function<void()> showPreferences);

}  // namespace velmora
