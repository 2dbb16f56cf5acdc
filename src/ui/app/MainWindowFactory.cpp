#include "ui/app/MainWindowFactory.h"

#include <QLabel>
#include <QStatusBar>

#include "model/Model.h"
#include "ui/StudioTheme.h"

namespace velmora {

// Until the window's content lands: a plain window that shows the queue's size and the status
// line, so the shell can be used and tested.
std::unique_ptr<QMainWindow> createMainWindow(Model& model) {
    auto window = std::make_unique<QMainWindow>();
    auto* content = new QLabel;
    content->setAlignment(Qt::AlignCenter);
    content->setFont(theme::captionFont());
    const auto showQueue = [content, &model] {
        content->setText(QStringLiteral("VELMORA · %1 fichier(s)").arg(model.queue().size()));
    };
    QObject::connect(&model, &Model::queueChanged, content, showQueue);
    showQueue();
    window->setCentralWidget(content);
    QObject::connect(&model, &Model::globalStatusChanged, window.get(),
                     [w = window.get(), &model] { w->statusBar()->showMessage(model.globalStatus()); });
    return window;
}

void saveWindowLayout(QMainWindow&, QSettings&) {}

void restoreWindowLayout(QMainWindow&, QSettings&) {}

}  // namespace velmora
