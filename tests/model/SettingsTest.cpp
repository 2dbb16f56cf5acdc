#include <QSettings>
#include <gtest/gtest.h>

#include "model/Model.h"
#include "norms/Presets.h"
#include "support/TestSupport.h"

namespace velmora::test {
namespace {

// An INI file in a scratch folder stands in for the per-user store.
class ModelSettings : public ::testing::Test {
protected:
    std::unique_ptr<QSettings> store() {
        return std::make_unique<QSettings>(QString::fromStdString((dir_ / "store.ini").string()), QSettings::IniFormat);
    }
    std::unique_ptr<Model> restart() { return std::make_unique<Model>(store(), nullptr); }
    ScratchDir dir_;
};

TEST_F(ModelSettings, StoredNormThenExplicitGating) {
    {
        auto s = store();
        s->setValue("Velmora_presetIndex", 3);
        s->setValue("Velmora_gatingMode", "Global ITU (gate absolu seul)");
    }
    auto model = restart();
    EXPECT_EQ(model->presetIndex(), 3);
    EXPECT_EQ(model->target(), -24.0);
    EXPECT_EQ(model->ceiling(), -2.0);
    EXPECT_EQ(model->displayUnit(), LoudnessUnit::lkfs);
    EXPECT_EQ(model->gatingMode(), GatingMode::global);
}

TEST_F(ModelSettings, DamagedValuesFallBack) {
    {
        auto s = store();
        s->setValue("Velmora_presetIndex", 30);
        s->setValue("Velmora_bitDepth", "23 bits");
        s->setValue("Velmora_fileFormat", "MP3");
        s->setValue("Velmora_exportLog", "peut-être");
        s->setValue("Velmora_multiMasterPacks", QByteArray("[{\"id\": 5}]"));
        s->setValue("Velmora_userPresets", QByteArray("not json"));
        s->setValue("Velmora_reportLanguage", "English");
    }
    auto model = restart();
    EXPECT_EQ(model->presetIndex(), 0);
    EXPECT_EQ(model->target(), -23.0);
    EXPECT_EQ(model->bitDepth(), BitDepth::int24);
    EXPECT_EQ(model->fileFormat(), FileFormat::wav);
    EXPECT_TRUE(model->exportLog());
    EXPECT_TRUE(model->multiMasterPacks().empty());
    EXPECT_TRUE(model->userPresets().empty());
    EXPECT_EQ(model->reportLanguage(), ReportLanguage::en) << "the good values around a bad one still load";
}

TEST_F(ModelSettings, EverythingSurvivesARestart) {
    QUuid tvId, presetId;
    {
        auto model = restart();
        model->applyPreset(8);
        model->setBitDepth(BitDepth::float32);
        model->setFileFormat(FileFormat::aiff);
        model->setLayout(ChannelLayout::s51);
        model->setChannelOrder(ChannelOrder::aac);
        model->setExportPDF(false);
        model->setReportLanguage(ReportLanguage::en);
        model->setLiveMonitorDeviceUID("ALSA:hw:CARD=PCH,DEV=0");
        model->setLiveMonitorChannelL(2);
        model->setLiveMonitorChannelR(3);

        model->setMultiMasterPresetIndices({14, 3, 0});
        model->savePack("  TV  ");
        EXPECT_EQ(model->globalStatus(), "Pack « TV » sauvegardé (3 normes) ✓");
        tvId = model->multiMasterPacks()[0].id;
        model->tickGroup({10, 11});
        model->savePack("TV");
        model->tickAllNorms();
        model->savePack("Tout");
        model->savePack("   ");
        EXPECT_EQ(model->globalStatus(), "Donnez un nom au pack.");
        model->untickAllNorms();
        model->savePack("Rien");
        EXPECT_EQ(model->globalStatus(), "Cochez au moins une norme avant de sauver.");
        model->setMultiMasterPresetIndices({2, 5});

        MasterParams warm;
        warm.eqOn = true;
        warm.lsGain = 2.5;
        model->setMp(warm);
        model->saveUserPreset(" Chaud ");
        presetId = model->userPresets()[0].id;
        warm.lsGain = 3.5;
        model->setMp(warm);
        model->saveUserPreset("Chaud");
        EXPECT_EQ(model->globalStatus(), "Preset « Chaud » enregistré ✓");
        model->saveSettings();
    }
    auto model = restart();
    EXPECT_EQ(model->presetIndex(), 8);
    EXPECT_EQ(model->target(), presets()[8].lufs);
    EXPECT_EQ(model->bitDepth(), BitDepth::float32);
    EXPECT_EQ(model->fileFormat(), FileFormat::aiff);
    EXPECT_EQ(model->layout(), ChannelLayout::s51);
    EXPECT_EQ(model->channelOrder(), ChannelOrder::aac);
    EXPECT_FALSE(model->exportPDF());
    EXPECT_EQ(model->reportLanguage(), ReportLanguage::en);
    EXPECT_EQ(model->liveMonitorDeviceUID(), "ALSA:hw:CARD=PCH,DEV=0");
    EXPECT_EQ(model->liveMonitorChannelL(), 2);
    EXPECT_EQ(model->liveMonitorChannelR(), 3);
    EXPECT_EQ(model->multiMasterPresetIndices(), (std::set<int>{2, 5}));

    ASSERT_EQ(model->multiMasterPacks().size(), 2u);
    EXPECT_EQ(model->multiMasterPacks()[0].name, "TV");
    EXPECT_EQ(model->multiMasterPacks()[0].id, tvId);
    EXPECT_EQ(model->multiMasterPacks()[0].indices, (std::vector<int>{10, 11}));
    EXPECT_EQ(model->multiMasterPacks()[1].indices.size(), 21u);
    model->applyPack(tvId);
    EXPECT_EQ(model->multiMasterPresetIndices(), (std::set<int>{10, 11}));

    ASSERT_EQ(model->userPresets().size(), 1u);
    EXPECT_EQ(model->userPresets()[0].id, presetId);
    EXPECT_EQ(model->userPresets()[0].name, "Chaud");
    EXPECT_EQ(model->userPresets()[0].params.lsGain, 3.5);
    EXPECT_EQ(model->mp(), MasterParams{}) << "the chain itself is not remembered";
    model->loadUserPreset(presetId);
    EXPECT_EQ(model->mp().lsGain, 3.5);

    model->deletePack(tvId);
    EXPECT_EQ(restart()->multiMasterPacks().size(), 1u);
}

}  // namespace
}  // namespace velmora::test
