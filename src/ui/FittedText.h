#pragma once
// Figures that must never be cut: the largest pixel size, from `preferredPx` down to
// `smallestPx`, at which `text` fits `width` in the font `fontAt` gives for a size. A smaller
// box gets smaller type, never a clipped digit; below the smallest size the caller has left
// too little room, and the text is drawn at that size.
#include <QFont>
#include <QFontMetricsF>
#include <QString>
#include <algorithm>

namespace velmora {

template <typename FontAt>
int fittedPixelSize(const QString& text, double width, int preferredPx, int smallestPx, FontAt fontAt) {
    int px = std::max(preferredPx, smallestPx);
    if (text.isEmpty()) return px;
    // Advance grows with the size, nearly in proportion: one guess, then single steps down.
    const double atPreferred = QFontMetricsF(fontAt(px)).horizontalAdvance(text);
    if (atPreferred > width && atPreferred > 0) px = std::max(smallestPx, int(px * width / atPreferred) + 1);
    while (px > smallestPx && QFontMetricsF(fontAt(px)).horizontalAdvance(text) > width) --px;
    return px;
}

}  // namespace velmora
