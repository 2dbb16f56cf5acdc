// The model's listening actions on a private JACK server: live mastering routed to two ports of a
// probe, the test tone, the device going away while playing, and plain playback to its end.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <gtest/gtest.h>

#include "ModelTesting.h"
#include "audio/JackFixture.h"
#include <jack/jack.h>
#include <jack/metadata.h>
#include "audio/OutputDevice.h"
#include "model/Model.h"
#include "support/TestSupport.h"

namespace velmora::test {
namespace {

QString q(const std::filesystem::path& p) { return QString::fromStdString(p.string()); }

// Runs the event loop until `done` or 10 s.
bool eventually(const std::function<bool()>& done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 10000) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

float peakOf(const std::vector<float>& x) {
    float p = 0;
    for (float v : x) p = std::max(p, std::fabs(v));
    return p;
}

TEST(ModelListening, WithoutDeviceOrFileItSaysWhatToChooseFirst) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    EXPECT_EQ(model.configureLiveMonitor().value_or(""), "Sélectionnez d'abord une carte son.");
    model.testLiveMonitor();
    EXPECT_EQ(model.globalStatus(), "Monitoring : Sélectionnez d'abord une carte son.");
    model.setLiveMonitorDeviceUID("JACK:anything");
    model.startLiveMastering();
    EXPECT_EQ(model.globalStatus(), "Sélectionnez d'abord un fichier.");
    EXPECT_FALSE(model.isLiveMastering());
    model.togglePlayback();
    EXPECT_FALSE(model.isPlaybackPlaying());
    // A seek with nothing to seek in says why.
    model.seekPlayback(0.5);
    EXPECT_EQ(model.globalStatus(), "Déplacement impossible : Sélectionnez d'abord un fichier.");
}

TEST(ModelListening, AFileGoneSinceItsAnalysisSaysWhyItCannotBePlayed) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", sine(1.0, 0.1), 48000);
    writeFloatWav(dir / "b.wav", sine(1.0, 0.1), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "a.wav"), q(dir / "b.wav")});
    ASSERT_TRUE(waitIdle(model));
    // Selecting another file lets go of the first one's samples: they are read again to listen.
    model.select(model.queue()[1].id);
    model.select(model.queue()[0].id);
    std::filesystem::remove(dir / "a.wav");
    model.togglePlayback();
    EXPECT_FALSE(model.isPlaybackPlaying());
    EXPECT_NE(model.globalStatus(), "Sélectionnez d'abord un fichier.");
    EXPECT_FALSE(model.globalStatus().isEmpty());
    model.startLiveMastering();
    EXPECT_FALSE(model.isLiveMastering());
    EXPECT_NE(model.globalStatus(), "Sélectionnez d'abord un fichier.");
}

using ModelOnJack = WithPrivateJackServer<48000>;

TEST_F(ModelOnJack, LiveMasteringReachesTheChosenPortsAndStopsWhenTheDeviceGoes) {
    ScratchDir dir;
    writeFloatWav(dir / "tone.wav", sine(3.0, 0.25), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "tone.wav")});
    ASSERT_TRUE(waitIdle(model));

    ProbeClient probe(server->name(), "probe", 8, 48000 * 20);
    ASSERT_TRUE(probe.open());
    model.setLiveMonitorDeviceUID("JACK:probe");
    model.setLiveMonitorChannelL(2);
    model.setLiveMonitorChannelR(3);
    model.startLiveMastering();
    ASSERT_TRUE(model.isLiveMastering()) << model.globalStatus().toStdString();
    EXPECT_EQ(model.globalStatus(), "Master Live ON · probe ▶");
    ASSERT_TRUE(probe.receiveMore(48000));
    EXPECT_NEAR(peakOf(probe.recorded(2)), 0.25, 0.01);
    EXPECT_NEAR(peakOf(probe.recorded(3)), 0.25, 0.01);
    for (int port : {0, 1, 4, 5, 6, 7}) EXPECT_EQ(peakOf(probe.recorded(port)), 0.0f) << port;
    ASSERT_TRUE(eventually([&] { return model.liveLevels() && model.liveLevels()->momentary > -30; }));
    EXPECT_GT(model.playPosition(), 0.0);

    // A parameter change is heard from the next block: 6 dB of make-up on the compressor.
    MasterParams louder = model.mp();
    louder.compOn = true;
    louder.compThreshold = 0;
    louder.compMakeup = 6;
    model.setMp(louder);
    const std::size_t before = probe.frames();
    ASSERT_TRUE(probe.receiveMore(24000));
    const auto after = probe.recorded(2);
    EXPECT_NEAR(peakOf({after.begin() + std::ptrdiff_t(before + 4096), after.end()}), 0.25 * 1.995, 0.02);

    model.stopLiveMastering();
    EXPECT_FALSE(model.isLiveMastering());
    EXPECT_EQ(model.globalStatus(), "Master Live OFF");

    // A device that changes under the stream is routed again, and the status line says so
    // rather than still announcing that live mastering plays.
    model.startLiveMastering();
    ASSERT_TRUE(model.isLiveMastering());
    ASSERT_TRUE(probe.renamePort(2, "renamed"));
    ASSERT_TRUE(eventually([&] { return !model.isLiveMastering(); }));
    EXPECT_EQ(model.globalStatus(), "Master Live OFF · probe a changé, routage refait : relancez LIVE.");

    model.startLiveMastering();
    ASSERT_TRUE(model.isLiveMastering());
    probe.close();
    ASSERT_TRUE(eventually([&] { return !model.isLiveMastering(); }));
    EXPECT_EQ(model.globalStatus(), "Carte son déconnectée. Le mode export A/B WAV reste disponible.");
}

TEST_F(ModelOnJack, TestToneAndPlainPlaybackToTheEnd) {
    ScratchDir dir;
    writeFloatWav(dir / "short.wav", sine(0.5, 0.5), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "short.wav")});
    ASSERT_TRUE(waitIdle(model));

    ProbeClient probe(server->name(), "probe", 2, 48000 * 4);
    ASSERT_TRUE(probe.open());
    const auto devices = model.outputDevices();
    EXPECT_TRUE(std::any_of(devices.begin(), devices.end(), [](const OutputDevice& d) { return d.uid == "JACK:probe"; }));
    model.setLiveMonitorDeviceUID("JACK:probe");
    model.testLiveMonitor();
    EXPECT_EQ(model.globalStatus(), "Test 1 kHz sur probe ✓");
    ASSERT_TRUE(probe.receiveMore(48000));
    EXPECT_NEAR(peakOf(probe.recorded(0)), 0.0707, 1e-4);

    // Plain playback goes to the system output and stops by itself at the end of the file.
    model.seekPlayback(1.5);
    EXPECT_DOUBLE_EQ(model.playPosition(), 1.0);
    model.seekPlayback(-1);
    EXPECT_DOUBLE_EQ(model.playPosition(), 0.0);
    EXPECT_DOUBLE_EQ(model.selectedDuration(), 0.5);
    model.togglePlayback();
    ASSERT_TRUE(model.isPlaybackPlaying()) << model.globalStatus().toStdString();
    // The loudness at the playhead is the transport's: the meter block keeps the measurement.
    ASSERT_TRUE(eventually([&] { return model.playbackLevels() && std::isfinite(model.playbackLevels()->momentary); }));
    EXPECT_FALSE(model.liveLevels());
    ASSERT_TRUE(eventually([&] { return !model.isPlaybackPlaying(); }));
    EXPECT_DOUBLE_EQ(model.playPosition(), 1.0);
    EXPECT_FALSE(model.playbackLevels());

    // Space with live monitoring off toggles plain playback; on, it starts live mastering.
    model.toggleListening();
    EXPECT_TRUE(model.isPlaybackPlaying());
    model.toggleListening();
    EXPECT_FALSE(model.isPlaybackPlaying());
    model.setLiveMonitorEnabled(true);
    model.toggleListening();
    EXPECT_TRUE(model.isLiveMastering());
    model.toggleListening();
    EXPECT_FALSE(model.isLiveMastering());
}

TEST_F(ModelOnJack, APausedPlayheadMovesWithASeekAndTheSpectrumFollowsIt) {
    ScratchDir dir;
    // Low for the first half, high for the second: the spectrum at the playhead tells them apart.
    auto tone = sine(4.0, 0.3, 2, 200.0);
    const auto high = sine(4.0, 0.3, 2, 8000.0);
    for (int c = 0; c < 2; ++c)
        std::copy(high[c].begin() + 96000, high[c].end(), tone[std::size_t(c)].begin() + 96000);
    writeFloatWav(dir / "two.wav", tone, 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "two.wav")});
    ASSERT_TRUE(waitIdle(model));

    model.togglePlayback();
    ASSERT_TRUE(model.isPlaybackPlaying()) << model.globalStatus().toStdString();
    ASSERT_TRUE(eventually([&] { return model.playPosition() > 0.02; }));
    const auto early = model.displaySpectrum();
    ASSERT_EQ(early.size(), 256u);
    EXPECT_NE(early, model.selectedItem()->spectrumBins);  // the frame at the playhead, not the whole
    model.togglePlayback();
    ASSERT_FALSE(model.isPlaybackPlaying());
    const double paused = model.playPosition();
    EXPECT_GT(paused, 0.0);
    model.seekPlayback(0.75);
    EXPECT_DOUBLE_EQ(model.playPosition(), 0.75);  // shown at once, though nothing renders
    model.togglePlayback();
    ASSERT_TRUE(model.isPlaybackPlaying());
    ASSERT_TRUE(eventually([&] { return model.playPosition() > 0.76; }));
    // 200 Hz is band 256·log10(10)/3 ≈ 85, 8 kHz band 256·log10(400)/3 ≈ 222.
    const auto late = model.displaySpectrum();
    EXPECT_GT(early[85], early[222]);
    EXPECT_GT(late[222], late[85]);
    model.stopPlayback();
    EXPECT_DOUBLE_EQ(model.playPosition(), 0.0);
}

// A server of its own, so that it can go away in the middle of a test.
using ModelOnVanishingJack = WithPrivateJackServer<44100>;

TEST_F(ModelOnVanishingJack, PlainPlaybackGoesOnThroughAChangedOutputAndStopsWhenItGoesAway) {
    ScratchDir dir;
    writeFloatWav(dir / "long.wav", sine(30.0, 0.3), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "long.wav")});
    ASSERT_TRUE(waitIdle(model));
    EXPECT_TRUE(model.hasAudioOutput());
    // A 48 kHz file on a 44.1 kHz server: converted as it plays.
    model.togglePlayback();
    ASSERT_TRUE(model.isPlaybackPlaying()) << model.globalStatus().toStdString();
    ASSERT_TRUE(eventually([&] { return model.playPosition() > 0.01; }));

    // The output's device changes (a patchbay names one of its ports): routed again, playing
    // goes on from where it was, and the status line says so.
    jack_client_t* patchbay = jack_client_open("patchbay", JackNoStartServer, nullptr);
    ASSERT_NE(patchbay, nullptr);
    jack_port_t* port = jack_port_by_name(patchbay, "system:playback_1");
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(jack_set_property(patchbay, jack_port_uuid(port), JACK_METADATA_PRETTY_NAME, "Sortie 1", "text/plain"), 0);
    jack_client_close(patchbay);
    ASSERT_TRUE(eventually([&] { return model.globalStatus() == "Lecture : sortie audio reconfigurée, la lecture continue."; }))
        << model.globalStatus().toStdString();
    EXPECT_TRUE(model.isPlaybackPlaying());
    const double resumed = model.playPosition();
    EXPECT_GT(resumed, 0.01);
    ASSERT_TRUE(eventually([&] { return model.playPosition() > resumed + 0.01; }));

    server.reset();
    ASSERT_TRUE(eventually([&] { return !model.isPlaybackPlaying(); }));
    EXPECT_EQ(model.globalStatus(), "Carte son déconnectée. Le mode export A/B WAV reste disponible.");
    // Where it stopped is kept, and with no output at all play is refused.
    EXPECT_GT(model.playPosition(), 0.01);
    EXPECT_FALSE(model.hasAudioOutput());
}

}  // namespace
}  // namespace velmora::test
