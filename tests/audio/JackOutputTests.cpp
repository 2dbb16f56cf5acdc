// Real-time output through a private JACK server into a probe client that records its ports.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <thread>

#include "audio/JackFixture.h"
#include "audio/LiveMonitor.h"
#include "audio/TestSine.h"

namespace velmora {
namespace {

using namespace std::chrono_literals;
using test::expectTheTone;
using test::firstNonZero;
using test::nonZeroCount;
using test::ProbeClient;
using test::waitUntil;

constexpr std::size_t probeCapacity = 12 * 48000;  // frames: the longest test plays 3 s

// A ramp repeating every 1000 frames, never zero, so where it starts is plain; the right channel
// is its negative, so a swapped or shared channel shows.
class CountingSource final : public RenderSource {
public:
    static float value(std::size_t k) { return float(k % 1000 + 1) / 1024.0f; }
    void render(std::size_t frames, float* left, float* right) noexcept override {
        for (std::size_t i = 0; i < frames; ++i) {
            left[i] = value(next_ + i);
            right[i] = -value(next_ + i);
        }
        next_ += frames;
    }

private:
    std::size_t next_ = 0;
};

// Checks that `x`, from its first non-zero sample on, holds `sign` · value(i) for the rest of
// its non-zero run and nothing after; returns the length of that run.
std::size_t exactRun(const std::vector<float>& x, std::size_t from, float sign) {
    const std::ptrdiff_t start = firstNonZero(x, from);
    if (start < 0) return 0;
    std::size_t i = 0;
    for (; std::size_t(start) + i < x.size() && x[std::size_t(start) + i] != 0.0f; ++i) {
        const float expected = sign * CountingSource::value(i);
        if (x[std::size_t(start) + i] != expected) {
            ADD_FAILURE() << "sample " << i << " of the run: " << x[std::size_t(start) + i] << " instead of "
                          << expected;
            return i;
        }
    }
    EXPECT_EQ(nonZeroCount(x, std::size_t(start) + i), 0u) << "signal after the run ended at " << i;
    return i;
}

using JackOutput = test::WithPrivateJackServer<48000>;
using JackOutputAt44100 = test::WithPrivateJackServer<44100>;

TEST_F(JackOutput, ListsThePlaybackClientsAndPlaysTheToneOnTwoChosenPortsOnly) {
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    LiveMonitor monitor;
    const auto devices = monitor.listOutputDevices();
    const auto it = std::find_if(devices.begin(), devices.end(), [](const auto& d) { return d.uid == "JACK:probe"; });
    ASSERT_NE(it, devices.end());
    EXPECT_EQ(it->name, "probe");
    EXPECT_EQ(it->outputChannels, 8);
    EXPECT_EQ(it->channelNames, probe.portNames());
    // The dummy card's two playback ports; Velmora's own client has none and is not listed.
    EXPECT_TRUE(std::any_of(devices.begin(), devices.end(),
                            [](const auto& d) { return d.uid == "JACK:system" && d.outputChannels == 2; }));

    ASSERT_EQ(monitor.configure("JACK:probe", 2, 3), std::nullopt);
    EXPECT_EQ(monitor.currentDeviceName(), "probe");
    EXPECT_EQ(monitor.deviceSampleRate(), 48000.0);
    std::atomic<bool> finished{false};
    monitor.play(makeTestSine(), testSineSampleRate, [&] { finished = true; });
    EXPECT_TRUE(monitor.isPlaying());
    EXPECT_EQ(monitor.lastError(), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return finished.load(); }, 10s));
    ASSERT_TRUE(probe.receiveMore());
    EXPECT_FALSE(monitor.isPlaying());

    for (int port : {2, 3}) {
        SCOPED_TRACE("port " + std::to_string(port + 1) + ", xruns " + std::to_string(probe.xruns()));
        expectTheTone(probe.recorded(port));
    }
    for (int port : {0, 1, 4, 5, 6, 7}) EXPECT_EQ(nonZeroCount(probe.recorded(port)), 0u) << "port " << port + 1;
}

TEST_F(JackOutput, RendersASourceSampleForSampleAndClampsTheChannels) {
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    LiveMonitor monitor;
    ASSERT_EQ(monitor.configure("JACK:probe", 2, 3), std::nullopt);
    ASSERT_TRUE(monitor.start(std::make_shared<CountingSource>()));
    EXPECT_TRUE(monitor.isPlaying());
    const std::size_t startedAt = probe.frames();
    ASSERT_TRUE(waitUntil([&] { return probe.frames() > startedAt + 24000; }, 5s));
    monitor.stop();
    EXPECT_FALSE(monitor.isPlaying());
    ASSERT_TRUE(probe.receiveMore());

    EXPECT_GT(exactRun(probe.recorded(2), 0, 1.0f), 23000u);
    EXPECT_GT(exactRun(probe.recorded(3), 0, -1.0f), 23000u);
    for (int port : {0, 1, 4, 5, 6, 7}) EXPECT_EQ(nonZeroCount(probe.recorded(port)), 0u) << "port " << port + 1;

    // Both indices past the last channel land on it, and a channel chosen for both sides
    // carries the right signal alone.
    const std::size_t mark = probe.frames();
    ASSERT_EQ(monitor.configure("JACK:probe", 42, 42), std::nullopt);
    ASSERT_TRUE(monitor.start(std::make_shared<CountingSource>()));
    const std::size_t restartedAt = probe.frames();
    ASSERT_TRUE(waitUntil([&] { return probe.frames() > restartedAt + 12000; }, 5s));
    monitor.stop();
    ASSERT_TRUE(probe.receiveMore());
    EXPECT_GT(exactRun(probe.recorded(7), mark, -1.0f), 11000u);
    for (int port = 0; port < 7; ++port) EXPECT_EQ(nonZeroCount(probe.recorded(port), mark), 0u) << "port " << port + 1;
}

TEST_F(JackOutput, ReportsTheDeviceGoneWhenItsClientClosesWhilePlaying) {
    auto probe = std::make_unique<ProbeClient>(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe->open());
    LiveMonitor monitor;
    std::atomic<int> changes{0};
    monitor.setChangeHandler([&] { ++changes; });
    ASSERT_EQ(monitor.configure("JACK:probe", 0, 1), std::nullopt);
    ASSERT_TRUE(monitor.start(std::make_shared<CountingSource>()));
    const std::size_t started = probe->frames();
    ASSERT_TRUE(waitUntil([&] { return probe->frames() > started + 4800; }, 5s));

    probe->close();
    EXPECT_TRUE(waitUntil([&] { return monitor.lastError() == LiveMonitor::disconnectedMessage; }, 5s))
        << monitor.lastError().value_or("no error");
    EXPECT_FALSE(monitor.isPlaying());
    EXPECT_EQ(monitor.currentDeviceName(), "");
    EXPECT_GT(changes.load(), 0);
    // The route is remembered: starting again looks for the device and says it is missing.
    EXPECT_FALSE(monitor.start(std::make_shared<CountingSource>()));
    EXPECT_EQ(monitor.lastError(), "Carte son introuvable (UID JACK:probe). Vérifiez qu'elle est connectée et "
                                   "reconnue par le système.");
}

TEST_F(JackOutput, KeepsPlayingWhileOtherClientsComeAndRoutesAgainWhenItsDeviceChanges) {
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    LiveMonitor monitor;
    std::atomic<int> changes{0};
    monitor.setChangeHandler([&] { ++changes; });
    ASSERT_EQ(monitor.configure("JACK:probe", 0, 1), std::nullopt);
    ASSERT_TRUE(monitor.start(std::make_shared<CountingSource>()));

    const int before = changes.load();
    ProbeClient bystander(server->name(), "bystander", 2, 4800);
    ASSERT_TRUE(bystander.open());
    ASSERT_TRUE(waitUntil([&] { return changes.load() > before; }, 5s));
    std::this_thread::sleep_for(100ms);  // the rest of the bystander's registrations
    EXPECT_TRUE(monitor.isPlaying());
    EXPECT_EQ(monitor.lastError(), std::nullopt);

    // The routed device itself changed: playback stops and the route is made again.
    ASSERT_TRUE(probe.renamePort(0, "front left"));
    ASSERT_TRUE(waitUntil([&] { return !monitor.isPlaying(); }, 5s));
    EXPECT_EQ(monitor.lastError(), std::nullopt);
    EXPECT_EQ(monitor.currentDeviceName(), "probe");
    const std::size_t mark = probe.frames();
    ASSERT_TRUE(monitor.start(std::make_shared<CountingSource>()));
    ASSERT_TRUE(waitUntil([&] { return probe.frames() > mark + 4800; }, 5s));
    monitor.stop();
    ASSERT_TRUE(probe.receiveMore());
    EXPECT_GT(exactRun(probe.recorded(0), mark, 1.0f), 4000u);
}

TEST_F(JackOutput, RefusesToPlayWithoutADevice) {
    LiveMonitor monitor;
    EXPECT_FALSE(monitor.start(std::make_shared<CountingSource>()));
    EXPECT_EQ(monitor.lastError(), "Aucune carte son configurée pour le monitoring temps réel.");
    EXPECT_EQ(monitor.configure("JACK:nowhere", 0, 1), LiveMonitorError::deviceNotFound("JACK:nowhere"));
    monitor.play(makeTestSine(), testSineSampleRate);
    EXPECT_FALSE(monitor.isPlaying());
    EXPECT_EQ(monitor.lastError(), "Aucune carte son configurée pour le monitoring temps réel.");
}

TEST_F(JackOutputAt44100, PlaysThe48kHzToneConvertedToTheServersRate) {
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    LiveMonitor monitor;
    ASSERT_EQ(monitor.configure("JACK:probe", 0, 1), std::nullopt);
    EXPECT_EQ(monitor.deviceSampleRate(), 44100.0);
    std::atomic<bool> finished{false};
    monitor.play(makeTestSine(), testSineSampleRate, [&] { finished = true; });
    ASSERT_TRUE(waitUntil([&] { return finished.load(); }, 10s));
    ASSERT_TRUE(probe.receiveMore());

    auto left = probe.recorded(0), right = probe.recorded(1);
    left.resize(std::min(left.size(), right.size()));
    right.resize(left.size());
    EXPECT_EQ(left, right);
    // Where the tone is audible: the converter's ringing at both ends lies far below 1e-3.
    const auto loud = [](float v) { return std::fabs(v) > 1e-3f; };
    const auto first = std::find_if(left.begin(), left.end(), loud);
    const auto last = std::find_if(left.rbegin(), left.rend(), loud).base();
    ASSERT_LT(first, last);
    EXPECT_NEAR(double(last - first), 88200.0, 10.0);
    float peak = 0;
    for (float v : left) peak = std::max(peak, std::fabs(v));
    EXPECT_NEAR(peak, 0.0707, 0.0707 * 0.002);
    // 1 kHz: rising zero crossings every 44.1 samples.
    std::vector<double> crossings;
    for (auto it = first; it + 1 < last; ++it)
        if (*it < 0.0f && *(it + 1) >= 0.0f) crossings.push_back(double(it - left.begin()) - *it / (*(it + 1) - *it));
    ASSERT_GT(crossings.size(), 1900u);
    EXPECT_NEAR((crossings.back() - crossings.front()) / double(crossings.size() - 1), 44.1, 0.001);
}

}  // namespace
}  // namespace velmora
