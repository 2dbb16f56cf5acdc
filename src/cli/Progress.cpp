#include "cli/Progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace velmora::cli {

ProgressBar::ProgressBar(std::string label) : label_(std::move(label)), enabled_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::update(double fraction) {
    if (!enabled_) return;
    const int percent = int(std::clamp(fraction, 0.0, 1.0) * 100.0);
    const auto now = std::chrono::steady_clock::now();
    if (percent == lastPercent_ || (drawn_ && now - lastDraw_ < std::chrono::milliseconds(100) && percent < 100)) return;
    lastPercent_ = percent;
    lastDraw_ = now;
    constexpr int width = 30;
    const int filled = percent * width / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %% %s", std::string(std::size_t(filled), '#').c_str(),
                 std::string(std::size_t(width - filled), ' ').c_str(), percent, label_.c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::finish() {
    if (!enabled_ || !drawn_) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace velmora::cli
