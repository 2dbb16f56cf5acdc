// velmora-gallery: every studio component in several states, for review by eye.
//   velmora-gallery                    a window with all of them
//   velmora-gallery --screenshot DIR   one PNG per component and state at ratios 1 and 2
//                                      (<Component>_<state>@1x.png, @2x.png); needs no display
#include <QApplication>
#include <QDir>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>
#include <cstdio>
#include <cstring>
#include <map>

#include "Exhibits.h"
#include "ui/Snapshot.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"

namespace {

using velmora::gallery::Exhibit;

constexpr int margin = 12;  // panel colour around each shot, so edges and glows can be judged

int writeScreenshots(const QString& folder) {
    if (!QDir().mkpath(folder)) {
        std::fprintf(stderr, "velmora-gallery: cannot create %s\n", qPrintable(folder));
        return 1;
    }
    int written = 0;
    for (const Exhibit& s : velmora::gallery::exhibits()) {
        const auto widget = s.make();
        for (int ratio : {1, 2}) {
            const QString file = QDir(folder).filePath(QStringLiteral("%1_%2@%3x.png").arg(s.component, s.state).arg(ratio));
            if (!velmora::snapshot(*widget, ratio, margin).save(file)) {
                std::fprintf(stderr, "velmora-gallery: cannot write %s\n", qPrintable(file));
                return 1;
            }
            ++written;
        }
    }
    std::printf("%d images in %s\n", written, qPrintable(QDir(folder).absolutePath()));
    return 0;
}

// One panel per component, its states side by side with their names under them.
QWidget* galleryWindow() {
    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setSpacing(14);
    std::map<QString, QHBoxLayout*> rows;
    std::vector<QString> order;
    for (const Exhibit& s : velmora::gallery::exhibits()) {
        if (!rows.count(s.component)) {
            auto* panel = new velmora::StudioPanel(s.component);
            rows[s.component] = new QHBoxLayout(panel);
            rows[s.component]->setSpacing(18);
            column->addWidget(panel);
            order.push_back(s.component);
        }
        auto* cell = new QWidget;
        auto* stack = new QVBoxLayout(cell);
        stack->setContentsMargins(0, 0, 0, 0);
        auto widget = s.make();
        widget->setFixedSize(widget->size());
        stack->addWidget(widget.release(), 0, Qt::AlignLeft | Qt::AlignTop);
        auto* name = new QLabel(s.state);
        name->setFont(velmora::theme::monoFont(velmora::theme::scalePx));
        stack->addWidget(name);
        stack->addStretch();
        rows[s.component]->addWidget(cell, 0, Qt::AlignTop);
    }
    for (const QString& c : order) rows[c]->addStretch();
    column->addStretch();
    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setWindowTitle(QStringLiteral("Velmora · composants"));
    scroll->resize(1500, 950);
    return scroll;
}

}  // namespace

int main(int argc, char** argv) {
    QString screenshotFolder;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--screenshot") == 0 && i + 1 < argc) {
            screenshotFolder = QString::fromLocal8Bit(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: velmora-gallery [--screenshot DIR]\n");
            return 2;
        }
    }
    // Screenshots need no display: without a platform chosen, draw off screen.
    if (!screenshotFolder.isEmpty() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QApplication app(argc, argv);
    app.setPalette(velmora::theme::studioPalette());
    app.setFont(velmora::theme::bodyFont());
    for (const char* family : {"DejaVu Sans", "DejaVu Sans Mono"})
        if (!QFontDatabase::families().contains(QString::fromLatin1(family)))
            std::fprintf(stderr, "velmora-gallery: the %s font is missing (Debian: fonts-dejavu-core); "
                                 "text will be drawn in a substitute\n", family);

    if (!screenshotFolder.isEmpty()) return writeScreenshots(screenshotFolder);

    std::unique_ptr<QWidget> window(galleryWindow());
    window->show();
    return app.exec();
}
