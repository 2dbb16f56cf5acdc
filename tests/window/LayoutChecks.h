#pragma once
// What "the window fits its screen" means, checked on the window as laid out, in its own
// coordinates: used by the off-screen tests and by the screenshot tool under Xvfb at each
// scale factor. Each problem comes back as a sentence; none means the size works.
#include <QFontMetricsF>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStringList>
#include <QWidget>

#include "ui/AnalogVUMeter.h"
#include "ui/BigMeter.h"
#include "ui/MainWindow.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/window/ActionBar.h"
#include "ui/window/Controls.h"
#include "ui/window/DiagnosisSection.h"
#include "ui/window/HeaderSection.h"
#include "ui/window/MeasuresSection.h"

namespace velmora::test {

inline QString describe(const QRect& r) {
    return QStringLiteral("%1,%2 %3×%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
}

// `w`'s rectangle in the window's coordinates.
inline QRect inWindow(const QWidget* w) { return QRect(w->mapTo(w->window(), QPoint(0, 0)), w->size()); }

// Shown, whole inside the window, and on top where it matters: the widget found under its
// centre is itself or one of its children.
inline void checkReachable(const QWidget* w, const QString& name, QStringList& problems) {
    const QWidget* top = w->window();
    if (!w->isVisible()) return problems.push_back(name + QStringLiteral(" is hidden"));
    const QRect r = inWindow(w);
    if (!top->rect().contains(r))
        problems.push_back(name + QStringLiteral(" at %1 leaves the window %2").arg(describe(r), describe(top->rect())));
    if (r.width() < w->minimumSizeHint().width() || r.height() < w->minimumSizeHint().height())
        problems.push_back(name + QStringLiteral(" is squeezed to %1").arg(describe(r)));
    const QWidget* under = top->childAt(r.center());
    if (under != w && !w->isAncestorOf(under))
        problems.push_back(name + QStringLiteral(" is covered by %1")
                                      .arg(under ? QString::fromLatin1(under->metaObject()->className()) : "nothing"));
}

// A scrolling column whose content is wider than its view would cut its right side.
inline void checkColumn(const QScrollArea* column, const QString& name, QStringList& problems) {
    if (!column->isVisible()) return;
    const int needs = column->widget()->minimumSizeHint().width();
    const int has = column->viewport()->width();
    if (needs > has) problems.push_back(name + QStringLiteral(" needs %1 px of width, has %2").arg(needs).arg(has));
    if (column->widget()->width() > has)
        problems.push_back(name + QStringLiteral(" is laid out %1 px wide in %2").arg(column->widget()->width()).arg(has));
}

inline void checkBadge(const ValueBadge* badge, QStringList& problems) {
    if (!badge->isVisible()) return;
    if (badge->valueAdvance() > badge->valueRect().width() + 0.5)
        problems.push_back(QStringLiteral("%1 \"%2 %3\" needs %4 px, has %5")
                               .arg(badge->shownLabel(), badge->value(), badge->unit())
                               .arg(badge->valueAdvance())
                               .arg(badge->valueRect().width()));
}

inline void checkNeedle(const AnalogVUMeter* vu, const QString& name, QStringList& problems) {
    const double title = QFontMetricsF(vu->titleFont()).horizontalAdvance(vu->accessibleName());
    const double reading = QFontMetricsF(vu->readoutFont()).horizontalAdvance(vu->accessibleReading().value);
    if (title + reading > vu->footerRect().width())
        problems.push_back(QStringLiteral("%1: title and reading need %2 px, have %3")
                               .arg(name)
                               .arg(title + reading)
                               .arg(vu->footerRect().width()));
    if (vu->width() < vu->minimumSizeHint().width() || vu->height() < vu->minimumSizeHint().height())
        problems.push_back(name + QStringLiteral(" is squeezed to %1").arg(describe(vu->geometry())));
}

// Everything that must hold at any size of the window, a file analysed and selected.
inline QStringList layoutProblems(const MainWindow& w) {
    QStringList problems;
    const window::ActionBar* actions = w.actions();
    checkReachable(actions->analyseButton(), QStringLiteral("ANALYSER"), problems);
    checkReachable(actions->exportButton(), QStringLiteral("EXPORTER"), problems);
    checkReachable(actions->saveAsButton(), QStringLiteral("Enregistrer sous…"), problems);
    checkReachable(actions->statusLine(), QStringLiteral("the status line"), problems);
    if (actions->statusLine()->width() < 200)
        problems.push_back(QStringLiteral("the status line is only %1 px wide").arg(actions->statusLine()->width()));
    if (!w.rect().contains(inWindow(w.header())))
        problems.push_back(QStringLiteral("the header at %1 leaves the window").arg(describe(inWindow(w.header()))));
    const window::MeasuresSection* m = w.measures();
    if (!w.rect().contains(inWindow(m)))
        problems.push_back(QStringLiteral("the measures at %1 leave the window").arg(describe(inWindow(m))));
    if (m->height() < m->minimumSizeHint().height())
        problems.push_back(QStringLiteral("the measures are squeezed to %1 px high, need %2")
                               .arg(m->height())
                               .arg(m->minimumSizeHint().height()));

    const BigMeter* big = m->integratedMeter();
    const double advance = QFontMetricsF(big->readoutFont()).horizontalAdvance(big->readoutText());
    if (advance > big->readoutRect().width() || !QRectF(big->rect()).contains(big->readoutRect()))
        problems.push_back(QStringLiteral("the integrated figure \"%1\" needs %2 px, has %3 in a meter %4 wide")
                               .arg(big->readoutText())
                               .arg(advance)
                               .arg(big->readoutRect().width())
                               .arg(big->width()));
    if (m->loudnessNeedle()->geometry().intersects(m->peakNeedle()->geometry()))
        problems.push_back(QStringLiteral("the needle meters overlap: %1 and %2")
                               .arg(describe(m->loudnessNeedle()->geometry()), describe(m->peakNeedle()->geometry())));
    checkNeedle(m->loudnessNeedle(), QStringLiteral("the loudness needle"), problems);
    checkNeedle(m->peakNeedle(), QStringLiteral("the true-peak needle"), problems);
    for (const ValueBadge* badge : {static_cast<const ValueBadge*>(m->momentaryMaxBadge()),
                                    static_cast<const ValueBadge*>(m->shortTermMaxBadge()),
                                    static_cast<const ValueBadge*>(m->truePeakBadge()),
                                    static_cast<const ValueBadge*>(m->samplePeakBadge()),
                                    static_cast<const ValueBadge*>(m->rangeBadge()),
                                    static_cast<const ValueBadge*>(m->targetBadge()),
                                    static_cast<const ValueBadge*>(m->ceilingBadge())})
        checkBadge(badge, problems);

    checkColumn(w.sessionColumn(), QStringLiteral("the session column"), problems);
    checkColumn(w.fileColumn(), QStringLiteral("the centre column"), problems);
    checkColumn(w.settingsColumn(), QStringLiteral("the settings column"), problems);
    return problems;
}

}  // namespace velmora::test
