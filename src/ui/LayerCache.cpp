#include "ui/LayerCache.h"

#include <QPainter>

#include "ui/StudioTheme.h"

namespace velmora {

void LayerCache::paint(QPainter& painter, const QSize& size, const std::function<void(QPainter&)>& draw) {
    if (size.isEmpty()) return;
    const double dpr = theme::devicePixelRatio(painter);
    if (!valid_ || size != size_ || dpr != dpr_) {
        // A layer redrawn every frame (a curve while it is dragged) keeps its buffer: a new
        // one would cost an allocation and its page faults each time.
        if (size != size_ || dpr != dpr_ || pixmap_.isNull()) {
            pixmap_ = QPixmap(size * dpr);
            pixmap_.setDevicePixelRatio(dpr);
        }
        pixmap_.fill(Qt::transparent);
        QPainter layer(&pixmap_);
        draw(layer);
        size_ = size;
        dpr_ = dpr;
        valid_ = true;
    }
    painter.drawPixmap(QPointF(0, 0), pixmap_);
}

}  // namespace velmora
