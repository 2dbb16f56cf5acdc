#include "ui/SegmentedMeter.h"

#include <QPainter>
#include <cmath>

#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

QColor SegmentScale::zoneColour(double levelDB) {
    if (levelDB > -6) return theme::zoneRed;
    if (levelDB > -12) return theme::zoneAmber;
    if (levelDB > -24) return theme::zoneYellow;
    return theme::zoneGreen;
}

std::vector<int> SegmentScale::labelLevels(int every) const {
    std::vector<int> levels;
    for (int v = 0; v >= -int(span()); v -= every) levels.push_back(v);
    return levels;
}

SegmentedMeter::SegmentedMeter(QWidget* parent) : QWidget(parent) {
    installStudioAccessibility();
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
}

void SegmentedMeter::setTitle(const QString& title) {
    title_ = title;
    setAccessibleName(title);
    invalidateStatic();
    updateGeometry();
}

void SegmentedMeter::setValue(double valueDB) {
    // A repaint only when something visible moves: the lit count or the one-decimal readout.
    const auto litCount = [this](double v) {
        int n = 0;
        for (int i = 0; i < scale_.segmentCount(); ++i) n += scale_.lit(i, v);
        return n;
    };
    const bool visible = litCount(valueDB) != litCount(value_) ||
                         fixedText(valueDB, 1) != fixedText(value_, 1);
    value_ = valueDB;
    if (visible) {
        announceValueChange(this, value_);
        update();
    }
}

void SegmentedMeter::setTruePeak(bool isTP) {
    scale_.truePeak = isTP;
    invalidateStatic();
}

void SegmentedMeter::setTarget(double targetDB) {
    target_ = targetDB;
    invalidateStatic();
}

void SegmentedMeter::invalidateStatic() {
    static_.invalidate();
    update();
}

void SegmentedMeter::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    static_.invalidate();
}

QRectF SegmentedMeter::segmentRect(int i) const {
    const QRectF bar = barRect();
    const double pitch = bar.height() / scale_.segmentCount();
    const double gap = pitch >= 2.5 ? 1.0 : pitch * 0.3;
    return QRectF(bar.left(), bar.top() + i * pitch, bar.width(), pitch - gap);
}

QString SegmentedMeter::readout() const {
    return std::isfinite(value_) ? fixedText(value_, 1) : QStringLiteral("—");
}

void SegmentedMeter::paintWell(QPainter& p) const {
    theme::paintPanel(p, barRect().adjusted(-3, -3, 3, 3), theme::controlRadius, theme::well);
}

void SegmentedMeter::paintUnlit(QPainter& p) const {
    const double dpr = theme::devicePixelRatio(p);
    for (int i = 0; i < scale_.segmentCount(); ++i)
        p.fillRect(theme::snapped(segmentRect(i), dpr), theme::withAlpha(SegmentScale::zoneColour(scale_.level(i)), 0.1));
}

void SegmentedMeter::paintLit(QPainter& p) const {
    const double dpr = theme::devicePixelRatio(p);
    // The glow runs behind each zone's lit segments as one piece, so it does not pile up in the
    // gaps between them.
    QRectF run;
    QColor runColour;
    const auto flushGlow = [&] {
        if (run.isNull()) return;
        p.fillRect(run.adjusted(-1.5, -1.5, 1.5, 1.5), theme::withAlpha(runColour, 0.35));
        run = QRectF();
    };
    for (int i = 0; i < scale_.segmentCount(); ++i) {
        if (!scale_.lit(i, value_)) continue;
        const QColor c = SegmentScale::zoneColour(scale_.level(i));
        if (c != runColour) flushGlow();
        runColour = c;
        run = run.isNull() ? segmentRect(i) : run.united(segmentRect(i));
    }
    flushGlow();
    for (int i = 0; i < scale_.segmentCount(); ++i)
        if (scale_.lit(i, value_))
            p.fillRect(theme::snapped(segmentRect(i), dpr), SegmentScale::zoneColour(scale_.level(i)));
}

void SegmentedMeter::paintScale(QPainter& p, double x, double width, Qt::Alignment align) const {
    const QRectF bar = barRect();
    p.setFont(theme::monoFont(theme::scalePx));
    p.setPen(theme::withAlpha(Qt::white, 0.75));
    for (int v : scale_.labelLevels(labelEvery())) {
        const double y = bar.top() + bar.height() * (0 - v) / scale_.span();
        p.drawText(QRectF(x, y - theme::scalePx, width, 2 * theme::scalePx), align | Qt::AlignVCenter,
                   QString::number(v));
    }
}

void SegmentedMeter::paintEvent(QPaintEvent*) {
    QPainter p(this);
    static_.paint(p, size(), [this](QPainter& layer) { paintStatic(layer); });
    paintLit(p);
    paintReadings(p);
}

AccessibleReading SegmentedMeter::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::ProgressBar;
    r.value = readout();
    r.number = std::isfinite(value_) ? value_ : -scale_.span();
    r.minimum = -scale_.span();
    r.maximum = 0;
    return r;
}

}  // namespace velmora
