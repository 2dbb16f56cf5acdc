#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <numbers>
#include <thread>
#include <vector>

#include "AllocationGuard.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "support/TestSupport.h"

using namespace velmora;
using velmora::test::AllocationGuard;

namespace {

// Out of the optimiser's sight, so the allocations the guard must see really happen.
void* volatile sink;

__attribute__((noinline)) void allocateEveryWay() {
    sink = new int(1);
    delete static_cast<int*>(sink);
    sink = new double[3];
    delete[] static_cast<double*>(sink);
    sink = std::malloc(16);
    std::free(sink);
    sink = std::aligned_alloc(64, 64);
    std::free(sink);
    std::vector<float> grows;
    grows.push_back(1.0f);
    sink = grows.data();
}

// Every real-time stage on: eight bands (five before the compressor, three after), the bus
// compressor, and a meter.
MasterParams everyStage(double variation) {
    MasterParams p;
    p.eqOn = p.hpfOn = p.compOn = true;
    p.hpfFreq = 40 + variation;
    p.lsGain = 2 + variation, p.b1Gain = -3, p.b2Gain = 4 - variation, p.hsGain = 1.5;
    p.tLsGain = 1, p.tMidGain = -2 + variation, p.tHsGain = 2;
    p.compThreshold = -20 - variation, p.compRatio = 3, p.compAttack = 5, p.compRelease = 150;
    return p;
}

}  // namespace

TEST(AllocationGuard, SeesEveryKindOfAllocationOnTheArmedThreadOnly) {
    {
        AllocationGuard armed;
        allocateEveryWay();
        EXPECT_EQ(armed.allocations(), 5u);
        EXPECT_EQ(armed.releases(), 5u);
    }
    std::atomic<bool> go{false}, done{false};
    std::thread other([&] {
        while (!go) std::this_thread::yield();
        allocateEveryWay();
        done = true;
    });
    {
        AllocationGuard armed;
        go = true;
        while (!done) std::this_thread::yield();
        EXPECT_EQ(armed.allocations(), 0u);
        EXPECT_EQ(armed.releases(), 0u);
    }
    other.join();
}

TEST(RealTimeRender, TenThousandBlocksWithChangesSeeksAndABFlipsAllocateNothing) {
    constexpr double fs = 48000;
    std::vector<float> left(5 * 48000), right(left.size());
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] = float(0.7 * std::sin(2 * std::numbers::pi * 220 * double(i) / fs));
        right[i] = float(0.5 * std::sin(2 * std::numbers::pi * 3300 * double(i) / fs));
    }
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    ASSERT_FALSE(streamer->init({left, right}, fs, fs));
    streamer->update(everyStage(0), 0.0);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(fs);
    streamer->setLiveMeter(meter);

    // The render thread keeps pace with the main thread (one change for every two blocks at
    // least), so the changes and seeks really fall between and during its blocks.
    constexpr int blocks = 10000;
    std::atomic<bool> rendering{true};
    std::atomic<int> rendered{0}, changes{0};
    std::size_t allocations = ~std::size_t(0), releases = ~std::size_t(0);
    std::thread renderThread([&] {
        std::vector<float> outL(64), outR(64);
        {
            AllocationGuard armed;
            for (int b = 0; b < blocks; ++b) {
                while (changes.load(std::memory_order_relaxed) < b / 2) std::this_thread::yield();
                streamer->render(64, outL.data(), outR.data());
                rendered.store(b + 1, std::memory_order_relaxed);
            }
            allocations = armed.allocations();
            releases = armed.releases();
        }
        rendering = false;
    });
    // The main thread's side: parameter changes, seeks, readings of the position and the meter.
    int seeks = 0;
    double lastPosition = 0;
    while (rendering) {
        const int b = rendered.load(std::memory_order_relaxed);
        streamer->update(everyStage(double(b % 7)), b % 3 ? 0.0 : -2.0);
        // A/B flips and new matches, mid-fade too.
        streamer->setSourceHeard(b % 4 < 2);
        streamer->setSourceGain(double(b % 9) - 4.0);
        if (changes % 5 == 0) {
            streamer->seek(double(b % 11) / 10.0);
            ++seeks;
        }
        lastPosition = streamer->position();
        meter->stats();
        changes.fetch_add(1, std::memory_order_relaxed);
    }
    renderThread.join();

    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(releases, 0u);
    EXPECT_GE(changes, blocks / 2 - 1);
    EXPECT_GE(seeks, blocks / 10 - 1);
    EXPECT_GE(lastPosition, 0.0);
    const auto readings = meter->stats();
    EXPECT_TRUE(std::isfinite(readings.momentary) && std::isfinite(readings.integrated));
    EXPECT_GT(readings.peakDB, -6.0);
}

TEST(RealTimeRender, StreamedFromTheFileThroughSeeksAndConversionAllocatesNothing) {
    // A 44.1 kHz 5.1 file on a 48 kHz render: the decoding thread folds and converts, allocating
    // as it must, while the render thread only copies out of the ring.
    velmora::test::ScratchDir dir;
    std::vector<std::vector<float>> file(6, std::vector<float>(3 * 44100));
    for (std::size_t c = 0; c < file.size(); ++c)
        for (std::size_t i = 0; i < file[c].size(); ++i)
            file[c][i] = float(0.2 * std::sin(2 * std::numbers::pi * double(100 * (c + 1)) * double(i) / 44100.0));
    velmora::test::writeFloatWav(dir / "in.wav", file, 44100);
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    streamer->init(std::make_shared<ListeningStream>(StreamShape{(dir / "in.wav").string(), false, 6, 3 * 44100, 44100}, 48000, 0, true));
    streamer->update(everyStage(0), 0.0);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(48000);
    streamer->setLiveMeter(meter);

    constexpr int blocks = 6000;
    std::atomic<bool> rendering{true};
    std::atomic<int> rendered{0};
    std::size_t allocations = ~std::size_t(0), releases = ~std::size_t(0);
    std::thread renderThread([&] {
        std::vector<float> outL(256), outR(256);
        {
            AllocationGuard armed;
            for (int b = 0; b < blocks; ++b) {
                streamer->render(256, outL.data(), outR.data());
                rendered.store(b + 1, std::memory_order_relaxed);
                // About the device's pace, so that the ring both fills and runs dry after seeks.
                if (b % 8 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
            }
            allocations = armed.allocations();
            releases = armed.releases();
        }
        rendering = false;
    });
    int seeks = 0;
    while (rendering) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        streamer->seek(double(seeks % 9) / 8.0);
        ++seeks;
    }
    renderThread.join();

    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(releases, 0u);
    EXPECT_GT(seeks, 5);
    // Sound did come through between the seeks.
    EXPECT_GT(meter->stats().peakDB, -20.0);
}
