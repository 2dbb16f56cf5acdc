#include "output/Interruption.h"

#include <csignal>

namespace velmora {

namespace {

std::atomic<int> raised{0};

extern "C" void onSignal(int signal) { raised.store(signal, std::memory_order_relaxed); }

}  // namespace

void stopOnInterruptSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;  // the next one is the default: end now
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int interruptSignal() noexcept { return raised.load(std::memory_order_relaxed); }

}  // namespace velmora
