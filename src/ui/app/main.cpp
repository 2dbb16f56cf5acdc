// velmora: the desktop application.
//   velmora                  opens the window
//   velmora FILE_OR_FOLDER…  opens it with those files queued and analysed (the desktop
//                            entry's "Open with")
// One window per user: a launch while Velmora runs hands its files and folders to that window
// over the session bus and ends (see SingleInstance.h).
//   velmora --version        prints the version and exits
// With VELMORA_QUIT_WHEN_IDLE set, the application closes once what it was given has been
// analysed, exiting 0 when every file is ready and 1 otherwise, and prints the path of each file
// of its queue: for scripts and tests. A number N above 1 waits until N files are queued (some
// may come from later launches).
#include <QApplication>
#include <QFontDatabase>
#include <QIcon>
#include <QStyleFactory>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>
#include <cstring>

#include "ui/StudioTheme.h"
#include "ui/app/SingleInstance.h"
#include "ui/app/VelmoraApp.h"

namespace {

// The studio's colours need a style that follows the palette, whatever the desktop's theme.
void useStudioLook(QApplication& app) {
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    app.setPalette(velmora::theme::studioPalette());
    app.setFont(velmora::theme::bodyFont());
    for (const char* family : {"DejaVu Sans", "DejaVu Sans Mono"})
        if (!QFontDatabase::families().contains(QString::fromLatin1(family)))
            std::fprintf(stderr, "velmora: the %s font is missing (Debian: fonts-dejavu-core); "
                                 "text will be drawn in a substitute\n", family);
}

void quitWhenIdle(velmora::VelmoraApp& app, bool given, int wanted) {
    const auto finish = [&app, given, wanted] {
        const auto& queue = app.model().queue();
        if (app.model().busy() || (wanted > 1 && int(queue.size()) < wanted)) return;
        const bool allReady = std::all_of(queue.begin(), queue.end(),
                                          [](const velmora::FileItem& i) { return i.status == velmora::ItemStatus::ready; });
        const int code = allReady && !(given && queue.empty()) ? 0 : 1;
        for (const auto& item : queue) std::printf("%s\n", item.url.c_str());
        std::fflush(stdout);
        app.window().close();
        QCoreApplication::exit(code);
    };
    QObject::connect(&app.model(), &velmora::Model::idle, &app, finish);
    QTimer::singleShot(0, &app, finish);
}

}  // namespace

int main(int argc, char** argv) {
    // Answered before any display is looked for, so it works from a console or a package check.
    if (argc == 2 && (!std::strcmp(argv[1], "--version") || !std::strcmp(argv[1], "-V"))) {
        std::printf("velmora %s\n", VELMORA_VERSION);
        return 0;
    }
    QApplication qtApp(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Velmora"));
    QApplication::setApplicationName(QStringLiteral("Velmora"));
    QApplication::setApplicationVersion(QStringLiteral(VELMORA_VERSION));
    // Ties the windows to velmora.desktop: its name and icon in the desktop's task switcher.
    QGuiApplication::setDesktopFileName(QStringLiteral("velmora"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/velmora/AppIcon.png")));
    useStudioLook(qtApp);
    if (!velmora::speakFrench(qtApp))
        std::fprintf(stderr, "velmora: Qt's French translations are missing (Debian: qt6-translations-l10n); "
                             "the file dialogs will speak English\n");

    // The arguments' bytes, so a name that is not UTF-8 reaches the queue as it is.
    const std::vector<std::string> paths(argv + 1, argv + argc);
    velmora::SingleInstance instance;
    if (instance.claim(paths) == velmora::SingleInstance::Role::handedOver) return 0;

    velmora::VelmoraApp app;
    app.start({});
    if (!paths.empty()) app.model().addPaths(paths);
    instance.setHandover({[&app](const std::vector<std::string>& more) { app.model().addPaths(more); },
                          [&app] {
                              app.window().show();
                              app.window().raise();
                              app.window().activateWindow();
                          }});
    if (qEnvironmentVariableIsSet("VELMORA_QUIT_WHEN_IDLE"))
        quitWhenIdle(app, !paths.empty(), qEnvironmentVariableIntValue("VELMORA_QUIT_WHEN_IDLE"));
    return QApplication::exec();
}
