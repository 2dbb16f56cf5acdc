// The preferences window over the real device list: a private JACK server with a probe client
// stands for the sound card, and the test tone is read back from the ports chosen.
#include <QTabWidget>
#include <QTest>
#include <fstream>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "audio/JackFixture.h"
#include "model/Model.h"
#include "ui/LedToggle.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/UiTesting.h"
#include "ui/app/PreferencesWindow.h"

namespace velmora::test {
namespace {

QWidget* testButton(QWidget& window) {
    for (auto* b : window.findChildren<StudioPrimaryButton*>())
        if (b->text() == "Tester (sinus 1 kHz · 2 s)") return b;
    return nullptr;
}

TEST(Preferences, ReportLanguageIsChosenAndKept) {
    ScratchDir dir;
    const auto store = storeIn(dir);
    FixedChoosers choosers;
    {
        Model model(store(), &choosers);
        PreferencesWindow preferences(model);
        preferences.show();
        StudioMenuPicker* language = pickerNamed(preferences, "Langue des rapports");
        ASSERT_NE(language, nullptr);
        EXPECT_EQ(choices(*language), QStringList({"Français", "English"}));
        EXPECT_EQ(language->currentLabel(), "Français");
        ASSERT_TRUE(choose(*language, "English"));
        EXPECT_EQ(model.reportLanguage(), ReportLanguage::en);
        EXPECT_EQ(language->currentLabel(), "English");
    }
    EXPECT_EQ(store()->value("Velmora_reportLanguage").toString(), "English");
    Model restarted(store(), &choosers);
    PreferencesWindow preferences(restarted);
    EXPECT_EQ(pickerNamed(preferences, "Langue des rapports")->currentLabel(), "English");
}

TEST(Preferences, WithoutAnyDeviceTheListIsEmptyAndTheTestSaysToChooseOne) {
    ScratchDir dir;
    std::ofstream(dir / "asound.conf") << "# no sound card at all\n";
    ScopedEnv alsa("ALSA_CONFIG_PATH", (dir / "asound.conf").string());
    ScopedEnv noJack("JACK_DEFAULT_SERVER", "velmora-test-no-such-server");
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    PreferencesWindow preferences(model);
    preferences.show();
    StudioMenuPicker* device = pickerNamed(preferences, "Carte son");
    ASSERT_NE(device, nullptr);
    EXPECT_TRUE(choices(*device).isEmpty());
    EXPECT_FALSE(device->isEnabled());
    EXPECT_FALSE(pickerNamed(preferences, "Sortie L")->isEnabled());
    EXPECT_FALSE(pickerNamed(preferences, "Sortie R")->isEnabled());

    QTest::mouseClick(testButton(preferences), Qt::LeftButton);
    EXPECT_EQ(model.globalStatus(), "Monitoring : Sélectionnez d'abord une carte son.");

    // A card remembered but not there stays chosen, and says so.
    model.setLiveMonitorDeviceUID("JACK:gone");
    EXPECT_EQ(device->currentLabel(), "JACK:gone (introuvable)");
}

using PreferencesOnJack = WithPrivateJackServer<48000>;

TEST_F(PreferencesOnJack, ListsTheCardsWhenShownRoutesToTheChosenPortsAndPlaysTheTestTone) {
    ScratchDir dir;
    const auto store = storeIn(dir);
    FixedChoosers choosers;
    Model model(store(), &choosers);
    PreferencesWindow preferences(model);
    preferences.show();
    StudioMenuPicker* device = pickerNamed(preferences, "Carte son");
    StudioMenuPicker* left = pickerNamed(preferences, "Sortie L");
    StudioMenuPicker* right = pickerNamed(preferences, "Sortie R");
    ASSERT_TRUE(device && left && right);
    EXPECT_FALSE(choices(*device).contains("probe (8 ch)"));

    // A card that arrives while the window is closed is there when it opens again.
    preferences.hide();
    ProbeClient probe(server->name(), "probe", 8, 48000 * 6);
    ASSERT_TRUE(probe.open());
    preferences.show();
    ASSERT_TRUE(choose(*device, "probe (8 ch)")) << choices(*device).join(", ").toStdString();
    EXPECT_EQ(model.liveMonitorDeviceUID(), "JACK:probe");
    EXPECT_EQ(device->currentLabel(), "probe (8 ch)");

    QStringList ports;
    for (const auto& name : probe.portNames()) ports << QString::fromStdString(name);
    EXPECT_EQ(choices(*left), ports);
    EXPECT_EQ(choices(*right), ports);
    EXPECT_EQ(left->currentLabel(), "in_1");
    EXPECT_EQ(right->currentLabel(), "in_2");
    ASSERT_TRUE(choose(*left, "in_3"));
    ASSERT_TRUE(choose(*right, "in_4"));
    EXPECT_EQ(model.liveMonitorChannelL(), 2);
    EXPECT_EQ(model.liveMonitorChannelR(), 3);

    auto* monitoring = preferences.findChild<LedToggle*>();
    ASSERT_NE(monitoring, nullptr);
    EXPECT_EQ(monitoring->text(), "Monitoring temps réel (expérimental)");
    QTest::mouseClick(monitoring, Qt::LeftButton);
    EXPECT_TRUE(model.liveMonitorEnabled());

    // Every choice is in the store at once.
    const auto kept = store();
    EXPECT_EQ(kept->value("Velmora_liveMonitorDeviceUID").toString(), "JACK:probe");
    EXPECT_EQ(kept->value("Velmora_liveMonitorChannelL").toInt(), 2);
    EXPECT_EQ(kept->value("Velmora_liveMonitorChannelR").toInt(), 3);
    EXPECT_TRUE(kept->value("Velmora_liveMonitorEnabled").toBool());

    preferences.findChild<QTabWidget*>()->setCurrentIndex(1);
    keepForReview(snapshot(preferences, 1), "Preferences_monitoring");
    QTest::mouseClick(testButton(preferences), Qt::LeftButton);
    EXPECT_EQ(model.globalStatus(), "Test 1 kHz sur probe ✓");
    ASSERT_TRUE(probe.receiveMore(120000));
    expectTheTone(probe.recorded(2));
    expectTheTone(probe.recorded(3));
    for (int port : {0, 1, 4, 5, 6, 7}) EXPECT_EQ(nonZeroCount(probe.recorded(port)), 0u) << "port " << port;
}

}  // namespace
}  // namespace velmora::test
