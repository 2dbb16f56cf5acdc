#pragma once
// Driving the application's windows as a user would: menu commands found by their text,
// pickers by their accessible name, choices made through their menus. The settings live in an
// INI file of the test's own, never in the user's store.
#include <QAction>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <functional>
#include <memory>
#include <ostream>

#include "support/TestSupport.h"
#include "ui/StudioMenuPicker.h"

// Failures print texts as texts.
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

namespace velmora::test {

// Runs the event loop until `done` or 20 s (a guard against hanging, not a measure).
inline bool eventually(const std::function<bool()>& done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 20000) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

// The menu command titled `text` anywhere in the window's menu bar; null when there is none.
inline QAction* menuCommand(QMainWindow& window, const QString& text) {
    for (QAction* menu : window.menuBar()->actions())
        if (menu->menu())
            for (QAction* a : menu->menu()->actions())
                if (a->text() == text) return a;
    return nullptr;
}

inline StudioMenuPicker* pickerNamed(QWidget& window, const QString& name) {
    for (auto* p : window.findChildren<StudioMenuPicker*>())
        if (p->accessibleName() == name) return p;
    return nullptr;
}

inline QStringList choices(const StudioMenuPicker& picker) {
    QStringList texts;
    for (const QAction* a : picker.menu()->actions()) texts << a->text();
    return texts;
}

// Picks the entry titled `text`, as a click in the picker's menu does; false when absent.
inline bool choose(StudioMenuPicker& picker, const QString& text) {
    for (QAction* a : picker.menu()->actions())
        if (a->text() == text) {
            a->trigger();
            return true;
        }
    return false;
}

inline QString q(const std::filesystem::path& p) { return QString::fromStdString(p.string()); }

// An INI file in `dir` standing in for the per-user store.
inline std::function<std::unique_ptr<QSettings>()> storeIn(const ScratchDir& dir) {
    const QString file = q(dir / "Velmora.ini");
    return [file] { return std::make_unique<QSettings>(file, QSettings::IniFormat); };
}

}  // namespace velmora::test
