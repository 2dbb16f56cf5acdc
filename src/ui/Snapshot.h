#pragma once
// A component drawn into an image at a chosen device pixel ratio, on the panel colour, as the
// window would show it on a screen of that density. The gallery's screenshots, the tests'
// pixel checks and the paint benchmark all look through this.
#include <QImage>

class QWidget;

namespace velmora {

// Lays the widget out at its current size (showing it off screen once, so layouts and polish
// have run), then renders it and its children into a new image of (size + 2·margin)·ratio
// device pixels whose devicePixelRatio is `ratio`. Allocates the image.
QImage snapshot(QWidget& widget, double ratio, int margin = 0);

// Renders into an existing image of the right size, for repeated paints without allocating.
void renderInto(QWidget& widget, QImage& image, int margin = 0);

}  // namespace velmora
