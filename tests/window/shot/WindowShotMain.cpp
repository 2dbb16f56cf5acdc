// Opens the main window on whatever display the platform plugin reaches (xcb under Xvfb in the
// tests), queues the files given, waits for their analysis, and saves what the display server
// shows of the window: the real display path, not a render into an image.
//
//   velmora-window-shot OUT.png [FILE...]
#include <QApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>
#include <QWindow>
#include <cstdio>

#include "model/Model.h"
#include "ui/MainWindow.h"
#include "ui/StudioTheme.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: velmora-window-shot OUT.png [FILE...]\n");
        return 2;
    }
    QApplication::setPalette(velmora::theme::studioPalette());
    velmora::FixedChoosers choosers;
    velmora::Model model(nullptr, &choosers);
    velmora::MainWindow window(model);
    window.show();
    QStringList files;
    for (int i = 2; i < argc; ++i) files << QString::fromLocal8Bit(argv[i]);
    model.addFiles(files);

    QElapsedTimer clock;
    clock.start();
    while ((model.busy() || !window.windowHandle() || !window.windowHandle()->isExposed()) && clock.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    // Let the server draw what the window painted.
    const qint64 settled = clock.elapsed();
    while (clock.elapsed() < settled + 500) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);

    QScreen* screen = window.screen();
    if (!screen) return 1;
    const QPixmap shot = screen->grabWindow(window.winId());
    std::printf("platform %s, window %dx%d, grabbed %dx%d\n", qPrintable(QGuiApplication::platformName()), window.width(),
                window.height(), shot.width(), shot.height());
    if (shot.isNull() || !shot.save(QString::fromLocal8Bit(argv[1]))) return 1;
    return model.busy() ? 1 : 0;
}
