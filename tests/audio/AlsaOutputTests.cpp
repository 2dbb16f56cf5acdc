// Real-time output through ALSA into a PCM of type file, defined in the test's own ALSA
// configuration, whose raw output is read back.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

#include "audio/LiveMonitor.h"
#include "audio/OutputTestSupport.h"
#include "audio/TestSine.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using namespace std::chrono_literals;

// Eight channels written raw to `file`, in the format the writer asks for (FLOAT_LE, which null
// takes). The multi stage fixes the channel count, which null alone would leave open; the hint
// makes the PCM listed.
std::string probeConfiguration(const std::filesystem::path& file) {
    std::string bindings;
    for (int c = 0; c < 8; ++c)
        bindings += "      " + std::to_string(c) + " { slave a channel " + std::to_string(c) + " }\n";
    return "</usr/share/alsa/alsa.conf>\n"
           "pcm.velmora_probe {\n"
           "  type file\n"
           "  slave.pcm {\n"
           "    type multi\n"
           "    slaves.a { pcm \"null\" channels 8 }\n"
           "    bindings {\n" +
           bindings +
           "    }\n"
           "  }\n"
           "  file \"" + file.string() + "\"\n"
           "  format \"raw\"\n"
           "  hint { show on description \"Velmora probe\" }\n"
           "}\n";
}

TEST(AlsaOutput, WithoutJackAFilePcmIsListedAndReceivesTheToneOnTwoOfItsEightChannels) {
    test::ScratchDir dir;
    const auto raw = dir / "probe.raw", conf = dir / "asound.conf";
    std::ofstream(conf) << probeConfiguration(raw);
    test::ScopedEnv alsa("ALSA_CONFIG_PATH", conf.string());
    test::ScopedEnv noJack("JACK_DEFAULT_SERVER", "velmora-test-no-such-server");

    {
        LiveMonitor monitor;
        const auto devices = monitor.listOutputDevices();
        const auto it =
            std::find_if(devices.begin(), devices.end(), [](const auto& d) { return d.uid == "ALSA:velmora_probe"; });
        ASSERT_NE(it, devices.end()) << "without a JACK server, ALSA's PCMs are listed";
        EXPECT_EQ(it->name, "Velmora probe");
        EXPECT_EQ(it->outputChannels, 8);
        EXPECT_EQ(it->channelNames,
                  (std::vector<std::string>{"Out 1", "Out 2", "Out 3", "Out 4", "Out 5", "Out 6", "Out 7", "Out 8"}));

        ASSERT_EQ(monitor.configure("ALSA:velmora_probe", 2, 3), std::nullopt);
        EXPECT_EQ(monitor.deviceSampleRate(), 48000.0);
        // Another output of the same process (playback beside the live monitor) still lists the
        // PCM this one holds, as it was, without opening it again (which would empty its file).
        LiveMonitor other;
        const auto seen = other.listOutputDevices();
        const auto held = std::find_if(seen.begin(), seen.end(), [](const auto& d) { return d.uid == "ALSA:velmora_probe"; });
        ASSERT_NE(held, seen.end());
        EXPECT_EQ(held->outputChannels, 8);
        std::atomic<bool> finished{false};
        monitor.play(makeTestSine(), testSineSampleRate, [&] { finished = true; });
        ASSERT_TRUE(test::waitUntil([&] { return finished.load(); }, 10s)) << monitor.lastError().value_or("");
        // Once the tone has been heard the PCM is closed, for other programs, while the route stays.
        EXPECT_TRUE(test::waitUntil([&] { return monitor.deviceSampleRate() == 0.0; }, 10s));
        EXPECT_EQ(monitor.currentDeviceName(), "Velmora probe");
    }

    std::ifstream in(raw, std::ios::binary);
    std::vector<float> interleaved(std::filesystem::file_size(raw) / sizeof(float));
    in.read(reinterpret_cast<char*>(interleaved.data()), std::streamsize(interleaved.size() * sizeof(float)));
    const std::size_t frames = interleaved.size() / 8;
    const std::vector<float> tone = makeTestSine()[0];
    ASSERT_GE(frames, tone.size());
    std::vector<std::size_t> nonZero(8, 0);
    for (std::size_t f = 0; f < frames; ++f)
        for (int c = 0; c < 8; ++c) nonZero[std::size_t(c)] += interleaved[f * 8 + std::size_t(c)] != 0.0f;
    // The file starts with the stream, and so does the tone.
    for (int c : {2, 3}) {
        std::size_t mismatches = 0;
        for (std::size_t f = 0; f < frames; ++f)
            mismatches += interleaved[f * 8 + std::size_t(c)] != (f < tone.size() ? tone[f] : 0.0f);
        EXPECT_EQ(mismatches, 0u) << "channel " << c + 1;
    }
    EXPECT_EQ(nonZero, (std::vector<std::size_t>{0, 0, nonZero[2], nonZero[2], 0, 0, 0, 0}));
}

}  // namespace
}  // namespace velmora
