#include "ui/Snapshot.h"

#include <QApplication>
#include <QWidget>

#include "ui/StudioTheme.h"

namespace velmora {

void renderInto(QWidget& widget, QImage& image, int margin) {
    image.fill(theme::panel);
    // Children only: the window background of a stock widget would cover the panel colour.
    widget.render(&image, QPoint(margin, margin), QRegion(), QWidget::DrawChildren);
}

QImage snapshot(QWidget& widget, double ratio, int margin) {
    if (!widget.isVisible()) {
        widget.setAttribute(Qt::WA_DontShowOnScreen);
        widget.show();
        QApplication::processEvents();
    }
    QImage image((widget.size() + QSize(2 * margin, 2 * margin)) * ratio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    renderInto(widget, image, margin);
    return image;
}

}  // namespace velmora
