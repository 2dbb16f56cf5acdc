// One paint of each studio component at its usual size into an image, at ratios 1 and 2, with
// the value it shows changing between paints as it does at the window's 20 redraws a second
// (so cached static layers are reused and everything that moves is drawn). The equaliser graph
// takes a new 256-band spectrum each time, and once more while a point is dragged, when the
// response is computed again. Target: every paint under 1 ms.
#include <benchmark/benchmark.h>

#include <QWidget>
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "QtApplication.h"
#include "ui/AnalogVUMeter.h"
#include "ui/BigMeter.h"
#include "ui/CompCurveGraphView.h"
#include "ui/EQCurveGraphView.h"
#include "ui/GainReductionMeter.h"
#include "ui/LoudnessHistoryView.h"
#include "ui/LedToggle.h"
#include "ui/SSLKnob.h"
#include "ui/Snapshot.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioSegmentButton.h"
#include "ui/StudioTheme.h"
#include "ui/ValueBadge.h"
#include "ui/VerticalMeter.h"
#include "ui/WaveformView.h"

namespace {

using namespace velmora;

// Paints `widget` again and again into one image; `step(i)` changes what it shows first.
void paintLoop(benchmark::State& state, QWidget& widget, const std::function<void(std::int64_t)>& step) {
    const double ratio = double(state.range(0));
    QImage image = snapshot(widget, ratio);  // lays out and fills the caches once
    std::int64_t i = 0;
    for (auto _ : state) {
        step(i++);
        renderInto(widget, image);
        benchmark::DoNotOptimize(image.constBits());
    }
    state.counters["width"] = widget.width();
    state.counters["height"] = widget.height();
}

template <typename W>
std::unique_ptr<W> usual(std::unique_ptr<W> w, QSize size = {}) {
    w->resize(size.isValid() ? size : w->sizeHint());
    return w;
}

// A level that moves by a few tenths of a dB per frame, as programme does.
double wander(std::int64_t i, double centre) { return centre + 3 * std::sin(double(i) * 0.37); }

std::vector<float> spectrumFrame(std::int64_t i) {
    std::vector<float> bins(256);
    for (std::size_t b = 0; b < bins.size(); ++b) {
        const double t = double(b) / 255.0;
        bins[b] = float(std::clamp(0.75 - 0.4 * t + 0.08 * std::sin(t * 40 + double(i) * 0.9), 0.0, 1.0));
    }
    return bins;
}

void BM_PaintSSLKnob(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<SSLKnob>("GAIN", -12, 12, "%+.1f", "dB", theme::bandLowMid, 52));
    paintLoop(state, *w, [&](std::int64_t i) { w->setValue(wander(i, 0)); });
}

void BM_PaintBigMeter(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<BigMeter>("INTÉGRÉE", "LUFS", false));
    w->setTarget(-23);
    paintLoop(state, *w, [&](std::int64_t i) { w->setValue(wander(i, -20)); });
}

void BM_PaintVerticalMeter(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<VerticalMeter>("TP", true));
    paintLoop(state, *w, [&](std::int64_t i) { w->setValue(wander(i, -6)); });
}

void BM_PaintAnalogVUMeter(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<AnalogVUMeter>());
    w->setTitle("SONIE (VU · M)");
    w->setReference(-23);
    w->setUnit("LUFS");
    paintLoop(state, *w, [&](std::int64_t i) { w->setValue(wander(i, -22)); });
}

void BM_PaintGainReductionMeter(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<GainReductionMeter>());
    paintLoop(state, *w, [&](std::int64_t i) { w->setReduction(wander(i, 4)); });
}

void BM_PaintWaveformView(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<WaveformView>());
    std::vector<float> peaks(1024);
    for (std::size_t k = 0; k < peaks.size(); ++k) peaks[k] = float(0.5 + 0.4 * std::sin(double(k) * 0.05));
    w->setPeaks(std::move(peaks));
    w->setPlaying(true);
    paintLoop(state, *w, [&](std::int64_t i) { w->setProgress(double(i % 1000) / 1000); });
}

void BM_PaintValueBadge(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<ValueBadge>("S max", "-18.4", theme::textPrimary));
    paintLoop(state, *w, [&](std::int64_t i) { w->setValue(QString::asprintf("%.1f", wander(i, -18))); });
}

void BM_PaintStudioSegmentButton(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<StudioSegmentButton>("TRANCHE MASTER", 0));
    paintLoop(state, *w, [&](std::int64_t i) { w->setSelection(int(i % 2)); });
}

void BM_PaintLedToggle(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<LedToggle>("PROTECTION AUTO"));
    paintLoop(state, *w, [&](std::int64_t i) { w->setChecked(i % 2); });
}

void BM_PaintStudioPrimaryButton(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<StudioPrimaryButton>("EXPORTER"));
    paintLoop(state, *w, [&](std::int64_t i) { w->setEnabled(i % 2); });
}

// A panel shows no value: it is repainted under its children each time one of them is, as Qt
// does for children without a background of their own.
void BM_PaintStudioPanel(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<StudioPanel>("STÉRÉO (MID / SIDE)"), QSize(300, 140));
    w->setGlow(theme::ledGreen);
    paintLoop(state, *w, [](std::int64_t) {});
}

void BM_PaintStudioMenuPicker(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<StudioMenuPicker>(), QSize(220, 30));
    paintLoop(state, *w, [&](std::int64_t i) {
        w->setCurrentLabel(i % 2 ? QStringLiteral("EBU R128 · -23 LUFS") : QStringLiteral("ATSC A/85 · -24 LKFS"));
    });
}

MasterParams shapedChain() {
    MasterParams p;
    p.eqOn = p.hpfOn = true;
    p.hpfFreq = 60;
    p.lsGain = 3, p.b1Gain = -4, p.b1Q = 1.4, p.b2Gain = 2.5, p.hsGain = 4;
    return p;
}

void BM_PaintEQCurveGraphView(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<EQCurveGraphView>(), QSize(480, 220));
    w->setParams(shapedChain());
    const std::vector<std::vector<float>> frames{spectrumFrame(0), spectrumFrame(1), spectrumFrame(2)};
    paintLoop(state, *w, [&](std::int64_t i) { w->setSpectrum(frames[std::size_t(i % 3)]); });
}

// While a point is dragged the response is computed again before each paint.
void BM_PaintEQCurveGraphViewWhileDragging(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<EQCurveGraphView>(), QSize(480, 220));
    MasterParams p = shapedChain();
    const std::vector<std::vector<float>> frames{spectrumFrame(0), spectrumFrame(1), spectrumFrame(2)};
    paintLoop(state, *w, [&](std::int64_t i) {
        p.b1Gain = wander(i, 0);
        w->setParams(p);
        w->setSpectrum(frames[std::size_t(i % 3)]);
    });
}

void BM_PaintCompCurveGraphView(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<CompCurveGraphView>(), QSize(300, 220));
    paintLoop(state, *w, [&](std::int64_t i) { w->setThreshold(wander(i, -20)); });
}

// Two hours of loudness every 100 ms (72,000 points per series) and a few hundred overs.
std::shared_ptr<const ProgrammeDetail> twoHours() {
    auto d = std::make_shared<ProgrammeDetail>();
    d->sampleRate = 48000;
    auto& h = d->history;
    const std::size_t n = 72000;
    h.momentary.resize(n);
    h.shortTerm.resize(n);
    h.integrated.resize(n);
    for (std::size_t k = 0; k < n; ++k) {
        const double t = double(k) * 0.1;
        h.shortTerm[k] = float(-23 + 4 * std::sin(t / 40) + 2 * std::sin(t / 7));
        h.momentary[k] = float(h.shortTerm[k] + 3 * std::sin(t * 1.7));
        h.integrated[k] = float(-23 + 2 * std::exp(-t / 300));
    }
    return d;
}

std::vector<LoudnessEvent> overs() {
    std::vector<LoudnessEvent> e;
    for (int k = 0; k < 300; ++k)
        e.push_back({k % 4 == 0 ? EventKind::clipping : EventKind::truePeakOver, 20.0 * k, 20.0 * k + 0.4, 0.5, 0});
    return e;
}

// The play position moves every frame over a cached picture of the curves (target < 1 ms, as
// every component; the history must stay under 2 ms at ratio 2).
void BM_PaintLoudnessHistoryView(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<LoudnessHistoryView>(), QSize(720, 200));
    w->setHistory(twoHours());
    w->setEvents(overs());
    w->setTargetBand(-23, 1);
    paintLoop(state, *w, [&](std::int64_t i) { w->setPlayhead(double(i % 7200)); });
}

// A drag or the wheel changes the view every frame: the curves are drawn again from the two
// hours of points. Target: well inside a 60 Hz frame (16 ms), so panning and zooming stay smooth.
void BM_PanLoudnessHistoryView(benchmark::State& state) {
    bench::ensureQtApplication();
    auto w = usual(std::make_unique<LoudnessHistoryView>(), QSize(720, 200));
    w->setHistory(twoHours());
    w->setEvents(overs());
    w->setTargetBand(-23, 1);
    const double span = state.range(1) == 0 ? 7200.0 : 600.0;  // the whole programme, or ten minutes
    paintLoop(state, *w, [&](std::int64_t i) {
        const double start = state.range(1) == 0 ? 0.0 : double(i % 600) * 10.0;
        w->setView(start + (i % 2 ? 0.0 : 0.5), start + span);  // zoom or pan: never the same view twice
    });
}

#define VELMORA_PAINT(name) BENCHMARK(name)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond)
VELMORA_PAINT(BM_PaintLoudnessHistoryView);
BENCHMARK(BM_PanLoudnessHistoryView)->Args({2, 0})->Args({2, 1})->Unit(benchmark::kMicrosecond);
VELMORA_PAINT(BM_PaintSSLKnob);
VELMORA_PAINT(BM_PaintBigMeter);
VELMORA_PAINT(BM_PaintVerticalMeter);
VELMORA_PAINT(BM_PaintAnalogVUMeter);
VELMORA_PAINT(BM_PaintGainReductionMeter);
VELMORA_PAINT(BM_PaintWaveformView);
VELMORA_PAINT(BM_PaintValueBadge);
VELMORA_PAINT(BM_PaintStudioSegmentButton);
VELMORA_PAINT(BM_PaintLedToggle);
VELMORA_PAINT(BM_PaintStudioPrimaryButton);
VELMORA_PAINT(BM_PaintStudioPanel);
VELMORA_PAINT(BM_PaintStudioMenuPicker);
VELMORA_PAINT(BM_PaintEQCurveGraphView);
VELMORA_PAINT(BM_PaintEQCurveGraphViewWhileDragging);
VELMORA_PAINT(BM_PaintCompCurveGraphView);

}  // namespace
