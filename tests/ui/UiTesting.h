#pragma once
// Pointer gestures and pixel reading for the component tests. Events go straight to the widget
// with the modifiers they carry, as a window would deliver them mid-gesture.
#include <QCoreApplication>
#include <QImage>
#include <QMouseEvent>
#include <QWidget>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "ui/Snapshot.h"

namespace velmora::test {

inline void sendMouse(QWidget& w, QEvent::Type type, QPointF at, Qt::MouseButton button, Qt::MouseButtons buttons,
                      Qt::KeyboardModifiers modifiers = {}) {
    QMouseEvent event(type, at, w.mapToGlobal(at), button, buttons, modifiers);
    QCoreApplication::sendEvent(&w, &event);
}

inline void press(QWidget& w, QPointF at, Qt::KeyboardModifiers modifiers = {}) {
    sendMouse(w, QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton, modifiers);
}

// Moves with the button held from `from` to `to` in `steps` steps; releases unless told not to.
inline void drag(QWidget& w, QPointF from, QPointF to, Qt::KeyboardModifiers modifiers = {}, int steps = 5,
                 bool release = true) {
    press(w, from, modifiers);
    for (int i = 1; i <= steps; ++i)
        sendMouse(w, QEvent::MouseMove, from + (to - from) * (double(i) / steps), Qt::NoButton, Qt::LeftButton, modifiers);
    if (release) sendMouse(w, QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton, modifiers);
}

// The pixel under a logical point of an image drawn at any ratio.
inline QColor pixelAt(const QImage& image, QPointF logical) {
    const double dpr = image.devicePixelRatio();
    return image.pixelColor(int(std::floor(logical.x() * dpr)), int(std::floor(logical.y() * dpr)));
}

// The largest channel difference, 0 … 255.
inline int colourDistance(const QColor& a, const QColor& b) {
    return std::max({std::abs(a.red() - b.red()), std::abs(a.green() - b.green()), std::abs(a.blue() - b.blue())});
}

// Where a line in the accent colour at full strength crosses the pixel column under logical
// x, in logical units; -1 when none does. Fills and grids in the accent are far darker.
inline double accentLineY(const QImage& image, double x) {
    const double dpr = image.devicePixelRatio();
    const int column = int(std::floor(x * dpr));
    double sum = 0, count = 0;
    for (int row = 0; row < image.height(); ++row) {
        const QColor c = image.pixelColor(column, row);
        if (c.red() > 200 && c.green() > 110 && c.green() < 200 && c.blue() < 110) sum += row + 0.5, count += 1;
    }
    return count > 0 ? sum / count / dpr : -1;
}

// Saves a test's image for review by eye beside the build (VELMORA_SCREENSHOT_DIR); assertions
// never compare whole images, since fonts differ between machines.
inline void keepForReview(const QImage& image, const QString& name) {
    std::filesystem::create_directories(VELMORA_SCREENSHOT_DIR);
    image.save(QStringLiteral(VELMORA_SCREENSHOT_DIR "/%1@%2x.png").arg(name).arg(int(image.devicePixelRatio())));
}

}  // namespace velmora::test
