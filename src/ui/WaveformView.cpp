#include "ui/WaveformView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

WaveformView::WaveformView(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setCursor(Qt::PointingHandCursor);
    setAccessibleName(QStringLiteral("Forme d'onde"));
}

void WaveformView::setPeaks(std::vector<float> peaks) {
    peaks_ = std::move(peaks);
    played_.invalidate();
    ahead_.invalidate();
    update();
}

void WaveformView::setProgress(double fraction) {
    fraction = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0.0;
    // Redraw only when the cursor moves by at least a device pixel.
    const bool moved = std::lround(fraction * width() * 2) != std::lround(progress_ * width() * 2);
    progress_ = fraction;
    if (moved) update();
}

void WaveformView::setPlaying(bool playing) {
    if (playing == playing_) return;
    playing_ = playing;
    update();
}

void WaveformView::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    well_.invalidate();
    played_.invalidate();
    ahead_.invalidate();
}

double WaveformView::cursorX() const { return progress_ * width(); }

void WaveformView::paintPeaks(QPainter& p, const QColor& colour) const {
    p.setRenderHint(QPainter::Antialiasing);
    const double dpr = theme::devicePixelRatio(p);
    const double mid = height() / 2.0, half = height() / 2.0 - 6;
    const int columns = int(std::lround(width() * dpr));
    if (peaks_.empty() || columns <= 0) return;
    // One column per device pixel, each the largest peak of the points that fall in it: a
    // 1024-point overview stays a filled shape at any width.
    std::vector<double> heights(std::size_t(columns) + 1);
    const double perColumn = double(peaks_.size()) / columns;
    for (int c = 0; c < columns; ++c) {
        const auto from = std::size_t(c * perColumn);
        const auto to = std::max(from + 1, std::min(peaks_.size(), std::size_t(std::ceil((c + 1) * perColumn))));
        float peak = 0;
        for (std::size_t i = from; i < to && i < peaks_.size(); ++i) peak = std::max(peak, std::fabs(peaks_[i]));
        heights[std::size_t(c)] = std::min(1.0, double(peak)) * half;
    }
    heights[std::size_t(columns)] = heights[std::size_t(columns) - 1];
    QPainterPath shape;
    shape.moveTo(0, mid - heights[0]);
    for (int c = 0; c <= columns; ++c) shape.lineTo(c / dpr, mid - heights[std::size_t(c)]);
    for (int c = columns; c >= 0; --c) shape.lineTo(c / dpr, mid + heights[std::size_t(c)] + 0.5);
    shape.closeSubpath();
    p.fillPath(shape, colour);
}

void WaveformView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    const QRectF all(rect());
    well_.paint(p, size(), [&](QPainter& layer) {
        theme::paintPanel(layer, all, theme::controlRadius + 2, theme::well);
        layer.setPen(QPen(theme::grid, 1));
        layer.drawLine(QPointF(1, height() / 2.0 + 0.5), QPointF(width() - 1, height() / 2.0 + 0.5));
    });
    p.setRenderHint(QPainter::Antialiasing);

    // Inside the well's border, split at the cursor.
    const double x = cursorX();
    const QRectF inside = all.adjusted(1, 1, -1, -1);
    p.save();
    p.setClipRect(inside.intersected(QRectF(0, 0, x, height())));
    played_.paint(p, size(), [this](QPainter& layer) { paintPeaks(layer, theme::accent); });
    p.setClipRect(inside.intersected(QRectF(x, 0, width() - x, height())));
    ahead_.paint(p, size(), [this](QPainter& layer) { paintPeaks(layer, theme::withAlpha(theme::textSecondary, 0.55)); });
    p.restore();

    // At the very start or end the cursor stays whole inside the view.
    const QColor cursor = playing_ ? theme::textPrimary : theme::withAlpha(theme::textPrimary, 0.7);
    const double line = std::clamp(x, 0.75, width() - 0.75), capX = std::clamp(x, 5.0, width() - 5.0);
    p.fillRect(QRectF(line - 0.75, 1, 1.5, height() - 2), cursor);
    QPainterPath cap;
    cap.moveTo(capX - 5, 1);
    cap.lineTo(capX + 5, 1);
    cap.lineTo(line, 7);
    cap.closeSubpath();
    p.fillPath(cap, playing_ ? theme::accent : cursor);
}

void WaveformView::seekTo(double x) {
    if (width() <= 0) return;
    emit seekRequested(std::clamp(x / width(), 0.0, 1.0));
}

void WaveformView::mousePressEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton) return QWidget::mousePressEvent(e);
    seekTo(e->position().x());
}

void WaveformView::mouseMoveEvent(QMouseEvent* e) {
    if (!(e->buttons() & Qt::LeftButton)) return QWidget::mouseMoveEvent(e);
    seekTo(e->position().x());
}

}  // namespace velmora
