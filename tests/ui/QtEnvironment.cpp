// The components need a QApplication: widgets, fonts and the accessibility registry live in it.
// They are drawn off screen, so the tests run without a display.
#include <QApplication>
#include <gtest/gtest.h>

#include "ui/StudioTheme.h"

namespace {

class QtEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app_ = std::make_unique<QApplication>(argc_, argv_);
        QApplication::setPalette(velmora::theme::studioPalette());
    }
    void TearDown() override { app_.reset(); }

private:
    int argc_ = 1;
    char name_[16] = "ui_tests";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<QApplication> app_;
};

const auto* environment = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

}  // namespace
