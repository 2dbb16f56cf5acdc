// The window's texts with numbers, exactly as the window must show them.
#include <gtest/gtest.h>

#include <limits>

#include "ui/window/WindowText.h"

namespace velmora::window {
namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

TEST(WindowText, SessionCounterIsSingularForOneFile) {
    EXPECT_EQ(sessionTitle(0), "Session (0 fichier)");
    EXPECT_EQ(sessionTitle(1), "Session (1 fichier)");
    EXPECT_EQ(sessionTitle(2), "Session (2 fichiers)");
    EXPECT_EQ(sessionTitle(3), "Session (3 fichiers)");
}

TEST(WindowText, ClockShowsMinutesSecondsAndTenths) {
    EXPECT_EQ(elapsedText(0), "00:00.0");
    EXPECT_EQ(elapsedText(-3), "00:00.0");
    EXPECT_EQ(elapsedText(std::numeric_limits<double>::quiet_NaN()), "00:00.0");
    EXPECT_EQ(elapsedText(12.34), "00:12.3");
    EXPECT_EQ(elapsedText(12.39), "00:12.3");  // a tenth is shown once reached
    EXPECT_EQ(elapsedText(247.0), "04:07.0");
    EXPECT_EQ(elapsedText(3600 + 61.25), "61:01.2");
}

TEST(WindowText, OneDecimalWithADecimalPointAndADashForTheUnmeasurable) {
    EXPECT_EQ(oneDecimal(-23.04), "-23.0");
    EXPECT_EQ(oneDecimal(-inf), "—");
    EXPECT_EQ(signedOneDecimal(0.44), "+0.4");
    EXPECT_EQ(signedOneDecimal(-1.25), "-1.2");
    EXPECT_EQ(withUnit(-1.0, "dBTP"), "-1.0 dBTP");
    EXPECT_EQ(withUnit(-inf, "LUFS"), "—");
}

TEST(WindowText, LockedCeilingProtectionAndGatingLines) {
    EXPECT_EQ(ceilingLockLine(-3.0), "Plafond verrouillé par la norme du preset (-3.0 dBTP).");
    EXPECT_EQ(ceilingLockHint, "Plafond imposé par la norme du preset (non modifiable).");
    EXPECT_EQ(protectionLine(1.5),
              "Insertion d'un compresseur doux avant le limiteur si la réduction prévue dépasse 1.5 dB.");
    EXPECT_EQ(protectionBadge(2.34), "comp. auto \u22122.3 dB");
    EXPECT_EQ(autoGatingLabel(GatingMode::ebuR128), "Auto · suit le preset (EBU R128)");
    EXPECT_EQ(autoGatingLabel(GatingMode::global), "Auto · suit le preset (ITU global)");
    EXPECT_EQ(autoGatingLabel(GatingMode::dialog), "Auto · suit le preset (Dialogues)");
    EXPECT_EQ(countedTitle("Charger un preset", 2), "Charger un preset (2)");
    EXPECT_EQ(multiMasterButtonText(1), "Exporter 1 master");
    EXPECT_EQ(multiMasterButtonText(3), "Exporter 3 masters");
}

}  // namespace
}  // namespace velmora::window
