// A source rewritten in place between its analysis and its master: the master, its report and
// its name would describe other audio, so the job refuses it.
#include <gtest/gtest.h>

#include "model/Model.h"
#include "ModelTesting.h"
#include "support/TestSupport.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;

const QString changedText = "Le fichier source a changé depuis son analyse : analysez-le de nouveau.";

TEST(SourceChange, ASourceRewrittenInPlaceSinceItsAnalysisIsRefused) {
    ScratchDir dir;
    writeFloatWav(dir / "held.wav", sine(4.0, 0.2), 48000);
    writeFloatWav(dir / "streamed.wav", sine(4.0, 0.2), 48000);
    writeFloatWav(dir / "kept.wav", sine(4.0, 0.2), 48000);
    FixedChoosers choosers;
    choosers.folder = QString::fromStdString((dir / "out").string());
    fs::create_directories(dir / "out");
    Model model(nullptr, &choosers);
    model.addFiles({QString::fromStdString((dir / "held.wav").string()), QString::fromStdString((dir / "streamed.wav").string()),
                    QString::fromStdString((dir / "kept.wav").string())});
    ASSERT_TRUE(waitIdle(model));

    // Same size, other samples: what a tool writing into the file leaves.
    for (const char* name : {"held.wav", "streamed.wav"}) {
        const auto r = runCommand("dd if=/dev/urandom of=" + shellQuote((dir / name).string()) +
                                  " bs=4096 seek=10 count=8 conv=notrunc status=none");
        ASSERT_EQ(r.exitCode, 0) << r.err;
    }
    model.exportBatch();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.queue()[0].status, ItemStatus::failed);
    EXPECT_EQ(model.queue()[1].status, ItemStatus::failed);
    EXPECT_EQ(model.queue()[2].status, ItemStatus::mastered);
    ASSERT_EQ(model.lastBatchFailures().size(), 2u);
    EXPECT_EQ(model.lastBatchFailures()[0].message, changedText);
    EXPECT_EQ(model.lastBatchFailures()[1].message, changedText);
    EXPECT_EQ(model.globalStatus(), "Traitement par lots terminé : 1 fichier, 2 échecs");

    // The save job asks the same question.
    choosers.saveFile = QString::fromStdString((dir / "out" / "saved.wav").string());
    model.saveMaster();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.globalStatus(), "Échec enregistrement : " + changedText);
    EXPECT_FALSE(fs::exists(dir / "out" / "saved.wav"));
}

}  // namespace
}  // namespace velmora::test
