#include <QSignalSpy>
#include <fstream>
#include <gtest/gtest.h>

#include "model/Model.h"
#include "ModelTesting.h"
#include "support/TestSupport.h"

namespace velmora::test {
namespace {

QString q(const std::filesystem::path& p) { return QString::fromStdString(p.string()); }

TEST(ModelQueue, AnalysesInQueueOrderWithProgressTexts) {
    ScratchDir dir;
    for (auto name : {"a.wav", "b.wav", "c.wav"}) writeFloatWav(dir / name, sine(3.0, 0.1), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    QStringList statuses;
    QObject::connect(&model, &Model::globalStatusChanged, [&] { statuses << model.globalStatus(); });
    std::vector<QString> started;
    QObject::connect(&model, &Model::analyzingNameChanged, [&] {
        if (!model.analyzingName().isEmpty()) started.push_back(model.analyzingName());
    });

    model.addFiles({q(dir / "a.wav"), q(dir / "b.wav"), q(dir / "c.wav")});
    EXPECT_EQ(model.analyzeTotal(), 3);
    ASSERT_TRUE(model.selectedID());
    EXPECT_EQ(*model.selectedID(), model.queue()[0].id);
    ASSERT_TRUE(waitIdle(model));

    EXPECT_EQ(started, (std::vector<QString>{"a.wav", "b.wav", "c.wav"}));
    EXPECT_EQ(statuses, (QStringList{"Analyse 1/3…", "Analyse 2/3…", "Analyse terminée ✓ (3 fichiers)"}));
    EXPECT_EQ(model.analyzeTotal(), 0);
    EXPECT_EQ(model.analyzeDone(), 0);
    EXPECT_EQ(model.analyzingName(), "");
    for (const auto& item : model.queue()) {
        EXPECT_EQ(item.status, ItemStatus::ready);
        EXPECT_EQ(item.info, "0:03 · stéréo · 48.0 kHz");
        ASSERT_TRUE(item.measured);
        // A 997 Hz sine of peak 0.1 in both channels: −23.01 dB of mean square each, +3.01 for
        // two channels; the K-weighting gain at 997 Hz offsets the −0.691.
        EXPECT_NEAR(item.measured->integratedLUFS, -20.0, 0.05);
        EXPECT_EQ(item.multiNormDiagnosis.size(), 21u);
        EXPECT_EQ(item.waveformPeaks.size(), 1024u);
        EXPECT_EQ(item.spectrumBins.size(), 256u);
        EXPECT_EQ(item.channelEnergies.size(), 2u);
        EXPECT_EQ(item.channelCount(), 2u);
    }
    // Measuring again reads the file again.
    model.select(model.queue()[2].id);
    model.remeasureSelected();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_NEAR(model.queue()[2].measured->integratedLUFS, -20.0, 0.05);

    // The speaker positions a file declares come with it, whatever the order setting says, so
    // its masters weigh its channels where they really are.
    writeFloatWav(dir / "bare51.wav", sine(1.0, 0.1, 6), 48000);
    ASSERT_TRUE(ffmpeg("-i " + shellQuote((dir / "bare51.wav").string()) + " -channel_layout 5.1 -c:a pcm_s24le " +
                       shellQuote((dir / "declared51.wav").string())));
    model.addFiles({q(dir / "declared51.wav")});
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.queue().back().declaredPositions.size(), 6u);

    // A run in which a file could not be read says so instead of claiming success.
    std::ofstream(dir / "broken.wav") << "RIFF, mais pas du son";
    model.addFiles({q(dir / "broken.wav")});
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.globalStatus(), "Analyse terminée : 1 fichier, 1 échec");
}

TEST(ModelQueue, DuplicatesAndFoldersWithoutAudio) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", sine(1.0, 0.1), 48000);
    std::filesystem::create_directories(dir / "texts" / "deeper");
    std::ofstream(dir / "texts" / "notes.txt") << "pas du son";
    std::ofstream(dir / "texts" / "deeper" / "more.md") << "non plus";

    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "a.wav"), q(dir / "a.wav")});
    EXPECT_EQ(model.queue().size(), 1u);
    ASSERT_TRUE(waitIdle(model));
    model.addFiles({q(dir / "a.wav")});
    EXPECT_EQ(model.queue().size(), 1u);
    EXPECT_FALSE(model.busy());

    choosers.files = {q(dir / "texts")};
    model.openFiles();
    EXPECT_EQ(model.globalStatus(), "Aucun fichier audio/vidéo trouvé.");
    EXPECT_EQ(model.queue().size(), 1u);
}

TEST(ModelQueue, FolderWalkKeepsAcceptedExtensionsOnly) {
    ScratchDir dir;
    std::filesystem::create_directories(dir / "in" / "sub");
    writeFloatWav(dir / "in" / "one.WAV", sine(1.0, 0.1), 48000);
    writeFloatWav(dir / "in" / "sub" / "two.wav", sine(1.0, 0.1), 48000);
    std::ofstream(dir / "in" / "readme.txt") << "x";
    FixedChoosers choosers;
    choosers.files = {q(dir / "in")};
    Model model(nullptr, &choosers);
    model.openFiles();
    ASSERT_EQ(model.queue().size(), 2u);
    EXPECT_EQ(model.queue()[0].name, "one.WAV");
    EXPECT_EQ(model.queue()[1].name, "two.wav");
    ASSERT_TRUE(waitIdle(model));
}

TEST(ModelQueue, UnmeasurableAndUnreadableFiles) {
    ScratchDir dir;
    writeFloatWav(dir / "silence.wav", std::vector<std::vector<float>>(2, std::vector<float>(480000)), 48000);
    writeFloatWav(dir / "short.wav", sine(0.3, 0.5), 48000);
    std::ofstream(dir / "broken.wav") << "RIFF this is not audio at all";
    ASSERT_TRUE(ffmpeg("-f lavfi -i sine=frequency=440:duration=2 -c:a aac " + shellQuote((dir / "clip.mp4").string())));

    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    QStringList statuses;
    QObject::connect(&model, &Model::globalStatusChanged, [&] { statuses << model.globalStatus(); });
    model.addFiles({q(dir / "silence.wav"), q(dir / "short.wav"), q(dir / "broken.wav"), q(dir / "clip.mp4")});
    ASSERT_TRUE(waitIdle(model));

    const auto& items = model.queue();
    EXPECT_EQ(items[0].status, ItemStatus::unmeasurable);
    EXPECT_EQ(items[0].info, "Signal trop faible ou silencieux pour être mesuré.");
    EXPECT_TRUE(statuses.contains("« silence.wav » : Signal trop faible ou silencieux pour être mesuré."));
    EXPECT_EQ(items[1].status, ItemStatus::unmeasurable);
    EXPECT_EQ(items[1].info, "Fichier trop court pour être mesuré (< 0,4 s).");
    EXPECT_TRUE(items[1].hasAudio()) << "kept with its arrays";
    EXPECT_EQ(items[2].status, ItemStatus::readFailed);
    EXPECT_FALSE(items[2].info.isEmpty());
    EXPECT_TRUE(items[3].isVideo);
    EXPECT_EQ(items[3].status, ItemStatus::ready);
    EXPECT_TRUE(items[3].info.startsWith("vidéo · ")) << items[3].info.toStdString();
}

TEST(ModelQueue, RemeasureWarnsOnLayoutMismatchAndKeepsStatus) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", sine(2.0, 0.1), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "a.wav")});
    ASSERT_TRUE(waitIdle(model));
    const double stereo = model.queue()[0].measured->integratedLUFS;

    model.setLayout(ChannelLayout::s51);
    model.remeasureSelected();
    EXPECT_EQ(model.layoutWarning(), "⚠︎ Ce format attend 6 canaux ; le fichier en a 2. Mesure en Auto.");
    ASSERT_TRUE(waitIdle(model));
    EXPECT_NEAR(model.queue()[0].measured->integratedLUFS, stereo, 1e-9);
    EXPECT_EQ(model.queue()[0].status, ItemStatus::ready);

    model.setLayout(ChannelLayout::mono);
    model.remeasureSelected();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_FALSE(model.layoutWarning().isEmpty());
}

}  // namespace
}  // namespace velmora::test
