#include "ui/GainReductionMeter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double titleHeight = 16;
constexpr double readoutHeight = 16;
constexpr double barWidth = 12;
constexpr double labelHalf = 6;

double scaleWidth() { return theme::scaleLabelWidth() + 1; }

}  // namespace

GainReductionMeter::GainReductionMeter(QWidget* parent) : QWidget(parent) {
    installStudioAccessibility();
    setAccessibleName(QStringLiteral("GR"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
}

void GainReductionMeter::setReduction(double reductionDB) {
    const double before = shownDB();
    reductionDB_ = reductionDB;
    if (fixedText(before, 1) != fixedText(shownDB(), 1)) {
        announceValueChange(this, shownDB());
        update();
    }
}

void GainReductionMeter::setMaximum(double maxDB) {
    maxDB_ = maxDB > 0 ? maxDB : 12;
    scale_.invalidate();
    update();
}

void GainReductionMeter::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    scale_.invalidate();
}

double GainReductionMeter::shownDB() const { return std::isfinite(reductionDB_) ? std::fabs(reductionDB_) : 0.0; }

QString GainReductionMeter::readout() const {
    const QString magnitude = fixedText(shownDB(), 1);
    return magnitude == QStringLiteral("0.0") ? magnitude : QLatin1Char('-') + magnitude;
}

double GainReductionMeter::labelStep() const {
    for (double step : {1.0, 2.0, 3.0, 5.0, 6.0, 10.0})
        if (maxDB_ / step <= 6) return step;
    return std::ceil(maxDB_ / 6);
}

QRectF GainReductionMeter::barRect() const {
    const double top = titleHeight + 3 + labelHalf;
    const double left = (width() - (3 + barWidth + 3 + 4 + scaleWidth())) / 2 + 3;
    return QRectF(std::round(left), top, barWidth, std::max(40.0, height() - readoutHeight - 3 - labelHalf - top));
}

QRectF GainReductionMeter::fillRect() const {
    const QRectF bar = barRect();
    return QRectF(bar.left(), bar.top(), bar.width(), bar.height() * std::min(shownDB() / maxDB_, 1.0));
}

QSize GainReductionMeter::sizeHint() const {
    const double readout = QFontMetricsF(theme::monoFont(theme::readoutPx)).horizontalAdvance(QStringLiteral("-20.0"));
    return QSize(int(std::ceil(std::max(readout, 3 + barWidth + 3 + 4 + scaleWidth()) + 8)), 190);
}

void GainReductionMeter::paintScale(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(0, 0, width(), titleHeight), Qt::AlignCenter, QStringLiteral("GR"));
    const QRectF bar = barRect();
    theme::paintPanel(p, bar.adjusted(-3, -3, 3, 3), theme::controlRadius, theme::well);
    p.setFont(theme::monoFont(theme::scalePx));
    const double step = labelStep();
    for (double d = 0; d <= maxDB_ + 1e-9; d += step) {
        const double y = bar.top() + bar.height() * d / maxDB_;
        p.setPen(theme::withAlpha(Qt::white, 0.2));
        p.drawLine(QPointF(bar.left(), y), QPointF(bar.right(), y));
        p.setPen(theme::withAlpha(Qt::white, 0.75));
        p.drawText(QRectF(bar.right() + 7, y - theme::scalePx, scaleWidth(), 2 * theme::scalePx),
                   Qt::AlignLeft | Qt::AlignVCenter, QString::number(int(std::lround(-d))));
    }
}

void GainReductionMeter::paintEvent(QPaintEvent*) {
    QPainter p(this);
    scale_.paint(p, size(), [this](QPainter& layer) { paintScale(layer); });
    const QRectF fill = fillRect();
    if (fill.height() > 0) {
        const double dpr = theme::devicePixelRatio(p);
        p.fillRect(fill.adjusted(-1.5, -1.5, 1.5, 1.5), theme::withAlpha(theme::accent, 0.3));
        p.fillRect(theme::snapped(fill, dpr), theme::accent);
    }
    p.setFont(theme::monoFont(theme::readoutPx));
    p.setPen(shownDB() > 0 ? theme::textPrimary : theme::textSecondary);
    p.drawText(QRectF(0, height() - readoutHeight, width(), readoutHeight), Qt::AlignCenter, readout());
}

AccessibleReading GainReductionMeter::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::ProgressBar;
    r.value = readout() + QStringLiteral(" dB");
    r.number = shownDB();
    r.minimum = 0;
    r.maximum = maxDB_;
    return r;
}

}  // namespace velmora
