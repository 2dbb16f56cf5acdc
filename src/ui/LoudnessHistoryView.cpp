#include "ui/LoudnessHistoryView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "audio/NumberFormat.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr double leftMargin = 30, bottomMargin = 16, topMargin = 4, rightMargin = 6;
constexpr double eventStrip = 5;     // marks of the overs, along the bottom of the plot
constexpr double minimumSpan = 2.0;  // seconds: a closer view shows no more (100 ms points)
constexpr double dragThreshold = 3;  // pixels a press may wander and still be a click

const QColor momentaryColour = theme::withAlpha(theme::spectrum, 0.75);
const QColor shortTermColour = theme::accent;
const QColor integratedColour = theme::ledGreen;

QColor eventColour(EventKind k) {
    switch (k) {
    case EventKind::clipping: return theme::zoneRed;
    case EventKind::truePeakOver: return theme::accent;
    case EventKind::shortTermOver: return theme::zoneAmber;
    case EventKind::momentaryOver: return theme::spectrum;
    }
    return theme::textSecondary;
}

QString oneDecimal(double v) { return std::isfinite(v) ? QString::fromStdString(formatOneDecimal(v)) : QStringLiteral("—"); }

// "1:05", "1:00:05": the time axis labels.
QString clockLabel(double seconds) {
    const auto s = static_cast<long long>(std::llround(seconds));
    const auto two = [](long long v) { return QStringLiteral("%1").arg(v, 2, 10, QLatin1Char('0')); };
    if (s >= 3600) return QString::number(s / 3600) + ':' + two(s / 60 % 60) + ':' + two(s % 60);
    return QString::number(s / 60) + ':' + two(s % 60);
}
}  // namespace

LoudnessHistoryView::LoudnessHistoryView(QWidget* parent) : QWidget(parent) {
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::CrossCursor);
}

double LoudnessHistoryView::duration() const {
    if (!detail_ || detail_->history.size() < 2) return 0.0;
    return LoudnessHistory::secondsAt(detail_->history.size() - 1);
}

void LoudnessHistoryView::setHistory(std::shared_ptr<const ProgrammeDetail> detail) {
    if (detail == detail_) return;
    detail_ = std::move(detail);
    live_.clear();
    chooseScale();
    viewStart_ = 0.0;
    viewEnd_ = std::max(duration(), minimumSpan);
    viewChanged();
}

void LoudnessHistoryView::setEvents(std::vector<LoudnessEvent> events) {
    const auto same = [](const LoudnessEvent& a, const LoudnessEvent& b) {
        return a.kind == b.kind && a.startSeconds == b.startSeconds && a.endSeconds == b.endSeconds;
    };
    if (std::equal(events.begin(), events.end(), events_.begin(), events_.end(), same)) return;
    events_ = std::move(events);
    viewChanged();
}

void LoudnessHistoryView::setTargetBand(double target, double tolerance) {
    if (target == target_ && tolerance == tolerance_) return;
    target_ = target;
    tolerance_ = tolerance;
    chooseScale();
    viewChanged();
}

void LoudnessHistoryView::chooseScale() {
    // The loudest reading and the target band both in view, 48 LU tall in whole steps of 6.
    double loudest = target_ + 6.0;
    if (detail_)
        for (float v : detail_->history.momentary)
            if (std::isfinite(v)) loudest = std::max(loudest, double(v));
    top_ = std::min(6.0, std::ceil((loudest + 2.0) / 6.0) * 6.0);
    bottom_ = top_ - 48.0;
}

void LoudnessHistoryView::setView(double start, double end) {
    const double total = std::max(duration(), minimumSpan);
    double span = std::clamp(end - start, minimumSpan, total);
    start = std::clamp(start, 0.0, total - span);
    if (start == viewStart_ && start + span == viewEnd_) return;
    viewStart_ = start;
    viewEnd_ = start + span;
    viewChanged();
}

void LoudnessHistoryView::viewChanged() {
    layer_.invalidate();
    update();
}

QRectF LoudnessHistoryView::plot() const {
    return QRectF(leftMargin, topMargin, std::max(1.0, width() - leftMargin - rightMargin),
                  std::max(1.0, height() - topMargin - bottomMargin));
}

double LoudnessHistoryView::secondsAtX(double x) const {
    const QRectF r = plot();
    return viewStart_ + (x - r.left()) / r.width() * (viewEnd_ - viewStart_);
}

double LoudnessHistoryView::xAtSeconds(double s) const {
    const QRectF r = plot();
    return r.left() + (s - viewStart_) / (viewEnd_ - viewStart_) * r.width();
}

double LoudnessHistoryView::yAt(double lufs) const {
    const QRectF r = plot();
    return r.top() + (top_ - std::clamp(lufs, bottom_, top_)) / (top_ - bottom_) * r.height();
}

void LoudnessHistoryView::setPlayhead(double seconds) {
    if (seconds == playhead_) return;
    const double oldX = xAtSeconds(playhead_);
    playhead_ = seconds;
    repaintCursor(oldX, xAtSeconds(playhead_));
}

void LoudnessHistoryView::repaintCursor(double oldX, double newX) {
    // Only the columns the line leaves and reaches: the layer under them is cached.
    const int h = height();
    if (std::fabs(oldX - newX) < 0.01) return;
    update(QRect(int(std::floor(oldX)) - 2, 0, 5, h));
    update(QRect(int(std::floor(newX)) - 2, 0, 5, h));
}

void LoudnessHistoryView::addLiveReading(double seconds, double momentary, double shortTerm) {
    if (!live_.empty() && std::fabs(seconds - live_.back().seconds) < LoudnessHistory::stepSeconds) return;
    // A seek backwards starts the live line again from there.
    if (!live_.empty() && seconds < live_.back().seconds) live_.clear();
    live_.push_back({seconds, float(momentary), float(shortTerm)});
    update();
}

void LoudnessHistoryView::clearLive() {
    if (live_.empty()) return;
    live_.clear();
    update();
}

QString LoudnessHistoryView::readout() const {
    if (!pointerX_ || !detail_ || detail_->history.empty()) return {};
    const double t = std::clamp(secondsAtX(*pointerX_), 0.0, duration());
    const auto& h = detail_->history;
    const auto k = std::min(h.size() - 1, std::size_t(std::llround(t / LoudnessHistory::stepSeconds)));
    return QString::fromStdString(timecode(t)) + QStringLiteral("   M ") + oneDecimal(h.momentary[k]) +
           QStringLiteral("   S ") + oneDecimal(h.shortTerm[k]) + QStringLiteral("   I ") + oneDecimal(h.integrated[k]) +
           QStringLiteral(" LUFS");
}

void LoudnessHistoryView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    layer_.paint(p, size(), [this](QPainter& q) { drawLayer(q); });
    if (!detail_ || detail_->history.empty()) return;
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = plot();
    drawLive(p);
    const auto vertical = [&](double x, const QColor& colour) {
        if (x < r.left() || x > r.right()) return;
        p.setPen(QPen(colour, 1.0));
        p.drawLine(QPointF(x, r.top()), QPointF(x, r.bottom()));
    };
    vertical(xAtSeconds(playhead_), theme::textPrimary);
    if (pointerX_ && !dragging_) {
        vertical(*pointerX_, theme::withAlpha(theme::textPrimary, 0.35));
        const QString text = readout();
        p.setFont(theme::monoFont(theme::scalePx + 1));
        const QRectF box(r.left() + 4, r.top() + 3, p.fontMetrics().horizontalAdvance(text) + 10, 16);
        p.fillRect(box, theme::withAlpha(theme::chrome, 0.85));
        p.setPen(theme::textPrimary);
        p.drawText(box, Qt::AlignCenter, text);
    }
}

void LoudnessHistoryView::drawLayer(QPainter& p) const {
    p.fillRect(rect(), theme::well);
    const QRectF r = plot();
    p.setFont(theme::monoFont(theme::scalePx));
    if (!detail_ || detail_->history.empty()) {
        p.setPen(theme::textDisabled);
        p.drawText(rect(), Qt::AlignCenter, QStringLiteral("Aucune mesure dans le temps"));
        return;
    }
    // The target band under everything.
    const double bandTop = yAt(target_ + tolerance_), bandBottom = yAt(target_ - tolerance_);
    p.fillRect(QRectF(r.left(), bandTop, r.width(), std::max(1.0, bandBottom - bandTop)),
               theme::withAlpha(theme::ledGreen, 0.16));
    p.setPen(QPen(theme::withAlpha(theme::ledGreen, 0.55), 1.0, Qt::DashLine));
    p.drawLine(QPointF(r.left(), yAt(target_)), QPointF(r.right(), yAt(target_)));
    for (double level = top_; level >= bottom_ - 1e-9; level -= 6.0) {
        p.setPen(QPen(theme::grid, 1.0));
        p.drawLine(QPointF(r.left(), yAt(level)), QPointF(r.right(), yAt(level)));
        p.setPen(theme::textSecondary);
        p.drawText(QRectF(0, yAt(level) - 6, leftMargin - 4, 12), Qt::AlignRight | Qt::AlignVCenter,
                   QString::number(int(level)));
    }
    static constexpr double tickSteps[] = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200};
    const double span = viewEnd_ - viewStart_;
    double tick = tickSteps[std::size(tickSteps) - 1];
    for (double s : tickSteps)
        if (span / s <= r.width() / 70.0) {
            tick = s;
            break;
        }
    for (double t = std::ceil(viewStart_ / tick) * tick; t <= viewEnd_ + 1e-9; t += tick) {
        const double x = xAtSeconds(t);
        p.setPen(QPen(theme::withAlpha(theme::grid, 0.7), 1.0));
        p.drawLine(QPointF(x, r.top()), QPointF(x, r.bottom()));
        p.setPen(theme::textSecondary);
        // Kept whole inside the widget at both ends.
        const double labelX = std::clamp(x - 30, 0.0, width() - 60.0);
        const int align = labelX < x - 30 ? Qt::AlignRight : labelX > x - 30 ? Qt::AlignLeft : Qt::AlignHCenter;
        p.drawText(QRectF(labelX, r.bottom() + 2, 60, bottomMargin - 2), align | Qt::AlignTop, clockLabel(t));
    }
    p.setRenderHint(QPainter::Antialiasing);
    drawCurves(p);
    p.setRenderHint(QPainter::Antialiasing, false);
    // Loudness overs under the true-peak overs, clipping on top: the worst stays visible.
    constexpr EventKind layers[] = {EventKind::momentaryOver, EventKind::shortTermOver, EventKind::truePeakOver,
                                    EventKind::clipping};
    for (EventKind kind : layers) {
        for (const auto& e : events_) {
            if (e.kind != kind || e.endSeconds < viewStart_ || e.startSeconds > viewEnd_) continue;
            const double x0 = std::max(r.left(), xAtSeconds(e.startSeconds));
            const double x1 = std::min(r.right(), std::max(xAtSeconds(e.endSeconds), x0 + 2.0));
            p.fillRect(QRectF(x0, r.bottom() - eventStrip, x1 - x0, eventStrip), eventColour(e.kind));
        }
    }
    p.setPen(theme::panelBorder);
    p.setBrush(Qt::NoBrush);
    p.drawRect(r);
}

void LoudnessHistoryView::drawCurves(QPainter& p) const {
    const auto& h = detail_->history;
    const QRectF r = plot();
    const double step = LoudnessHistory::stepSeconds;
    const auto first = std::size_t(std::max(0.0, std::floor(viewStart_ / step)));
    const auto last = std::min(h.size() - 1, std::size_t(std::ceil(viewEnd_ / step)));
    if (first > last) return;
    const auto columns = std::max<std::size_t>(1, std::size_t(r.width()));
    // Few points: each one; many: the loudest of each pixel column (the last, for the integrated
    // line, which only drifts), so two hours cost one pass and a path of a few hundred points.
    const std::size_t perColumn = std::max<std::size_t>(1, (last - first + 1) / columns);
    const auto series = [&](const std::vector<float>& v, bool loudest) {
        QPainterPath path;
        bool open = false;
        for (std::size_t k = first; k <= last; k += perColumn) {
            const std::size_t end = std::min(last + 1, k + perColumn);
            float value = -INFINITY;
            for (std::size_t j = k; j < end; ++j)
                if (std::isfinite(v[j])) value = loudest ? std::max(value, v[j]) : v[j];
            if (!std::isfinite(value)) {
                open = false;
                continue;
            }
            const QPointF at(xAtSeconds(LoudnessHistory::secondsAt(k)), yAt(value));
            if (open) path.lineTo(at);
            else path.moveTo(at);
            open = true;
        }
        return path;
    };
    p.setBrush(Qt::NoBrush);
    p.save();
    p.setClipRect(r.toAlignedRect());
    // One-device-pixel cosmetic pens take the painter's fast antialiased line path; a wider pen
    // is stroked into polygons, ten times slower over two hours of points. A heavier line is the
    // same thin one drawn again a device pixel lower.
    const double ratio = theme::devicePixelRatio(p);
    const auto stroke = [&](const QPainterPath& path, const QColor& colour, int passes) {
        QPen pen(colour, 1.0);
        pen.setCosmetic(true);
        p.setPen(pen);
        for (int k = 0; k < passes; ++k) p.drawPath(k == 0 ? path : path.translated(0, k / ratio));
    };
    stroke(series(h.momentary, true), momentaryColour, 1);
    stroke(series(h.shortTerm, true), shortTermColour, 2);
    stroke(series(h.integrated, false), integratedColour, 2);
    p.restore();
}

void LoudnessHistoryView::drawLive(QPainter& p) const {
    if (live_.size() < 2) return;
    QPainterPath momentary, shortTerm;
    bool openM = false, openS = false;
    for (const auto& point : live_) {
        if (point.seconds < viewStart_ - 1.0 || point.seconds > viewEnd_ + 1.0) continue;
        const double x = xAtSeconds(point.seconds);
        const auto add = [&](QPainterPath& path, bool& open, float v) {
            if (!std::isfinite(v)) return void(open = false);
            if (open) path.lineTo(x, yAt(v));
            else path.moveTo(x, yAt(v));
            open = true;
        };
        add(momentary, openM, point.momentary);
        add(shortTerm, openS, point.shortTerm);
    }
    p.save();
    p.setClipRect(plot().toAlignedRect());
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(theme::withAlpha(theme::zoneRed, 0.6), 1.0));
    p.drawPath(momentary);
    p.setPen(QPen(theme::zoneRed, 1.8));
    p.drawPath(shortTerm);
    p.restore();
}

void LoudnessHistoryView::resizeEvent(QResizeEvent*) { layer_.invalidate(); }

void LoudnessHistoryView::wheelEvent(QWheelEvent* e) {
    if (duration() <= 0) return e->ignore();
    const double steps = e->angleDelta().y() / 120.0;
    if (steps == 0) return e->ignore();
    const double x = e->position().x();
    const double anchor = secondsAtX(x);
    const double span = (viewEnd_ - viewStart_) * std::pow(0.8, steps);
    const double clamped = std::clamp(span, minimumSpan, std::max(duration(), minimumSpan));
    // The time under the pointer stays under it.
    const double start = anchor - (x - plot().left()) / plot().width() * clamped;
    setView(start, start + clamped);
    e->accept();
}

void LoudnessHistoryView::mousePressEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton) return QWidget::mousePressEvent(e);
    pressAt_ = e->position();
    pressViewStart_ = viewStart_;
    dragging_ = false;
}

void LoudnessHistoryView::mouseMoveEvent(QMouseEvent* e) {
    const double x = e->position().x();
    if (pressAt_) {
        const double dx = x - pressAt_->x();
        if (std::fabs(dx) > dragThreshold) dragging_ = true;
        if (dragging_) {
            const double span = viewEnd_ - viewStart_;
            const double start = pressViewStart_ - dx / plot().width() * span;
            setView(start, start + span);
        }
    }
    pointerX_ = x;
    update();
}

void LoudnessHistoryView::mouseReleaseEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton || !pressAt_) return QWidget::mouseReleaseEvent(e);
    const bool click = !dragging_;
    pressAt_.reset();
    dragging_ = false;
    if (click && duration() > 0) emit seekRequested(std::clamp(secondsAtX(e->position().x()), 0.0, duration()));
    update();
}

void LoudnessHistoryView::leaveEvent(QEvent*) {
    pointerX_.reset();
    update();
}

}  // namespace velmora
