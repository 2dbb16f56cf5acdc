// The model's tests need a Qt application: its event loop carries the jobs' updates and the PDF
// reports need its fonts. No display is opened.
#include <QGuiApplication>
#include <gtest/gtest.h>

namespace {

class QtEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app_ = std::make_unique<QGuiApplication>(argc_, argv_);
    }
    void TearDown() override { app_.reset(); }

private:
    int argc_ = 1;
    char name_[16] = "model_tests";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<QGuiApplication> app_;
};

const auto* environment = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

}  // namespace
