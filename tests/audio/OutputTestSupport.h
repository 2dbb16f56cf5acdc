#pragma once
// Waiting on real-time output without hanging, environment variables the audio libraries read
// (JACK's server name, ALSA's configuration path) set for one scope, and finding the test tone
// in what a device received.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "audio/TestSine.h"

namespace velmora::test {

// Polls `done` every 10 ms for at most `timeout`; its last answer.
inline bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() {
        if (old_) setenv(name_, old_->c_str(), 1);
        else unsetenv(name_);
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    std::optional<std::string> old_;
};

inline std::ptrdiff_t firstNonZero(const std::vector<float>& x, std::size_t from = 0) {
    const auto it = std::find_if(x.begin() + std::ptrdiff_t(from), x.end(), [](float v) { return v != 0.0f; });
    return it == x.end() ? -1 : it - x.begin();
}

inline std::size_t nonZeroCount(const std::vector<float>& x, std::size_t from = 0) {
    return std::size_t(std::count_if(x.begin() + std::ptrdiff_t(from), x.end(), [](float v) { return v != 0.0f; }));
}

// The test sine bit for bit, once, and nothing else.
inline void expectTheTone(const std::vector<float>& got) {
    const std::vector<float> tone = makeTestSine()[0];
    // The sine starts on an exact zero: its run starts one sample before the first non-zero.
    const std::ptrdiff_t start = firstNonZero(got) - 1;
    ASSERT_GE(start, 0);
    ASSERT_GE(got.size(), std::size_t(start) + tone.size());
    const auto [t, g] = std::mismatch(tone.begin(), tone.end(), got.begin() + start);
    EXPECT_EQ(t, tone.end()) << "sample " << (t - tone.begin()) << " of the tone: " << *g << " instead of " << *t;
    EXPECT_EQ(nonZeroCount(got, std::size_t(start) + tone.size()), 0u);
    float peak = 0;
    for (float v : got) peak = std::max(peak, std::fabs(v));
    EXPECT_EQ(peak, 0.0707f);
}

}  // namespace velmora::test
