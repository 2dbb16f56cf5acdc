#include <QElapsedTimer>
#include <QTimer>
#include <fstream>
#include <gtest/gtest.h>

#include "measurement/FileAnalysis.h"
#include "model/Model.h"
#include "norms/Presets.h"
#include "ModelTesting.h"
#include "support/TestSupport.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
QString q(const fs::path& p) { return QString::fromStdString(p.string()); }

// "f3.wav", "f3_master_-23LUFS_LRA0.wav"…
std::string numbered(int i, const char* suffix) {
    std::string s = "f";
    s += std::to_string(i);
    s += suffix;
    return s;
}

LoudnessResult measureFile(const fs::path& file) {
    auto a = analyseFile(file.string(), {});
    EXPECT_TRUE(a.hasValue()) << file;
    return a ? a->result : LoudnessResult{};
}

// The worst pause of the main thread's event loop while the model works, seen by a 5 ms timer.
class StallWatch {
public:
    StallWatch() {
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            worst_ = std::max(worst_, clock_.restart());
        });
        clock_.start();
        timer_.start(5);
    }
    qint64 worstMs() const { return worst_; }

private:
    QTimer timer_;
    QElapsedTimer clock_;
    qint64 worst_ = 0;
};

TEST(ModelJobs, BatchOfFiveWithTwoFailuresKeepsGoing) {
    ScratchDir dir;
    const fs::path out = dir / "out";
    fs::create_directories(out);
    for (int i = 0; i < 5; ++i) writeFloatWav(dir / numbered(i, ".wav"), sine(6.0, 0.05 * (i + 1)), 48000);
    // A folder where two masters should go: those writes fail, the others must not notice.
    fs::create_directories(out / "f1_master_-23LUFS_LRA0.wav");
    fs::create_directories(out / "f3_master_-23LUFS_LRA0.wav");

    FixedChoosers choosers;
    choosers.folder = q(out);
    Model model(nullptr, &choosers);
    for (int i = 0; i < 5; ++i) model.addFiles({q(dir / numbered(i, ".wav"))});
    ASSERT_TRUE(waitIdle(model));
    model.setExportLog(true);
    model.setExportPDF(true);
    std::vector<int> done;
    QObject::connect(&model, &Model::batchDoneChanged, [&] { done.push_back(model.batchDone()); });

    StallWatch watch;
    model.exportBatch();
    EXPECT_TRUE(model.busy());
    EXPECT_EQ(model.globalStatus(), "Mastering en cours…");
    EXPECT_EQ(model.batchTotal(), 5);
    ASSERT_TRUE(waitIdle(model, 300));
    std::printf("worst main-thread stall during the batch: %lld ms\n", static_cast<long long>(watch.worstMs()));

    EXPECT_EQ(model.globalStatus(), "Traitement par lots terminé : 3 fichiers, 2 échecs");
    EXPECT_EQ(done, (std::vector<int>{1, 2, 3, 4, 5}));
    ASSERT_EQ(model.lastBatchFailures().size(), 2u);
    EXPECT_EQ(model.lastBatchFailures()[0].name, "f1.wav");
    EXPECT_EQ(model.lastBatchFailures()[1].name, "f3.wav");
    for (int i = 0; i < 5; ++i) {
        const auto& item = model.queue()[std::size_t(i)];
        const bool fails = i == 1 || i == 3;
        EXPECT_EQ(item.status, fails ? ItemStatus::failed : ItemStatus::mastered) << i;
        if (fails) continue;
        const fs::path master = out / numbered(i, "_master_-23LUFS_LRA0.wav");
        ASSERT_TRUE(fs::exists(master)) << master;
        const auto after = measureFile(master);
        EXPECT_NEAR(after.integratedLUFS, -23.0, 0.1);
        EXPECT_LE(after.truePeakDB, -1.0);
        EXPECT_NEAR(item.measured->integratedLUFS, -23.0, 0.1) << "the item keeps the master's measurement";
        EXPECT_NE(item.originalMeasure->integratedLUFS, item.measured->integratedLUFS);
        EXPECT_TRUE(fs::exists(fs::path(master).replace_extension("txt")));
        EXPECT_TRUE(fs::exists(fs::path(master).replace_extension("pdf")));
    }
    EXPECT_TRUE(fs::is_directory(out / "f1_master_-23LUFS_LRA0.wav")) << "what was there is left alone";
    EXPECT_EQ(model.processingName(), "");
    EXPECT_EQ(model.batchCurrent(), 0.0);

    // Masterisé items stay in the work list; a conform run names its files _corrige.
    model.setMode(ProcessMode::conform);
    model.setTarget(-16.5);
    model.setExportLog(false);
    model.setExportPDF(false);
    model.exportBatch();
    ASSERT_TRUE(waitIdle(model, 300));
    EXPECT_EQ(model.globalStatus(), "Traitement par lots terminé ✓ (3 fichiers)");
    EXPECT_TRUE(fs::exists(out / "f4_corrige_-16.5LUFS_LRA0.wav"));
}

TEST(ModelJobs, BatchSummaryCountsAndRefusals) {
    ScratchDir dir;
    writeFloatWav(dir / "one.wav", sine(3.0, 0.2), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.exportBatch();  // empty queue: nothing happens, not even a panel
    EXPECT_FALSE(model.busy());
    EXPECT_EQ(model.globalStatus(), "");

    model.addFiles({q(dir / "one.wav")});
    EXPECT_TRUE(model.busy());
    model.exportBatch();  // while the analysis runs
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.batchTotal(), 0);

    model.exportBatch();  // chooser cancelled
    EXPECT_FALSE(model.busy());

    choosers.folder = q(dir.path());
    model.setExportLog(false);
    model.setExportPDF(false);
    model.exportBatch();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.globalStatus(), "Traitement par lots terminé ✓ (1 fichier)");
}

TEST(ModelJobs, VideoSourceGivesAMovieWithItsPicture) {
    ScratchDir dir;
    const auto movie = dir / "clip.mov";
    ASSERT_TRUE(ffmpeg("-f lavfi -i testsrc=size=160x120:rate=25:duration=3 -f lavfi -i sine=frequency=440:duration=3 "
                       "-c:v mpeg4 -c:a aac -shortest " + shellQuote(movie.string())));
    FixedChoosers choosers;
    choosers.folder = q(dir / "out");
    fs::create_directories(dir / "out");
    Model model(nullptr, &choosers);
    model.addFiles({q(movie)});
    ASSERT_TRUE(waitIdle(model));
    model.setExportLog(false);
    model.setExportPDF(false);
    model.exportBatch();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.globalStatus(), "Traitement par lots terminé ✓ (1 fichier)");

    fs::path master;
    for (const auto& e : fs::directory_iterator(dir / "out")) master = e.path();
    EXPECT_EQ(master.extension(), ".mov");
    const auto probe = runCommand("ffprobe -v error -show_entries stream=codec_type,codec_name -of csv=p=0 " +
                                  shellQuote(master.string()));
    EXPECT_NE(probe.out.find("mpeg4,video"), std::string::npos) << probe.out;
    EXPECT_NE(probe.out.find("audio"), std::string::npos) << probe.out;
    EXPECT_NEAR(measureFile(master).integratedLUFS, -23.0, 0.2);
    for (const auto& e : fs::directory_iterator(fs::temp_directory_path()))
        EXPECT_FALSE(e.path().filename().string().starts_with("velmora_") && e.path().extension() == ".wav")
            << "temporary sound left behind: " << e.path();
}

TEST(ModelJobs, MultiMasterWritesOneMasterPerNorm) {
    ScratchDir dir;
    writeFloatWav(dir / "Film.wav", sine(4.0, 0.3), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.startMultiMaster();
    EXPECT_EQ(model.globalStatus(), "Sélectionnez d'abord un fichier analysé.");
    model.addFiles({q(dir / "Film.wav")});
    ASSERT_TRUE(waitIdle(model));

    model.startMultiMaster();
    EXPECT_EQ(model.globalStatus(), "Aucune norme cochée pour le Multi-Master.");
    model.tickAllNorms();
    model.startMultiMaster();
    EXPECT_EQ(model.globalStatus(), "Multi-Master annulé.");

    choosers.folder = q(dir / "masters");
    fs::create_directories(dir / "masters");
    model.setExportLog(false);
    model.setExportPDF(false);
    QStringList progress;
    QObject::connect(&model, &Model::globalStatusChanged, [&] { progress << model.globalStatus(); });
    model.startMultiMaster();
    ASSERT_TRUE(waitIdle(model, 300));
    EXPECT_EQ(model.globalStatus(), "Multi-Master terminé ✓ (21 masters générés)");
    EXPECT_EQ(progress.front(), "Multi-Master 1/21 · " + QString::fromStdString(presets()[0].label));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "masters"), fs::directory_iterator{}), 21);
    for (const char* tag : {"EBU", "CALM", "CRTC", "Netflix", "RT017"})
        EXPECT_TRUE(fs::exists(dir / "masters" / ("Film_master_" + std::string(tag) + ".wav"))) << tag;
    const auto netflix = measureFile(dir / "masters" / "Film_master_Netflix.wav");
    EXPECT_NEAR(netflix.integratedLUFS, presets()[8].lufs, 0.2);
    EXPECT_LE(netflix.truePeakDB, presets()[8].ceiling);
}

TEST(ModelJobs, SaveAndABExcerpts) {
    ScratchDir dir;
    writeFloatWav(dir / "voice.wav", sine(40.0, 0.2), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.saveMaster();
    EXPECT_EQ(model.globalStatus(), "Analysez d'abord un fichier avant d'enregistrer.");
    model.addFiles({q(dir / "voice.wav")});
    ASSERT_TRUE(waitIdle(model));

    model.setMode(ProcessMode::conform);
    EXPECT_EQ(model.proposedSaveName(), "voice_corrige_-23LUFS.wav");
    model.setFileFormat(FileFormat::aiff);
    model.setMode(ProcessMode::master);
    EXPECT_EQ(model.proposedSaveName(), "voice_master_-23LUFS.aif");
    model.setFileFormat(FileFormat::wav);

    choosers.saveFile = q(dir / "saved.wav");
    model.saveMaster();
    EXPECT_EQ(model.globalStatus(), "Enregistrement…");
    EXPECT_EQ(model.batchTotal(), 1);
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.globalStatus(), "Enregistré : saved.wav · -23.0 LUFS");
    EXPECT_EQ(model.batchTotal(), 0);
    EXPECT_EQ(model.queue()[0].status, ItemStatus::ready) << "a single save leaves the item as it was";

    // The name the user typed decides the container, whatever the format setting says.
    choosers.saveFile = q(dir / "typed.aif");
    model.saveMaster();
    ASSERT_TRUE(waitIdle(model));
    std::ifstream typed(dir / "typed.aif", std::ios::binary);
    char magic[4] = {};
    typed.read(magic, 4);
    EXPECT_EQ(std::string(magic, 4), "FORM") << model.globalStatus().toStdString();

    choosers.saveFile = q(dir / "missing" / "saved.wav");
    model.saveMaster();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_TRUE(model.globalStatus().startsWith("Échec enregistrement : ")) << model.globalStatus().toStdString();

    model.generateAB();
    EXPECT_TRUE(model.isPreviewing());
    EXPECT_EQ(model.globalStatus(), "Génération des extraits A/B…");
    ASSERT_TRUE(waitIdle(model));
    EXPECT_FALSE(model.isPreviewing());
    const QString excerpts = model.globalStatus();
    EXPECT_EQ(choosers.revealed, (QStringList{q(dir / "voice_AB_AVANT.wav"), q(dir / "voice_AB_APRES.wav")}));
    EXPECT_TRUE(fs::exists(dir / "voice_AB_APRES.wav"));
    // The status line says how far apart the two are, as the analysis of the files finds them.
    model.addFiles({q(dir / "voice_AB_AVANT.wav"), q(dir / "voice_AB_APRES.wav")});
    ASSERT_TRUE(waitIdle(model));
    const auto& queued = model.queue();
    ASSERT_GE(queued.size(), 2u);
    const double before = queued[queued.size() - 2].measured->integratedLUFS;
    const double after = queued.back().measured->integratedLUFS;
    EXPECT_GT(std::fabs(after - before), 0.5) << "the after excerpt is brought to the target";
    EXPECT_EQ(excerpts, QStringLiteral("Extraits A/B créés ✓ — écart de sonie : %1 LU (ouverts dans le gestionnaire de fichiers)")
                            .arg(std::fabs(after - before), 0, 'f', 1));
}

}  // namespace
}  // namespace velmora::test
