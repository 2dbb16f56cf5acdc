#pragma once
// The part of a component that only changes with its size or its settings (a scale, a grid,
// a knob body, unlit segments), kept as a pixmap at the ratio it is shown at, so a repaint at
// 20 frames a second only draws what moves.
#include <QPixmap>
#include <functional>

class QPainter;

namespace velmora {

class LayerCache {
public:
    // Draws the layer at the painter's origin, first redrawing it through `draw` (in logical
    // units, on a transparent pixmap) when the size or the device ratio changed or after
    // invalidate().
    void paint(QPainter& painter, const QSize& size, const std::function<void(QPainter&)>& draw);
    void invalidate() { valid_ = false; }

private:
    QPixmap pixmap_;
    QSize size_;
    double dpr_ = 0;
    bool valid_ = false;
};

}  // namespace velmora
