#pragma once
// The few symbols the window needs, drawn as paths: the fonts Velmora ships with (DejaVu) have
// no transport, lock, hourglass or bin glyphs, and a drawn symbol looks the same everywhere.
#include <QColor>
#include <QIcon>
#include <QRectF>

class QPainter;

namespace velmora::window {

enum class Icon { toStart, stop, play, pause, toEnd, lock, hourglass, bin, exportArrow, seal, waveform };

// Draws `icon` centred in `box`, filled or stroked in `colour`.
void paintIcon(QPainter& painter, Icon icon, const QRectF& box, const QColor& colour);

// The icon as a QIcon of `size` logical pixels (drawn at ratio 2), for stock buttons and menus.
QIcon makeIcon(Icon icon, const QColor& colour, int size = 16);

}  // namespace velmora::window
