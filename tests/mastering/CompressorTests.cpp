#include <gtest/gtest.h>

#include "MasteringSignals.h"
#include "mastering/Compressors.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

MasterParams bus(double threshold, double ratio, double attack, double release, double makeup = 0) {
    MasterParams p;
    p.compOn = true;
    p.compThreshold = threshold, p.compRatio = ratio, p.compAttack = attack, p.compRelease = release;
    p.compMakeup = makeup;
    return p;
}

double onePole(double ms) { return std::exp(-1.0 / (fs48 * ms / 1000.0)); }

}  // namespace

TEST(BusCompressor, StepFollowsTheAttackAndReleaseConstants) {
    // −30 dBFS (under the −18 threshold) for 1 s, −6 dBFS for 1 s, back to −30: the detector is
    // the bare one-pole in dB, from −30 towards −6 and back.
    const std::size_t sec = 48000;
    const auto in = steps({{-30, sec}, {-6, sec}, {-30, sec}});
    Channels x{in, in};
    EXPECT_NEAR(busCompress(x, fs48, bus(-18, 4, 10, 200)), (-6 + 18) * (1 - 1.0 / 4), 1e-6);
    EXPECT_EQ(x[0], x[1]);
    auto gainDB = [&](std::size_t i) { return toDB(x[0][i] / in[i]); };
    auto expected = [](double env) { return env > -18 ? -(env + 18) * 0.75 : 0.0; };
    for (double n : {0.0, 100.0, 480.0, 2000.0, 40000.0})
        EXPECT_NEAR(gainDB(sec + n), expected(-6 - 24 * std::pow(onePole(10), n + 1)), 1e-4) << n;
    const double top = -6 - 24 * std::pow(onePole(10), double(sec));
    for (double n : {0.0, 960.0, 9600.0, 30000.0})
        EXPECT_NEAR(gainDB(2 * sec + n), expected(-30 + (top + 30) * std::pow(onePole(200), n + 1)), 1e-4) << n;
    EXPECT_EQ(gainDB(10), 0.0);
}

TEST(BusCompressor, NeutralSettingsChangeNothingAndTimeFloorsApply) {
    const auto in = noise(20000, 0.9, 5);
    Channels x{in};
    EXPECT_EQ(busCompress(x, fs48, bus(-40, 1, 10, 200)), 0.0);  // ratio 1
    MasterParams off = bus(-40, 8, 10, 200);
    off.compOn = false;
    EXPECT_EQ(busCompress(x, fs48, off), 0.0);
    EXPECT_EQ(x[0], in);

    // Attack 0 runs as 0.05 ms and release 0 as 1 ms.
    Channels a{in}, b{in};
    EXPECT_EQ(busCompress(a, fs48, bus(-20, 6, 0, 0)), busCompress(b, fs48, bus(-20, 6, 0.05, 1.0)));
    EXPECT_EQ(a, b);
    EXPECT_NE(a[0], in);

    // Under the threshold only the make-up acts.
    const auto quiet = noise(10000, fromDB(-30), 6);
    Channels q{quiet};
    EXPECT_EQ(busCompress(q, fs48, bus(-18, 4, 10, 200, 3)), 0.0);
    for (std::size_t i = 0; i < quiet.size(); ++i) ASSERT_EQ(q[0][i], quiet[i] * float(fromDB(3)));
}

TEST(ProtectionCompressor, BelowMinus12DBFSNothingChangesAboveItHalvesTheExcess) {
    auto in = noise(30000, fromDB(-13), 7);
    Channels x{in, in};
    protectCompress(x, fs48);
    EXPECT_EQ(x, (Channels{in, in}));

    // A steady −4 dBFS settles at (−4 + 12)·0.5 = 4 dB of reduction, reached through a 50 ms
    // one-pole from −120 dB.
    const auto loud = steps({{-4, 96000}});
    Channels y{loud, std::vector<float>(loud.size(), 0.0f)};
    protectCompress(y, fs48);
    EXPECT_NEAR(toDB(y[0][95999] / loud[95999]), -4.0, 1e-4);
    const double env = -4 - 116 * std::pow(onePole(50), 7200.0);  // three time constants in
    ASSERT_GT(env, -12.0);
    EXPECT_NEAR(toDB(y[0][7199] / loud[7199]), -(env + 12) * 0.5, 1e-4);
}

TEST(ProtectionCompressor, StreamedInUnevenBlocksItGivesTheWholeProgrammeResult) {
    // Loud and quiet passages, so the detector carries attack and release across block edges.
    Channels x{steps({{0.9, 30000}, {0.05, 20000}, {0.7, 41000}}), steps({{0.3, 30000}, {0.8, 20000}, {0.1, 41000}})};
    for (auto& ch : x)
        for (std::size_t i = 0; i < ch.size(); ++i) ch[i] *= float(std::sin(0.05 * double(i)));
    Channels whole = x;
    protectCompress(whole, fs48);
    StreamingProtection streamed(2, fs48);
    for (std::size_t begin = 0, n = 1; begin < x[0].size(); begin += n, n = n * 5 % 9000 + 3) {
        n = std::min(n, x[0].size() - begin);
        float* block[2] = {x[0].data() + begin, x[1].data() + begin};
        streamed.process(block, n);
    }
    EXPECT_TRUE(x == whole);
    EXPECT_FALSE(x == Channels({steps({{0.9, 30000}, {0.05, 20000}, {0.7, 41000}})})) << "nothing was compressed";
}
