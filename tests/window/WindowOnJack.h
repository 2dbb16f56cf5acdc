#pragma once
// The real window over a model, shown, with a private JACK server for the output that listening,
// the space bar and live mastering need.
#include <QCoreApplication>
#include <memory>

#include "WindowTesting.h"
#include "audio/JackFixture.h"
#include "model/Model.h"
#include "ui/MainWindow.h"

namespace velmora::test {

class WindowOnJack : public WithPrivateJackServer<48000> {
protected:
    void SetUp() override {
        WithPrivateJackServer::SetUp();
        model = std::make_unique<Model>(nullptr, &choosers);
        window = std::make_unique<MainWindow>(*model);
        window->show();
        QCoreApplication::processEvents();
    }
    void TearDown() override {
        window.reset();
        model.reset();
        WithPrivateJackServer::TearDown();
    }

    FixedChoosers choosers;
    std::unique_ptr<Model> model;
    std::unique_ptr<MainWindow> window;
};

}  // namespace velmora::test
