#include "ui/EQCurveGraphView.h"

#include <QFontMetricsF>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QPainter>
#include <algorithm>
#include <array>
#include <cmath>

#include "mastering/ParamRanges.h"
#include "ui/EqualiserResponse.h"
#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double axisHeight = 16;
constexpr double grabRadius = 12;
constexpr double dBScaleWidth = 40;  // the "+12" … "0 dB" labels at the plot's left
constexpr double lowestHz = 20;
constexpr double decades = 3;  // 20 Hz to 20 kHz

struct BandRule {
    EQBand band;
    const char* name;
    double lowHz, highHz;
    double MasterParams::*frequency;
    double MasterParams::*gain;  // null: the high-pass has none
    double MasterParams::*q;     // null: only the peaking bands have one
    QColor colour;
};

const std::array<BandRule, 5>& bandRules() {
    // The frequency ranges are the knobs' own (ParamRanges.h).
    const auto low = [](double MasterParams::*f) { return rangeOf(f)->low; };
    const auto high = [](double MasterParams::*f) { return rangeOf(f)->high; };
    using P = MasterParams;
    static const std::array<BandRule, 5> rules{{
        {EQBand::highPass, "HPF", low(&P::hpfFreq), high(&P::hpfFreq), &P::hpfFreq, nullptr, nullptr, theme::bandHighPass},
        {EQBand::lowShelf, "GRAVES", low(&P::lsFreq), high(&P::lsFreq), &P::lsFreq, &P::lsGain, nullptr, theme::bandLow},
        {EQBand::lowMid, "BAS-MÉD", low(&P::b1Freq), high(&P::b1Freq), &P::b1Freq, &P::b1Gain, &P::b1Q, theme::bandLowMid},
        {EQBand::highMid, "HAUT-MÉD", low(&P::b2Freq), high(&P::b2Freq), &P::b2Freq, &P::b2Gain, &P::b2Q,
         theme::bandHighMid},
        {EQBand::highShelf, "AIGUS", low(&P::hsFreq), high(&P::hsFreq), &P::hsFreq, &P::hsGain, nullptr, theme::bandHigh},
    }};
    return rules;
}

const BandRule& rule(EQBand band) { return bandRules()[std::size_t(band)]; }

QString frequencyText(double hz) {
    return hz >= 1000 ? fixedText(hz / 1000, 1) + QStringLiteral(" kHz") : fixedText(hz, 0) + QStringLiteral(" Hz");
}

// The grid: labelled lines, then the unlabelled ones between them.
const std::array<std::pair<double, const char*>, 5> labelledHz{{{20, "20"}, {100, "100"}, {1000, "1k"}, {10000, "10k"}, {20000, "20k"}}};
constexpr std::array<double, 5> minorHz{50, 200, 500, 2000, 5000};
constexpr std::array<double, 4> gridDB{12, 6, -6, -12};

}  // namespace

EQCurveGraphView::EQCurveGraphView(QWidget* parent) : QWidget(parent) {
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    setAccessibleName(QStringLiteral("RÉPONSE EN FRÉQUENCE DE L'ÉGALISEUR"));
    setToolTip(QStringLiteral("Glisser un point : fréquence et gain · Maj + glisser, ou molette sur un point après un clic dans le graphe : Q"));
    setFocusPolicy(Qt::ClickFocus);  // the wheel's Q needs a click first: scrolling past must not change it
    sections_ = fiveBandSections(params_, sampleRate_);
}

void EQCurveGraphView::setParams(const MasterParams& params) {
    if (params == params_) return;
    std::vector<Biquad> sections = fiveBandSections(params, sampleRate_);
    const bool redraw = sections != sections_ || params.eqOn != params_.eqOn;  // eqOn colours the curve
    if (params.eqOn != params_.eqOn) static_.invalidate();  // the title greys out with the stage
    params_ = params;
    sections_ = std::move(sections);
    if (redraw) curveChanged();
    else update();  // a point moved within the gate: the curve stays, the point does not
}

void EQCurveGraphView::setSampleRate(double sampleRateHz) {
    const double rate = responseRate(sampleRateHz);
    if (rate == sampleRate_) return;
    sampleRate_ = rate;
    sections_ = fiveBandSections(params_, sampleRate_);
    curveChanged();
}

void EQCurveGraphView::setSpectrum(std::vector<float> spectrum) {
    if (peakHold_.size() != spectrum.size()) {
        peakHold_ = spectrum;
    } else {
        for (std::size_t i = 0; i < spectrum.size(); ++i) peakHold_[i] = std::max(spectrum[i], 0.92f * peakHold_[i]);
    }
    spectrum_ = std::move(spectrum);
    update();
}

void EQCurveGraphView::curveChanged() {
    curve_.clear();
    curveLayer_.invalidate();
    curveMoving_ = true;
    update();
}

void EQCurveGraphView::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    static_.invalidate();
    scale_.invalidate();
    curveLayer_.invalidate();
    curve_.clear();
}

QRectF EQCurveGraphView::plotRect() const {
    const double top = title_.height(width()) + 2;
    return QRectF(0, top, width(), std::max(40.0, height() - top - axisHeight));
}

double EQCurveGraphView::xForFrequency(double hz) const {
    return plotRect().width() * (std::log10(hz) - std::log10(lowestHz)) / decades;
}

double EQCurveGraphView::frequencyAt(double x) const {
    // 10^(log10 20 + 3·x/w), written so both ends come out exact (20 Hz, 20 kHz).
    return lowestHz * std::pow(10.0, decades * x / plotRect().width());
}

double EQCurveGraphView::yForGain(double dB) const {
    const double centre = plotRect().height() / 2;
    return centre - dB / rangeDB * (centre - topMargin);
}

double EQCurveGraphView::curveDB(double x) const {
    return std::clamp(cascadeResponseDB(sections_, frequencyAt(x), sampleRate_), -rangeDB, rangeDB);
}

QPointF EQCurveGraphView::bandPoint(EQBand band) const {
    const BandRule& r = rule(band);
    const QRectF plot = plotRect();
    const double gain = r.gain ? params_.*r.gain : 0.0;
    return QPointF(plot.left() + xForFrequency(params_.*r.frequency), plot.top() + yForGain(gain));
}

std::optional<EQBand> EQCurveGraphView::bandNear(QPointF pos) const {
    std::optional<EQBand> best;
    double bestDistance = grabRadius;
    for (const BandRule& r : bandRules()) {
        const QPointF d = bandPoint(r.band) - pos;
        const double distance = std::hypot(d.x(), d.y());
        if (distance <= bestDistance) {
            bestDistance = distance;
            best = r.band;
        }
    }
    return best;
}

void EQCurveGraphView::drag(QPointF pos, Qt::KeyboardModifiers modifiers) {
    const BandRule& r = rule(*dragged_);
    const QRectF plot = plotRect();
    const double x = std::clamp(pos.x() - plot.left(), 0.0, plot.width());
    const double y = std::clamp(pos.y() - plot.top(), 0.0, plot.height());
    MasterParams edited = params_;
    if (modifiers & (Qt::AltModifier | Qt::ControlModifier | Qt::ShiftModifier)) {
        if (!r.q) return;  // a shelf or the high-pass has no Q: the gesture does nothing
        const ParamRange q = *rangeOf(r.q);
        edited.*r.q = (1 - y / plot.height()) * (q.high - q.low) + q.low;
        readout_ = QString::fromUtf8(r.name) + QStringLiteral(" · Q ") + fixedText(edited.*r.q, 2);
    } else {
        edited.*r.frequency = std::clamp(frequencyAt(x), r.lowHz, r.highHz);
        readout_ = QString::fromUtf8(r.name) + QStringLiteral(" · ") + frequencyText(edited.*r.frequency);
        if (r.gain) {
            const double centre = plot.height() / 2;
            edited.*r.gain = rangeOf(r.gain)->clamp((centre - y) / (centre - topMargin) * rangeDB);
            readout_ += QStringLiteral(" · ") + signedFixedText(edited.*r.gain, 1) + QStringLiteral(" dB");
        }
    }
    update();
    if (edited == params_) return;
    setParams(edited);
    emit paramsEdited(params_);
}

void EQCurveGraphView::mousePressEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton) return QWidget::mousePressEvent(e);
    dragged_ = bandNear(e->position());
    if (dragged_) {
        setCursor(Qt::ClosedHandCursor);
        drag(e->position(), e->modifiers());
    }
}

void EQCurveGraphView::mouseMoveEvent(QMouseEvent* e) {
    if (dragged_ && (e->buttons() & Qt::LeftButton)) return drag(e->position(), e->modifiers());
    const auto near = bandNear(e->position());
    if (near != hovered_) {
        hovered_ = near;
        setCursor(near ? Qt::OpenHandCursor : Qt::ArrowCursor);
        update();
    }
}

void EQCurveGraphView::mouseReleaseEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton || !dragged_) return QWidget::mouseReleaseEvent(e);
    dragged_.reset();
    readout_.clear();
    setCursor(bandNear(e->position()) ? Qt::OpenHandCursor : Qt::ArrowCursor);
    update();
}

void EQCurveGraphView::wheelEvent(QWheelEvent* e) {
    // angleDelta is in eighths of a degree, 120 to a notch; high-resolution wheels send less.
    const double notches = e->angleDelta().y() / 120.0;
    const auto band = hasFocus() ? bandNear(e->position()) : std::nullopt;
    if (!band || !rule(*band).q || notches == 0 || dragged_) return e->ignore();
    e->accept();
    const BandRule& r = rule(*band);
    const ParamRange q = *rangeOf(r.q);
    MasterParams edited = params_;
    edited.*r.q = q.clamp(params_.*r.q + notches * (q.high - q.low) / 100.0);
    if (edited == params_) return;
    setParams(edited);
    emit paramsEdited(params_);
}

void EQCurveGraphView::leaveEvent(QEvent*) {
    if (!hovered_) return;
    hovered_.reset();
    update();
}

void EQCurveGraphView::paintStatic(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    title_.paint(p, width(), bypassed());

    const QRectF plot = plotRect();
    theme::paintPanel(p, plot, theme::controlRadius + 2, theme::well);
    p.setRenderHint(QPainter::Antialiasing, false);
    const auto vertical = [&](double hz, const QColor& colour) {
        const double x = std::round(plot.left() + xForFrequency(hz)) + 0.5;
        if (x <= plot.left() + 1 || x >= plot.right() - 1) return;
        p.setPen(QPen(colour, 1));
        p.drawLine(QPointF(x, plot.top() + 1), QPointF(x, plot.bottom() - 1));
    };
    for (double hz : minorHz) vertical(hz, theme::withAlpha(theme::grid, 0.6));
    for (const auto& [hz, label] : labelledHz) vertical(hz, theme::grid);
    const auto horizontal = [&](double dB, const QColor& colour) {
        const double y = std::round(plot.top() + yForGain(dB)) + 0.5;
        p.setPen(QPen(colour, 1));
        p.drawLine(QPointF(plot.left() + 1, y), QPointF(plot.right() - 1, y));
    };
    for (double dB : gridDB) horizontal(dB, theme::grid);
    horizontal(0, theme::withAlpha(theme::textSecondary, 0.45));
    p.setRenderHint(QPainter::Antialiasing);
    paintFrequencyAxis(p);  // under the plot, where the spectrum never reaches
}

void EQCurveGraphView::paintScale(QPainter& p) const {
    const QRectF plot = plotRect();
    p.setRenderHint(QPainter::Antialiasing);
    p.setFont(theme::monoFont(theme::scalePx));
    p.setPen(theme::withAlpha(Qt::white, 0.55));
    for (double dB : {12.0, 6.0, 0.0, -6.0, -12.0}) {
        const double y = plot.top() + yForGain(dB);
        p.drawText(QRectF(plot.left() + 5, y - 11, dBScaleWidth - 5, 10), Qt::AlignLeft | Qt::AlignBottom,
                   dB == 0 ? QStringLiteral("0 dB") : signedFixedText(dB, 0));
    }
}

void EQCurveGraphView::paintFrequencyAxis(QPainter& p) const {
    const QRectF plot = plotRect();
    p.setFont(theme::monoFont(theme::scalePx));
    p.setPen(theme::withAlpha(Qt::white, 0.75));
    for (const auto& [hz, label] : labelledHz) {
        const double x = plot.left() + xForFrequency(hz);
        const QRectF box(x - 20, plot.bottom() + 1, 40, axisHeight - 1);
        Qt::Alignment align = Qt::AlignHCenter;
        QRectF at = box;
        if (hz == labelledHz.front().first) at = QRectF(plot.left() + 2, box.top(), 40, box.height()), align = Qt::AlignLeft;
        if (hz == labelledHz.back().first) at = QRectF(plot.right() - 42, box.top(), 40, box.height()), align = Qt::AlignRight;
        p.drawText(at, align | Qt::AlignVCenter, QString::fromLatin1(label));
    }
}

void EQCurveGraphView::paintSpectrum(QPainter& p) const {
    if (spectrum_.empty()) return;
    const QRectF plot = plotRect().adjusted(1, 1, -1, -1);
    const double n = double(spectrum_.size());
    const auto at = [&](std::size_t i, float v) {
        return QPointF(plot.left() + plot.width() * (double(i) + 0.5) / n,
                       plot.bottom() - plot.height() * std::clamp(double(v), 0.0, 1.0));
    };
    // Filled without antialiasing: a faint fill's edge does not show its steps, and an
    // antialiased fill of this size costs five times as much at 20 frames a second.
    QPolygonF fill;
    fill.reserve(qsizetype(spectrum_.size()) + 2);
    fill << plot.bottomLeft();
    for (std::size_t i = 0; i < spectrum_.size(); ++i) fill << at(i, spectrum_[i]);
    fill << plot.bottomRight();
    p.save();
    p.setRenderHint(QPainter::Antialiasing, false);
    p.setPen(Qt::NoPen);
    p.setBrush(theme::withAlpha(theme::spectrum, 0.28));
    p.drawPolygon(fill);
    p.restore();

    if (peakHold_.size() != spectrum_.size()) return;
    QPolygonF peak;
    peak.reserve(qsizetype(peakHold_.size()));
    for (std::size_t i = 0; i < peakHold_.size(); ++i) peak << at(i, peakHold_[i]);
    p.setPen(theme::hairline(theme::withAlpha(theme::spectrum, 0.8)));
    p.drawPolyline(peak);
}

void EQCurveGraphView::computeCurve() {
    // The response every 2 points of width, and at the right edge.
    const QRectF plot = plotRect();
    curvePlot_ = plot;
    curve_.clear();
    curveLayer_.invalidate();
    for (double x = 0;; x = std::min(x + 2, plot.width())) {
        curve_.emplace_back(plot.left() + x, plot.top() + yForGain(curveDB(x)));
        if (x >= plot.width()) break;
    }
}

void EQCurveGraphView::paintCurve(QPainter& p) const {
    const QRectF plot = plotRect();
    p.setClipRect(plot.adjusted(1, 1, -1, -1));
    const double zero = plot.top() + yForGain(0);
    if (bypassed()) {
        // What the settings would do, faint and dashed; what the sound gets, flat.
        QPen ghost(theme::withAlpha(theme::textSecondary, 0.3), 1, Qt::DashLine);
        p.setPen(ghost);
        p.setBrush(Qt::NoBrush);
        p.drawPolyline(curve_.data(), int(curve_.size()));
        const QPointF flat[] = {QPointF(plot.left(), zero), QPointF(plot.right(), zero)};
        theme::drawThickPolyline(p, flat, 2, theme::textSecondary, 2);
        return;
    }
    const QColor colour = theme::accent;
    QPolygonF area;
    area.reserve(qsizetype(curve_.size()) + 2);
    area << QPointF(plot.left(), zero);
    for (const QPointF& pt : curve_) area << pt;
    area << QPointF(plot.right(), zero);
    p.setPen(Qt::NoPen);
    p.setBrush(theme::withAlpha(colour, 0.12));
    p.drawPolygon(area);  // its edge lies under the curve's line: no antialiasing needed
    theme::drawThickPolyline(p, curve_.data(), int(curve_.size()), colour, 2);
}

void EQCurveGraphView::paintPoints(QPainter& p) const {
    for (const BandRule& r : bandRules()) {
        const QPointF at = bandPoint(r.band);
        const bool active = params_.eqOn && (r.band != EQBand::highPass || params_.hpfOn);
        const bool grabbed = dragged_ == r.band || (!dragged_ && hovered_ == r.band);
        p.setPen(QPen(grabbed ? theme::textPrimary : theme::chrome, grabbed ? 2 : 1.5));
        p.setBrush(active ? r.colour : theme::withAlpha(r.colour, 0.35));
        p.drawEllipse(at, 5.5, 5.5);
    }
}

void EQCurveGraphView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    static_.paint(p, size(), [this](QPainter& layer) { paintStatic(layer); });
    p.setRenderHint(QPainter::Antialiasing);
    p.save();
    p.setClipRect(plotRect().adjusted(1, 1, -1, -1));
    paintSpectrum(p);
    p.restore();
    if (curve_.empty() || curvePlot_ != plotRect()) computeCurve();
    // A curve that changed since the last frame (a point or a knob in motion) is drawn
    // straight away; it is kept as a layer once it has held still for a frame.
    if (curveMoving_) {
        p.save();
        paintCurve(p);
        p.restore();
        curveMoving_ = false;
    } else {
        curveLayer_.paint(p, size(), [this](QPainter& layer) { paintCurve(layer); });
    }
    // The dB labels stand over the spectrum, so it never hides them; a strip as narrow as they
    // are, since every pixel of a layer is blended again at each frame.
    scale_.paint(p, QSize(int(dBScaleWidth), height()), [this](QPainter& layer) { paintScale(layer); });
    paintPoints(p);
    if (bypassed()) paintBypassMark(p, plotRect());

    if (!readout_.isEmpty()) {
        const QRectF plot = plotRect();
        p.setFont(theme::monoFont(theme::readoutPx));
        const double w = QFontMetricsF(p.font()).horizontalAdvance(readout_) + 12;
        const QRectF box(plot.right() - w - 6, plot.top() + 6, w, 18);
        p.setPen(QPen(theme::panelBorder, 1));
        p.setBrush(theme::withAlpha(theme::chrome, 0.85));
        p.drawRoundedRect(box, 3, 3);
        p.setPen(theme::textPrimary);
        p.drawText(box, Qt::AlignCenter, readout_);
    }
}

}  // namespace velmora
