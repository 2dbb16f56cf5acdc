// Opens the main window on whatever display the platform plugin reaches (xcb under Xvfb in the
// tests), queues the files given, waits for their analysis, and saves what the display server
// shows of the window: the real display path, not a render into an image.
//
//   velmora-window-shot OUT.png [FILE...]
//       one shot of the window at the size it opens at;
//   velmora-window-shot --sizes 1280x720,1920x1080 --out DIR --tag NAME [FILE...]
//       the window resized to each size in turn (in device-independent pixels, whatever the
//       scale factor), each shot saved as DIR/window-<size>@<NAME>.png, and the window's layout
//       checked at each size: one "problem <size>: …" line per fault found, none when it fits.
#include <QApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>
#include <QWindow>
#include <cstdio>

#include "../LayoutChecks.h"
#include "model/Model.h"
#include "ui/MainWindow.h"
#include "ui/StudioTheme.h"

namespace {

void runFor(int ms) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

// What the display server shows of the window, in its device pixels.
QPixmap grab(velmora::MainWindow& window) {
    QScreen* screen = window.screen();
    return screen ? screen->grabWindow(window.winId()) : QPixmap();
}

QList<QSize> parseSizes(const QString& text) {
    QList<QSize> sizes;
    for (const QString& size : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QStringList wh = size.split(QLatin1Char('x'));
        if (wh.size() == 2) sizes << QSize(wh[0].toInt(), wh[1].toInt());
    }
    return sizes;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QStringList args = QCoreApplication::arguments().mid(1);
    QList<QSize> sizes;
    QString outDir, tag, single;
    while (!args.isEmpty() && args.first().startsWith(QStringLiteral("--")) && args.size() >= 2) {
        const QString option = args.takeFirst(), value = args.takeFirst();
        if (option == QStringLiteral("--sizes")) sizes = parseSizes(value);
        else if (option == QStringLiteral("--out")) outDir = value;
        else if (option == QStringLiteral("--tag")) tag = value;
    }
    if (sizes.isEmpty()) {
        if (args.isEmpty()) {
            std::fprintf(stderr, "usage: velmora-window-shot OUT.png [FILE...]\n"
                                 "       velmora-window-shot --sizes WxH[,WxH…] --out DIR --tag NAME [FILE...]\n");
            return 2;
        }
        single = args.takeFirst();
    }
    QApplication::setPalette(velmora::theme::studioPalette());
    velmora::FixedChoosers choosers;
    velmora::Model model(nullptr, &choosers);
    velmora::MainWindow window(model);
    window.show();
    model.addFiles(args);

    QElapsedTimer clock;
    clock.start();
    while ((model.busy() || !window.windowHandle() || !window.windowHandle()->isExposed()) && clock.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    // Let the server draw what the window painted.
    runFor(500);

    if (!single.isEmpty()) {
        const QPixmap shot = grab(window);
        std::printf("platform %s, window %dx%d, grabbed %dx%d\n", qPrintable(QGuiApplication::platformName()),
                    window.width(), window.height(), shot.width(), shot.height());
        if (shot.isNull() || !shot.save(single)) return 1;
        return model.busy() ? 1 : 0;
    }

    std::printf("platform %s, device pixel ratio %g\n", qPrintable(QGuiApplication::platformName()),
                window.devicePixelRatioF());
    for (const QSize& size : sizes) {
        const QString name = QStringLiteral("%1x%2").arg(size.width()).arg(size.height());
        window.resize(size);
        clock.restart();
        while (window.size() != size && clock.elapsed() < 5000) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        runFor(400);
        // A loaded machine may deliver the last layout passes late: a little longer for them.
        clock.restart();
        while (!velmora::test::layoutProblems(window).isEmpty() && clock.elapsed() < 3000) runFor(50);
        const QPixmap shot = grab(window);
        const QString path = QStringLiteral("%1/window-%2@%3.png").arg(outDir, name, tag);
        std::printf("shot %s: window %dx%d, grabbed %dx%d, %s\n", qPrintable(name), window.width(), window.height(),
                    shot.width(), shot.height(), qPrintable(path));
        if (shot.isNull() || !shot.save(path)) return 1;
        if (window.size() != size)
            std::printf("problem %s: the window stays %dx%d\n", qPrintable(name), window.width(), window.height());
        for (const QString& problem : velmora::test::layoutProblems(window))
            std::printf("problem %s: %s\n", qPrintable(name), qPrintable(problem));
        std::fflush(stdout);
    }
    return model.busy() ? 1 : 0;
}
