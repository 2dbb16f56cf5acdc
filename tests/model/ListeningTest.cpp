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
#include "measurement/StreamingMeter.h"
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

// Integrated loudness of frames [from, to) of a pair as the probe recorded them.
double loudnessOf(const std::vector<float>& l, const std::vector<float>& r, std::size_t from, std::size_t to) {
    LoudnessAnalyzer analyzer({}, false);
    analyzer.prepare(2, 48000, to - from);
    analyzer.feed({l.data() + from, r.data() + from}, to - from);
    analyzer.wait();
    const std::vector<double> weights{1.0, 1.0};
    return analyzer.result(weights).integratedLUFS;
}

float largestStep(const std::vector<float>& x, std::size_t from, std::size_t to) {
    float worst = 0;
    for (std::size_t i = from + 1; i < to; ++i) worst = std::max(worst, std::fabs(x[i] - x[i - 1]));
    return worst;
}

// The RMS of the frame-to-frame differences over the RMS of the signal: grows with the share
// of high frequencies.
double brightness(const std::vector<float>& x, std::size_t from, std::size_t to) {
    double level = 0, change = 0;
    for (std::size_t i = from + 1; i < to; ++i) {
        level += double(x[i]) * x[i];
        change += double(x[i] - x[i - 1]) * (x[i] - x[i - 1]);
    }
    return std::sqrt(change / level);
}

// The longest run of frames below -100 dBFS in [from, to).
std::size_t longestSilence(const std::vector<float>& x, std::size_t from, std::size_t to) {
    std::size_t run = 0, longest = 0;
    for (std::size_t i = from; i < to; ++i) {
        run = std::fabs(x[i]) < 1e-5f ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return longest;
}

TEST_F(ModelOnJack, TheABSwitchCrossesToTheSourceAtTheProcessedLoudnessWithoutAGap) {
    // 200 Hz and 5 kHz: a whole number of their common period (240 frames) in the file, so the
    // loop goes on without a seam and any frame of the source can be found again by its phase.
    const std::size_t period = 240, frames = 6 * 48000;
    std::vector<float> tone(frames);
    for (std::size_t i = 0; i < frames; ++i)
        tone[i] = float(0.2 * std::sin(2 * M_PI * 200 * double(i) / 48000) + 0.1 * std::sin(2 * M_PI * 5000 * double(i) / 48000));
    ScratchDir dir;
    writeFloatWav(dir / "tones.wav", {tone, tone}, 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "tones.wav")});
    ASSERT_TRUE(waitIdle(model));
    // Louder and brighter: 6 dB of make-up under a threshold it never reaches, and a shelf.
    MasterParams chain = model.mp();
    chain.compOn = true;
    chain.compThreshold = 0, chain.compMakeup = 6;
    chain.eqOn = true;
    chain.hsGain = 6;
    chain.hsFreq = 3000;
    model.setMp(chain);

    ProbeClient probe(server->name(), "probe", 2, 48000 * 30);
    ASSERT_TRUE(probe.open());
    model.setLiveMonitorDeviceUID("JACK:probe");
    model.startLiveMastering();
    ASSERT_TRUE(model.isLiveMastering()) << model.globalStatus().toStdString();
    EXPECT_FALSE(model.abSourceHeard());  // live mastering starts on the processed side
    // Until the chain's render is measured the status line says the match is an estimate.
    ASSERT_FALSE(model.abMatchMeasured());
    model.toggleAB();
    EXPECT_EQ(model.globalStatus(),
              "A/B : source ajustée de +0.0 dB pour l'égalité de sonie (estimation : sonie du traitement en cours de mesure)");
    model.toggleAB();
    ASSERT_TRUE(eventually([&] { return model.abMatchMeasured(); }));
    const double gainDB = model.abMatchGainDB();
    EXPECT_GT(gainDB, 6.5);  // the processed side is louder: the source is raised to it
    ASSERT_TRUE(probe.receiveMore(48000));
    const std::size_t switchedAt = probe.frames();
    model.toggleAB();
    EXPECT_TRUE(model.abSourceHeard());
    EXPECT_EQ(model.globalStatus(), QStringLiteral("A/B : source ajustée de +%1 dB pour l'égalité de sonie").arg(gainDB, 0, 'f', 1));
    ASSERT_TRUE(probe.receiveMore(48000 + 24000));
    const std::size_t backAt = probe.frames();
    model.toggleAB();
    EXPECT_EQ(model.globalStatus(), "A/B : B (traité)");
    ASSERT_TRUE(probe.receiveMore(48000 + 24000));
    const std::size_t endAt = probe.frames();
    model.stopLiveMastering();
    const auto l = probe.recorded(0), r = probe.recorded(1);

    // The processed side before, the source after: the same loudness.
    const double processed = loudnessOf(l, r, switchedAt - 36000, switchedAt - 1200);
    const double source = loudnessOf(l, r, backAt - 36000, backAt);
    const double again = loudnessOf(l, r, endAt - 36000, endAt);
    EXPECT_NEAR(source, processed, 0.2) << probe.xruns() << " xruns";
    EXPECT_NEAR(again, processed, 0.05);
    // Level matched, the tone differs: the shelf leaves more of the processed side in its
    // frame-to-frame changes, where the high tone lies.
    EXPECT_GT(brightness(l, switchedAt - 36000, switchedAt), 1.2 * brightness(l, backAt - 36000, backAt));

    // The source side is the file's frames times the match: find their phase, then compare.
    const float gain = float(std::pow(10.0, gainDB / 20));
    const std::size_t from = backAt - 36000;
    std::size_t phase = 0;
    float best = 1e9f;
    for (std::size_t p = 0; p < period; ++p) {
        float worst = 0;
        for (std::size_t i = 0; i < 2 * period; ++i) worst = std::max(worst, std::fabs(l[from + i] - gain * tone[(p + i) % frames]));
        if (worst < best) best = worst, phase = p;
    }
    float worst = 0;
    for (std::size_t i = 0; i < 36000; ++i) worst = std::max(worst, std::fabs(l[from + i] - gain * tone[(phase + i) % frames]));
    EXPECT_LT(worst, 1e-5f);

    // Across both switches: no step beyond either side's own, and no silence.
    const float own = std::max(largestStep(l, switchedAt - 36000, switchedAt), largestStep(l, backAt - 36000, backAt));
    EXPECT_LE(largestStep(l, switchedAt, backAt - 36000), own * 1.02f);
    EXPECT_LE(largestStep(l, backAt, endAt - 36000), own * 1.02f);
    EXPECT_LT(longestSilence(l, switchedAt - 36000, endAt), 4u);
}

TEST_F(ModelOnJack, PlainPlaybackHearsTheChainOnBAndTheMatchedSourceOnA) {
    ScratchDir dir;
    writeFloatWav(dir / "steady.wav", sine(10.0, 0.25), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "steady.wav")});
    ASSERT_TRUE(waitIdle(model));
    const double file = model.selectedItem()->measured->integratedLUFS;
    MasterParams louder = model.mp();
    louder.compOn = true;
    louder.compThreshold = 0, louder.compMakeup = 6;
    model.setMp(louder);

    // Plain playback plays the file as it is, whatever the chain, until the comparison is asked for.
    model.togglePlayback();
    ASSERT_TRUE(model.isPlaybackPlaying()) << model.globalStatus().toStdString();
    EXPECT_TRUE(model.abSourceHeard());
    ASSERT_TRUE(eventually([&] { return model.abMatchMeasured(); }));
    EXPECT_NEAR(model.abMatchGainDB(), 6.0, 0.01);
    auto reads = [&](double lufs) {
        return eventually([&] { return model.playbackLevels() && std::fabs(model.playbackLevels()->momentary - lufs) < 0.1; });
    };
    EXPECT_TRUE(reads(file)) << model.playbackLevels()->momentary;
    // Then B is the chain, and A the source raised to the chain's loudness.
    model.toggleAB();
    EXPECT_EQ(model.globalStatus(), "A/B : B (traité)");
    EXPECT_TRUE(reads(file + 6.0)) << model.playbackLevels()->momentary;
    model.toggleAB();
    EXPECT_TRUE(reads(file + 6.0)) << model.playbackLevels()->momentary;
    // The chain switched off: nothing to match, the source plays as it is.
    model.setMp(MasterParams{});
    EXPECT_TRUE(model.abMatchMeasured());
    EXPECT_EQ(model.abMatchGainDB(), 0.0);
    EXPECT_TRUE(reads(file)) << model.playbackLevels()->momentary;
    model.stopPlayback();
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
