#pragma once
// Driving the model as the application does: a real event loop, real files, real jobs.
#include <QEventLoop>
#include <QTimer>
#include <cmath>
#include <numbers>
#include <vector>

#include "model/Model.h"

namespace velmora::test {

// Runs the event loop until the model has nothing more to do; false after `seconds`.
inline bool waitIdle(Model& model, int seconds = 120) {
    if (model.busy()) {
        QEventLoop loop;
        QTimer timeout;
        timeout.setSingleShot(true);
        QObject::connect(&timeout, &QTimer::timeout, &loop, &QEventLoop::quit);
        QObject::connect(&model, &Model::idle, &loop, &QEventLoop::quit);
        timeout.start(seconds * 1000);
        loop.exec();
    }
    if (model.busy()) return false;
    model.waitForJob();
    return true;
}

inline std::vector<std::vector<float>> sine(double seconds, double amplitude, int channels = 2, double hz = 997.0,
                                            int rate = 48000) {
    std::vector<std::vector<float>> c(std::size_t(channels), std::vector<float>(std::size_t(seconds * rate)));
    for (auto& ch : c)
        for (std::size_t i = 0; i < ch.size(); ++i)
            ch[i] = float(amplitude * std::sin(2 * std::numbers::pi * hz * double(i) / rate));
    return c;
}

}  // namespace velmora::test
