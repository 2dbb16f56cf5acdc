#pragma once
// A progress bar on standard error, drawn only when it is a terminal and redrawn at most
// every 100 ms, so piping the output stays clean and cheap.
#include <chrono>
#include <string>

namespace velmora::cli {

class ProgressBar {
public:
    explicit ProgressBar(std::string label);
    ~ProgressBar();
    void update(double fraction);  // 0 … 1
    void finish();

private:
    std::string label_;
    bool enabled_;
    bool drawn_ = false;
    int lastPercent_ = -1;
    std::chrono::steady_clock::time_point lastDraw_{};
};

}  // namespace velmora::cli
