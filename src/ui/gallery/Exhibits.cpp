#include "Exhibits.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <limits>

#include "ui/AnalogVUMeter.h"
#include "ui/BigMeter.h"
#include "ui/CompCurveGraphView.h"
#include "ui/EQCurveGraphView.h"
#include "ui/GainReductionMeter.h"
#include "ui/LedToggle.h"
#include "ui/SSLKnob.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioSegmentButton.h"
#include "ui/StudioTheme.h"
#include "ui/ValueBadge.h"
#include "ui/VerticalMeter.h"
#include "ui/WaveformView.h"
#include "ui/LoudnessHistoryView.h"
#include "ui/ChannelBarsView.h"

namespace velmora::gallery {

namespace {

constexpr double minusInfinity = -std::numeric_limits<double>::infinity();

template <typename W>
std::unique_ptr<QWidget> sized(std::unique_ptr<W> w, QSize size = {}) {
    w->resize(size.isValid() ? size : w->sizeHint());
    return w;
}

std::unique_ptr<QWidget> knob(double position, bool enabled = true) {
    auto k = std::make_unique<SSLKnob>(QStringLiteral("GAIN"), -12, 12, "%+.0f", QStringLiteral("dB"), theme::bandLowMid, 52);
    k->setValue(-12 + 24 * position);
    k->setEnabled(enabled);
    return sized(std::move(k));
}

std::unique_ptr<QWidget> bigMeter(double value, bool truePeak = false) {
    auto m = truePeak ? std::make_unique<BigMeter>(QStringLiteral("TRUE PEAK"), QStringLiteral("dBTP"), true)
                      : std::make_unique<BigMeter>(QStringLiteral("INTÉGRÉE"), QStringLiteral("LUFS"), false);
    m->setTarget(truePeak ? -1.0 : -23.0);
    m->setValue(value);
    return sized(std::move(m));
}

std::unique_ptr<QWidget> verticalMeter(double value, bool truePeak = false) {
    auto m = std::make_unique<VerticalMeter>(truePeak ? QStringLiteral("TP") : QStringLiteral("M"), truePeak);
    m->setValue(value);
    return sized(std::move(m));
}

std::unique_ptr<QWidget> vu(const QString& title, double value, double reference, const QString& unit) {
    auto m = std::make_unique<AnalogVUMeter>();
    m->setTitle(title);
    m->setReference(reference);
    m->setDeltas(-24, 6);
    m->setUnit(unit);
    m->setValue(value);
    return sized(std::move(m));
}

std::unique_ptr<QWidget> reduction(double db) {
    auto m = std::make_unique<GainReductionMeter>();
    m->setMaximum(12);
    m->setReduction(db);
    return sized(std::move(m));
}

// A programme-like overview: a quiet intro, a body that breathes, a loud ending.
std::vector<float> demoPeaks() {
    std::vector<float> peaks(1024);
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const double t = double(i) / double(peaks.size());
        const double envelope = t < 0.1 ? 0.15 + 2 * t : t > 0.8 ? 0.9 : 0.55 + 0.2 * std::sin(t * 37);
        peaks[i] = float(envelope * (0.75 + 0.25 * std::fabs(std::sin(double(i) * 1.7))));
    }
    return peaks;
}

std::unique_ptr<QWidget> waveform(double progress, bool playing, bool empty = false) {
    auto w = std::make_unique<WaveformView>();
    if (!empty) w->setPeaks(demoPeaks());
    w->setProgress(progress);
    w->setPlaying(playing);
    return sized(std::move(w));
}

// Ten minutes of programme that breathes around -23 LUFS, with two overs and a clipped passage.
std::unique_ptr<QWidget> history(bool empty) {
    auto w = std::make_unique<LoudnessHistoryView>();
    w->setTargetBand(-23, 1);
    if (!empty) {
        auto d = std::make_shared<ProgrammeDetail>();
        d->sampleRate = 48000;
        for (int k = 0; k <= 6000; ++k) {
            const double t = k * 0.1;
            const double s = -23 + 4 * std::sin(t / 50) + 1.5 * std::sin(t / 6) + (std::fabs(t - 400) < 8 ? 7 : 0);
            d->history.shortTerm.push_back(k < 30 ? -INFINITY : float(s));
            d->history.momentary.push_back(k < 4 ? -INFINITY : float(s + 3 * std::sin(t * 1.3)));
            d->history.integrated.push_back(k < 4 ? -INFINITY : float(-23 + 1.5 * std::exp(-t / 120)));
        }
        w->setHistory(d);
        w->setEvents({{EventKind::truePeakOver, 121.0, 121.6, 0.3, 0},
                      {EventKind::truePeakOver, 396.0, 404.0, 1.2, 1},
                      {EventKind::clipping, 398.0, 401.5, 0.0, 1},
                      {EventKind::shortTermOver, 394.0, 409.0, -15.8, std::nullopt}});
        w->setPlayhead(250);
    }
    return sized(std::move(w), QSize(560, 180));
}

std::unique_ptr<QWidget> channelBars() {
    auto w = std::make_unique<ChannelBarsView>();
    w->setChannels({{QStringLiteral("L"), -26.1, -3.2},
                    {QStringLiteral("R"), -26.4, -2.9},
                    {QStringLiteral("C"), -24.0, -0.4},
                    {QStringLiteral("LFE"), -INFINITY, -8.5},
                    {QStringLiteral("Ls"), -31.2, -11.0},
                    {QStringLiteral("Rs"), -31.5, -11.4}});
    return sized(std::move(w), QSize(260, 120));
}

std::unique_ptr<QWidget> segmentRow() {
    auto row = std::make_unique<QWidget>();
    auto* layout = new QHBoxLayout(row.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    for (const auto& [label, value] : {std::pair{QStringLiteral("TRANCHE MASTER"), 0}, {QStringLiteral("CONFORMITÉ SEULE"), 1}}) {
        auto* b = new StudioSegmentButton(label, value);
        b->setSelection(0);
        layout->addWidget(b);
    }
    return sized(std::move(row), QSize(340, 30));
}

std::unique_ptr<QWidget> segment(bool active) {
    auto b = std::make_unique<StudioSegmentButton>(QStringLiteral("TRANCHE MASTER"), 0);
    b->setSelection(active ? 0 : 1);
    return sized(std::move(b));
}

std::unique_ptr<QWidget> led(bool on, bool enabled = true) {
    auto t = std::make_unique<LedToggle>(QStringLiteral("PROTECTION AUTO"));
    t->setChecked(on);
    t->setEnabled(enabled);
    return sized(std::move(t));
}

std::unique_ptr<QWidget> primary(const QString& text, bool enabled) {
    auto b = std::make_unique<StudioPrimaryButton>(text);
    b->setEnabled(enabled);
    return sized(std::move(b));
}

std::unique_ptr<QWidget> panel(bool glow) {
    auto p = std::make_unique<StudioPanel>(QStringLiteral("STÉRÉO (MID / SIDE)"));
    auto* toggle = new LedToggle();
    toggle->setChecked(glow);
    p->setHeaderWidget(toggle);
    if (glow) p->setGlow(theme::ledGreen);
    auto* layout = new QHBoxLayout(p.get());
    layout->setSpacing(12);
    auto* mid = new SSLKnob(QStringLiteral("MID"), -12, 12, "%+.1f", QStringLiteral("dB"), theme::bandHigh, 52);
    auto* side = new SSLKnob(QStringLiteral("SIDE"), -12, 12, "%+.1f", QStringLiteral("dB"), theme::bandHighMid, 52);
    mid->setValue(-1.5);
    side->setValue(3);
    layout->addWidget(mid);
    layout->addWidget(side);
    layout->addStretch();
    return sized(std::move(p), QSize(300, 140));
}

std::unique_ptr<QWidget> picker(const QString& label, int width) {
    auto p = std::make_unique<StudioMenuPicker>();
    p->setCurrentLabel(label);
    return sized(std::move(p), QSize(width, 30));
}

MasterParams demoBands() {
    MasterParams p;
    p.eqOn = true;
    p.hpfOn = true;
    p.hpfFreq = 60;
    p.lsFreq = 120, p.lsGain = 3;
    p.b1Freq = 400, p.b1Gain = -4, p.b1Q = 1.4;
    p.b2Freq = 3000, p.b2Gain = 2.5;
    p.hsFreq = 9000, p.hsGain = 4;
    return p;
}

// A music-like spectrum: falling about 3 dB an octave, with a few resonances.
std::vector<float> demoSpectrum(double lift) {
    std::vector<float> bins(256);
    for (std::size_t i = 0; i < bins.size(); ++i) {
        const double t = double(i) / 255.0;
        const double v = 0.78 - 0.45 * t + 0.06 * std::sin(t * 41) + 0.04 * std::sin(t * 97) + lift;
        bins[i] = float(std::clamp(v, 0.0, 1.0));
    }
    return bins;
}

std::unique_ptr<QWidget> eqGraph(bool bands, int width, bool dragQ = false) {
    auto g = std::make_unique<EQCurveGraphView>();
    g->resize(width, 220);
    if (bands) {
        g->setParams(demoBands());
        g->setSpectrum(demoSpectrum(0.08));  // a louder moment, then the decaying peak above
        g->setSpectrum(demoSpectrum(-0.02));
    } else {
        MasterParams p;
        p.eqOn = true;
        g->setParams(p);
    }
    if (dragQ) {
        // A Q drag in progress, so the readout shows.
        const QPointF at = g->bandPoint(EQBand::lowMid);
        QMouseEvent press(QEvent::MouseButtonPress, at, at, Qt::LeftButton, Qt::LeftButton, Qt::ControlModifier);
        QCoreApplication::sendEvent(g.get(), &press);
        const QPointF to = at - QPointF(0, 30);
        QMouseEvent move(QEvent::MouseMove, to, to, Qt::NoButton, Qt::LeftButton, Qt::ControlModifier);
        QCoreApplication::sendEvent(g.get(), &move);
    }
    return g;
}

std::unique_ptr<QWidget> compGraph(double threshold, double ratio, double makeup, int width) {
    auto g = std::make_unique<CompCurveGraphView>();
    g->setThreshold(threshold);
    g->setRatio(ratio);
    g->setMakeup(makeup);
    g->resize(width, 220);
    return g;
}

}  // namespace

std::vector<Exhibit> exhibits() {
    const QString lufs = QStringLiteral("LUFS"), dbtp = QStringLiteral("dBTP");
    return {
        {"SSLKnob", "min", [] { return knob(0); }},
        {"SSLKnob", "middle", [] { return knob(0.5); }},
        {"SSLKnob", "max", [] { return knob(1); }},
        {"SSLKnob", "disabled", [] { return knob(0.7, false); }},
        {"SSLKnob", "freq-42",
         [] {
             auto k = std::make_unique<SSLKnob>(QStringLiteral("AIGUS"), 3000, 18000, "%.0f", QStringLiteral("Hz"),
                                                theme::bandHigh, 42);
             k->setValue(10000);
             return sized(std::move(k));
         }},
        {"BigMeter", "m5dB", [] { return bigMeter(-5); }},
        {"BigMeter", "m30dB", [] { return bigMeter(-30); }},
        {"BigMeter", "minus-inf", [] { return bigMeter(minusInfinity); }},
        {"BigMeter", "tp-m1.2dBTP", [] { return bigMeter(-1.2, true); }},
        {"VerticalMeter", "m5dB", [] { return verticalMeter(-5); }},
        {"VerticalMeter", "m30dB", [] { return verticalMeter(-30); }},
        {"VerticalMeter", "minus-inf", [] { return verticalMeter(minusInfinity); }},
        {"VerticalMeter", "tp-m1.2dBTP", [] { return verticalMeter(-1.2, true); }},
        {"AnalogVUMeter", "on-target", [=] { return vu(QStringLiteral("SONIE (VU · M)"), -23, -23, lufs); }},
        {"AnalogVUMeter", "over", [=] { return vu(QStringLiteral("SONIE (VU · M)"), -19.5, -23, lufs); }},
        {"AnalogVUMeter", "minus-inf", [=] { return vu(QStringLiteral("SONIE (VU · M)"), minusInfinity, -23, lufs); }},
        {"AnalogVUMeter", "true-peak", [=] { return vu(QStringLiteral("TRUE PEAK (VU)"), -3.4, -1, dbtp); }},
        {"GainReductionMeter", "none", [] { return reduction(0); }},
        {"GainReductionMeter", "3.5dB", [] { return reduction(3.5); }},
        {"GainReductionMeter", "beyond-scale", [] { return reduction(15); }},
        {"WaveformView", "start", [] { return waveform(0, false); }},
        {"WaveformView", "playing", [] { return waveform(0.42, true); }},
        {"WaveformView", "empty", [] { return waveform(0, false, true); }},
        {"LoudnessHistoryView", "overs", [] { return history(false); }},
        {"LoudnessHistoryView", "empty", [] { return history(true); }},
        {"ChannelBarsView", "surround", [] { return channelBars(); }},
        {"ValueBadge", "short-term",
         [] { return sized(std::make_unique<ValueBadge>(QStringLiteral("S max"), QStringLiteral("-18.4"), theme::textPrimary)); }},
        {"ValueBadge", "true-peak",
         [] { return sized(std::make_unique<ValueBadge>(QStringLiteral("TRUE PEAK"), QStringLiteral("-0.3 dBTP"), theme::zoneRed)); }},
        {"ValueBadge", "unmeasured",
         [] { return sized(std::make_unique<ValueBadge>(QStringLiteral("PLAFOND"), QStringLiteral("—"), theme::textSecondary)); }},
        {"StudioSegmentButton", "active", [] { return segment(true); }},
        {"StudioSegmentButton", "inactive", [] { return segment(false); }},
        {"StudioSegmentButton", "pair", [] { return segmentRow(); }},
        {"LedToggle", "on", [] { return led(true); }},
        {"LedToggle", "off", [] { return led(false); }},
        {"LedToggle", "disabled", [] { return led(true, false); }},
        {"StudioPrimaryButton", "export", [] { return primary(QStringLiteral("EXPORTER"), true); }},
        {"StudioPrimaryButton", "disabled", [] { return primary(QStringLiteral("ANALYSER"), false); }},
        {"StudioPanel", "plain", [] { return panel(false); }},
        {"StudioPanel", "glow", [] { return panel(true); }},
        {"StudioMenuPicker", "norm", [] { return picker(QStringLiteral("EBU R128 · -23 LUFS"), 220); }},
        {"StudioMenuPicker", "narrow",
         [] { return picker(QStringLiteral("ITU / DTS (L R Ls Rs C LFE)"), 150); }},
        {"EQCurveGraphView", "flat", [] { return eqGraph(false, 480); }},
        {"EQCurveGraphView", "bands", [] { return eqGraph(true, 480); }},
        {"EQCurveGraphView", "dragging-q", [] { return eqGraph(true, 480, true); }},
        {"EQCurveGraphView", "narrow", [] { return eqGraph(true, 320); }},
        {"CompCurveGraphView", "default", [] { return compGraph(-18, 2, 0, 300); }},
        {"CompCurveGraphView", "steep-makeup", [] { return compGraph(-30, 8, 6, 300); }},
        {"CompCurveGraphView", "wide", [] { return compGraph(-12, 3, 2, 480); }},
    };
}

}  // namespace velmora::gallery
