// The window on screens of every size, a real file analysed: on a laptop's 1024 × 640 and
// 1280 × 720 the actions, the status line and the measures stay in view, whole and uncovered,
// each figure in type that fits it, the columns scrolling inside themselves; on a 4K screen the
// meters and the history take the room, and the diagnosis keeps its values beside the names.
#include <QScrollBar>
#include <fstream>
#include <tuple>
#include <QSettings>
#include <QSplitter>
#include <gtest/gtest.h>

#include "LayoutChecks.h"
#include "audio/OutputTestSupport.h"
#include "WindowTesting.h"
#include "model/Model.h"
#include "ui/LoudnessHistoryView.h"
#include "ui/StudioTheme.h"
#include "ui/window/FileListSection.h"
#include "ui/window/PresetsSection.h"
#include "ui/window/HistorySection.h"
#include "ui/window/TransportSection.h"

namespace velmora::test {
namespace {

class ScreenSizes : public ::testing::Test {
protected:
    void SetUp() override {
        // Nowhere to play: these tests only look.
        std::ofstream(dir / "asound.conf") << "\n";
        writeFloatWav(dir / "Interview.wav", programme(12, 0.12, 6.0, 1), 48000);
        model = std::make_unique<Model>(nullptr, &choosers);
        window = std::make_unique<MainWindow>(*model);
        window->show();
        model->addFiles({q(dir / "Interview.wav")});
        ASSERT_TRUE(waitIdle(*model));
        settle(50);
    }
    void TearDown() override {
        window.reset();
        model.reset();
    }
    // Resizes the window and runs the event loop until its layout has settled: the columns,
    // the measures and the needles as they were on the pass before.
    void resizeTo(QSize size) {
        window->resize(size);
        const auto layout = [this] {
            const auto* m = window->measures();
            return std::tuple(window->columns()->sizes(), inWindow(m), m->loudnessNeedle()->geometry(),
                              m->peakNeedle()->geometry(), m->integratedMeter()->geometry());
        };
        auto before = layout();
        for (int pass = 0; pass < 100; ++pass) {
            settle(20);
            const auto now = layout();
            if (now == before) break;
            before = now;
        }
        ASSERT_EQ(window->size(), size);
    }
    QString shot(const QString& name) { return keepScreenshot(window->grab().toImage(), name); }

    ScratchDir dir;
    ScopedEnv alsa{"ALSA_CONFIG_PATH", (dir / "asound.conf").string()};
    ScopedEnv noJack{"JACK_DEFAULT_SERVER", "velmora-test-no-such-server"};
    FixedChoosers choosers;
    std::unique_ptr<Model> model;
    std::unique_ptr<MainWindow> window;
};

// The splitter's positions, each within a pixel or two of `expected` (it rounds them).
void expectSizesNear(const QList<int>& seen, const QList<int>& expected) {
    ASSERT_EQ(seen.size(), expected.size());
    for (int i = 0; i < seen.size(); ++i) EXPECT_NEAR(seen[i], expected[i], 3) << i;
}

// No problem found in the window as laid out, or each of them said.
void expectFits(const MainWindow& w) {
    const QStringList problems = layoutProblems(w);
    EXPECT_TRUE(problems.isEmpty()) << problems.join(QLatin1Char('\n')).toStdString();
}

// The readout's pixels in `meter`: the rightmost column where the value's colour shows.
int rightmostReadoutPixel(BigMeter& meter, const QColor& colour) {
    const QImage image = meter.grab().toImage();
    const QRect band = meter.readoutRect().toAlignedRect() & image.rect();
    int rightmost = -1;
    for (int y = band.top(); y <= band.bottom(); ++y)
        for (int x = band.left(); x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (std::abs(c.red() - colour.red()) + std::abs(c.green() - colour.green()) +
                    std::abs(c.blue() - colour.blue()) < 60)
                rightmost = std::max(rightmost, x);
        }
    return rightmost;
}

TEST_F(ScreenSizes, OnALaptopTheActionsTheMeasuresAndEveryFigureStayWhole) {
    MainWindow& w = *window;
    EXPECT_EQ(w.minimumSize(), QSize(1024, 640));
    for (const QSize size : {QSize(1024, 640), QSize(1280, 720)}) {
        SCOPED_TRACE(size.width());
        resizeTo(size);
        expectFits(w);
        // Two columns on the smallest screen, three from a laptop's 1280 px.
        EXPECT_EQ(w.isCompact(), size.width() < 1240);

        // ANALYSER, EXPORTER and the status line whole inside the window, and what a click
        // at their centre reaches.
        for (QWidget* part : std::initializer_list<QWidget*>{w.actions()->analyseButton(), w.actions()->exportButton(),
                                                             w.actions()->statusLine()}) {
            const QRect r = inWindow(part);
            EXPECT_TRUE(w.rect().contains(r)) << describe(r).toStdString();
            EXPECT_TRUE(part == w.childAt(r.center()) || part->isAncestorOf(w.childAt(r.center())));
        }

        // The integrated figure in the meter's own font fits its box; in pixels, the text ends
        // before the meter's right edge, where a cut figure would run into it.
        BigMeter* big = w.measures()->integratedMeter();
        for (double value : {-22.5, -70.0, -100.4}) {
            big->setValue(value);
            const double advance = QFontMetricsF(big->readoutFont()).horizontalAdvance(big->readoutText());
            EXPECT_LE(advance, big->readoutRect().width()) << big->readoutText().toStdString();
            EXPECT_TRUE(QRectF(big->rect()).contains(big->readoutRect()));
        }
        big->setValue(-22.5);
        const QColor verdict = big->valueColor();
        big->setValueColor(QColor(255, 0, 255));
        const int right = rightmostReadoutPixel(*big, QColor(255, 0, 255));
        big->setValueColor(verdict);
        EXPECT_GT(right, big->readoutRect().left()) << "no readout drawn";
        EXPECT_LT(right, big->width() - 1) << "the figure runs into the meter's edge";
        // Readable from a distance still, even on the smallest screen.
        EXPECT_GE(big->readoutFont().pixelSize(), 20);

        // The two needle meters side by side or stacked, never over each other, each whole.
        const auto* m = w.measures();
        EXPECT_FALSE(m->loudnessNeedle()->geometry().intersects(m->peakNeedle()->geometry()))
            << describe(m->loudnessNeedle()->geometry()).toStdString() << " / "
            << describe(m->peakNeedle()->geometry()).toStdString();

        // The centre scrolls under the measures: the diagnosis is reached by scrolling, and
        // the measures do not move while it does.
        QScrollBar* bar = w.fileColumn()->verticalScrollBar();
        ASSERT_GT(bar->maximum(), 0);
        const QRect measuresBefore = inWindow(w.measures());
        bar->setValue(bar->maximum());
        settle(10);
        EXPECT_EQ(inWindow(w.measures()), measuresBefore);
        const QRect view(w.fileColumn()->viewport()->mapTo(&w, QPoint(0, 0)), w.fileColumn()->viewport()->size());
        EXPECT_TRUE(view.intersects(inWindow(w.diagnosis()->normList())));
        shot(QStringLiteral("size-%1x%2-scrolled").arg(size.width()).arg(size.height()));
        bar->setValue(0);
        shot(QStringLiteral("size-%1x%2").arg(size.width()).arg(size.height()));
    }
}

TEST_F(ScreenSizes, TwoColumnsGiveBackTheThreeAsTheyWere) {
    MainWindow& w = *window;
    resizeTo(QSize(1600, 1000));
    ASSERT_FALSE(w.isCompact());
    w.columns()->setSizes({330, 730, 540});
    const QList<int> wide = w.columns()->sizes();

    resizeTo(QSize(1024, 640));
    ASSERT_TRUE(w.isCompact());
    // The header above the settings, the session in the centre's scrolling part: all reachable.
    EXPECT_TRUE(w.header()->isVisible());
    EXPECT_TRUE(w.settingsColumn()->parentWidget()->isAncestorOf(w.header()));
    EXPECT_TRUE(w.fileColumn()->widget()->isAncestorOf(w.fileList()));
    EXPECT_TRUE(w.fileColumn()->widget()->isAncestorOf(w.sideTabs()));
    EXPECT_FALSE(w.sessionColumn()->isVisible());
    // The splitter positions saved now are the three columns', not the two.
    ScratchDir settingsDir;
    QSettings saved(q(settingsDir / "layout.ini"), QSettings::IniFormat);
    w.saveLayout(saved);

    resizeTo(QSize(1600, 1000));
    EXPECT_FALSE(w.isCompact());
    EXPECT_TRUE(w.sessionColumn()->widget()->isAncestorOf(w.fileList()));
    EXPECT_TRUE(w.sessionColumn()->isVisible());
    expectSizesNear(w.columns()->sizes(), wide);
    expectFits(w);

    Model other(nullptr, &choosers);
    MainWindow again(other);
    again.show();
    again.resize(1600, 1000);
    settle(30);
    again.restoreLayout(saved);
    expectSizesNear(again.columns()->sizes(), wide);
}

TEST_F(ScreenSizes, OnA4KScreenTheMetersAndTheHistoryGrowAndValuesStayBesideNames) {
    MainWindow& w = *window;
    struct Seen {
        QSize needle, history;
        int readoutPx;
    };
    const auto look = [&] {
        const auto* m = w.measures();
        return Seen{m->loudnessNeedle()->size(), w.history()->history()->size(),
                    m->integratedMeter()->readoutFont().pixelSize()};
    };
    resizeTo(QSize(1920, 1080));
    expectFits(w);
    const Seen hd = look();
    resizeTo(QSize(3840, 2160));
    expectFits(w);
    const Seen uhd = look();
    shot(QStringLiteral("size-3840x2160"));

    EXPECT_GT(uhd.needle.width(), 1.5 * hd.needle.width());
    EXPECT_GT(uhd.needle.height(), 1.5 * hd.needle.height());
    EXPECT_GT(uhd.history.width(), 1.5 * hd.history.width());
    EXPECT_GT(uhd.history.height(), 1.5 * hd.history.height());
    EXPECT_GT(uhd.readoutPx, hd.readoutPx);
    EXPECT_TRUE(w.measures()->needlesSideBySide());

    // Each norm's values follow its name: after the name's text, and no further than the
    // longest name's width from it.
    const window::NormListView* list = w.diagnosis()->normList();
    ASSERT_EQ(list->checks().size(), 21u);
    EXPECT_EQ(list->columns(), 3);
    QFont labelFont = theme::bodyFont();
    labelFont.setPixelSize(11);
    const QFontMetricsF metrics(labelFont);
    double longest = 0;
    for (const NormCheck& c : list->checks())
        longest = std::max(longest, metrics.horizontalAdvance(QString::fromStdString(c.presetLabel)));
    for (int i = 0; i < int(list->checks().size()); ++i) {
        const auto g = list->lineGeometry(i);
        const double nameEnd =
            g.label.left() + metrics.horizontalAdvance(QString::fromStdString(list->checks()[std::size_t(i)].presetLabel));
        EXPECT_GE(g.delta.left(), nameEnd - 1) << i;
        EXPECT_LE(g.delta.left() - g.label.left(), longest + 20) << i;
        EXPECT_LE(g.peak.right() - g.line.left(), 480) << i;
        EXPECT_TRUE(QRectF(list->rect()).contains(g.line)) << i;
    }
}

}  // namespace
}  // namespace velmora::test
