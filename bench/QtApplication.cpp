#include "QtApplication.h"

#include <QApplication>

namespace velmora::bench {

void ensureQtApplication() {
    static QApplication* app = nullptr;
    if (app) return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "velmora_bench";
    static char* argv[] = {name, nullptr};
    app = new QApplication(argc, argv);  // lives until the process ends: Qt objects outlive statics
}

}  // namespace velmora::bench
