#include "ui/CompCurveGraphView.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "mastering/ParamRanges.h"
#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double spanDB = 60;  // both axes run from -60 to 0 dB
constexpr double axisWidth = 24;
constexpr double axisHeight = 16;
constexpr double grabRadius = 14;
constexpr double rightMargin = 8;  // the top handle sits on the plot's right edge: room for all of it
constexpr double titleGap = 8;     // the 0 dB label stands half above the plot

}  // namespace

CompCurveGraphView::CompCurveGraphView(QWidget* parent) : QWidget(parent) {
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    setAccessibleName(QStringLiteral("COURBE DE TRANSFERT"));
}

void CompCurveGraphView::setThreshold(double dB) {
    threshold_ = dB;
    update();
}

void CompCurveGraphView::setRatio(double ratio) {
    ratio_ = ratio;
    update();
}

void CompCurveGraphView::setMakeup(double dB) {
    makeup_ = dB;
    update();
}

void CompCurveGraphView::setBypassed(bool bypassed) {
    if (bypassed == bypassed_) return;
    bypassed_ = bypassed;
    static_.invalidate();
    update();
}

QString CompCurveGraphView::readout() const { return fixedText(threshold_, 1) + QStringLiteral(" dB · ") + fixedText(ratio_, 1) + QStringLiteral(":1"); }

double CompCurveGraphView::outputFor(double input) const {
    if (input <= threshold_ || ratio_ <= 0) return input + makeup_;
    return threshold_ + (input - threshold_) / ratio_ + makeup_;
}

void CompCurveGraphView::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    static_.invalidate();
}

QRectF CompCurveGraphView::plotRect() const {
    const double top = title_.height(width()) + titleGap;
    return QRectF(axisWidth, top, std::max(40.0, width() - axisWidth - rightMargin),
                  std::max(40.0, height() - top - axisHeight));
}

QPointF CompCurveGraphView::pointFor(double input, double output) const {
    const QRectF plot = plotRect();
    return QPointF(plot.left() + (input + spanDB) / spanDB * plot.width(), plot.top() - output / spanDB * plot.height());
}

QPointF CompCurveGraphView::handlePoint(Handle handle) const {
    const double input = handle == Handle::knee ? threshold_ : 0.0;
    const QPointF p = pointFor(input, outputFor(input));
    const QRectF plot = plotRect();
    return QPointF(std::clamp(p.x(), plot.left(), plot.right()), std::clamp(p.y(), plot.top(), plot.bottom()));
}

std::optional<CompCurveGraphView::Handle> CompCurveGraphView::handleNear(QPointF pos) const {
    std::optional<Handle> best;
    double bestDistance = grabRadius;
    for (Handle h : {Handle::knee, Handle::top}) {
        const QPointF d = handlePoint(h) - pos;
        if (const double distance = std::hypot(d.x(), d.y()); distance <= bestDistance) {
            bestDistance = distance;
            best = h;
        }
    }
    return best;
}

void CompCurveGraphView::drag(QPointF pos) {
    const QRectF plot = plotRect();
    const double x = std::clamp(pos.x() - plot.left(), 0.0, plot.width());
    const double y = std::clamp(pos.y() - plot.top(), 0.0, plot.height());
    if (dragged_ == Handle::knee) {
        const double threshold = rangeOf(&MasterParams::compThreshold)->clamp(x / plot.width() * spanDB - spanDB);
        if (threshold == threshold_) return;
        setThreshold(threshold);
        emit thresholdEdited(threshold_);
    } else {
        // The output the user holds the top at, for 0 dB in; at or under the knee no ratio
        // reaches it, and the steepest one is the answer.
        const double o = -spanDB * y / plot.height();
        const double rise = o - makeup_ - threshold_;
        const ParamRange ratios = *rangeOf(&MasterParams::compRatio);
        const double ratio = rise > 0.1 ? ratios.clamp((0 - threshold_) / rise) : ratios.high;
        if (ratio == ratio_) return;
        setRatio(ratio);
        emit ratioEdited(ratio_);
    }
}

void CompCurveGraphView::mousePressEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton) return QWidget::mousePressEvent(e);
    dragged_ = handleNear(e->position());
    if (dragged_) {
        setCursor(dragged_ == Handle::knee ? Qt::SizeHorCursor : Qt::SizeVerCursor);
        update();
    }
}

void CompCurveGraphView::mouseMoveEvent(QMouseEvent* e) {
    if (dragged_ && (e->buttons() & Qt::LeftButton)) return drag(e->position());
    const auto near = handleNear(e->position());
    if (near != hovered_) {
        hovered_ = near;
        setCursor(!near ? Qt::ArrowCursor : near == Handle::knee ? Qt::SizeHorCursor : Qt::SizeVerCursor);
        update();
    }
}

void CompCurveGraphView::mouseReleaseEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton || !dragged_) return QWidget::mouseReleaseEvent(e);
    dragged_.reset();
    update();
}

void CompCurveGraphView::leaveEvent(QEvent*) {
    if (!hovered_) return;
    hovered_.reset();
    update();
}

void CompCurveGraphView::paintStatic(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    title_.paint(p, width(), bypassed_);

    const QRectF plot = plotRect();
    theme::paintPanel(p, plot, theme::controlRadius + 2, theme::well);
    p.setRenderHint(QPainter::Antialiasing, false);
    p.setFont(theme::monoFont(theme::scalePx));
    for (int db = -50; db <= -10; db += 10) {
        const QPointF at = pointFor(db, db);
        const double x = std::round(at.x()) + 0.5, y = std::round(at.y()) + 0.5;
        p.setPen(QPen(theme::grid, 1));
        p.drawLine(QPointF(x, plot.top() + 1), QPointF(x, plot.bottom() - 1));
        p.drawLine(QPointF(plot.left() + 1, y), QPointF(plot.right() - 1, y));
    }
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(theme::withAlpha(Qt::white, 0.75));
    for (int db = -60; db <= 0; db += 10) {
        const QPointF at = pointFor(db, db);
        p.drawText(QRectF(0, at.y() - 7, axisWidth - 4, 14), Qt::AlignRight | Qt::AlignVCenter, QString::number(db));
        QRectF label(at.x() - 15, plot.bottom() + 1, 30, axisHeight - 1);
        Qt::Alignment align = Qt::AlignHCenter;
        if (db == -60) label.moveLeft(plot.left() + 2), align = Qt::AlignLeft;
        if (db == 0) label.moveRight(plot.right() - 2), align = Qt::AlignRight;
        p.drawText(label, align | Qt::AlignVCenter, QString::number(db));
    }
    p.setPen(QPen(theme::withAlpha(theme::textSecondary, 0.35), 1, Qt::DashLine));
    p.drawLine(pointFor(-spanDB, -spanDB), pointFor(0, 0));  // unity
}

void CompCurveGraphView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    static_.paint(p, size(), [this](QPainter& layer) { paintStatic(layer); });
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF plot = plotRect();

    p.save();
    p.setClipRect(plot.adjusted(1, 1, -1, -1));
    const QPointF knee = pointFor(threshold_, outputFor(threshold_));
    const QPointF curve[] = {pointFor(-spanDB, outputFor(-spanDB)), knee, pointFor(0, outputFor(0))};
    if (bypassed_) {
        p.setPen(QPen(theme::withAlpha(theme::textSecondary, 0.3), 1, Qt::DashLine));
        p.drawPolyline(curve, 3);
        p.setPen(QPen(theme::textSecondary, 2, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(pointFor(-spanDB, -spanDB), pointFor(0, 0));
    } else {
        p.setPen(QPen(theme::withAlpha(theme::accent, 0.35), 1, Qt::DashLine));
        p.drawLine(QPointF(knee.x(), plot.top()), QPointF(knee.x(), plot.bottom()));
        p.setPen(QPen(theme::accent, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(curve, 3);
    }
    p.restore();

    for (Handle h : {Handle::knee, Handle::top}) {
        const bool grabbed = dragged_ == h || (!dragged_ && hovered_ == h);
        const QColor fill = h == Handle::knee ? theme::accent : theme::textPrimary;
        p.setPen(QPen(grabbed ? theme::textPrimary : theme::chrome, grabbed ? 2 : 1.5));
        p.setBrush(bypassed_ ? theme::withAlpha(fill, 0.35) : fill);
        p.drawEllipse(handlePoint(h), 5.5, 5.5);
    }
    if (bypassed_) paintBypassMark(p, plot, true);

    p.setFont(theme::monoFont(theme::readoutPx));
    p.setPen(bypassed_ ? theme::textDisabled : theme::textPrimary);
    p.drawText(QRectF(plot.left() + 8, plot.top() + 5, plot.width() - 16, 16), Qt::AlignLeft | Qt::AlignVCenter,
               readout());
}

}  // namespace velmora
