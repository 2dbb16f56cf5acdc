// The application as it starts: files and folders given on its command line queued and
// analysed, the window titled and put back where it was left; and the real executable, run
// off screen until it has analysed what it was given.
#include <QTest>
#include <fstream>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "model/ModelTesting.h"
#include "ui/app/VelmoraApp.h"

namespace velmora::test {
namespace {

QStringList queuedNames(const Model& model) {
    QStringList names;
    for (const auto& i : model.queue()) names << i.name;
    return names;
}

TEST(Application, OpensWithTheFilesAndFoldersItIsGiven) {
    ScratchDir dir;
    std::filesystem::create_directories(dir / "session" / "day 2");
    writeFloatWav(dir / "lead.wav", sine(1.0, 0.25), 48000);
    writeFloatWav(dir / "session" / "b.wav", sine(1.0, 0.25), 48000);
    writeFloatWav(dir / "session" / "day 2" / "a.wav", sine(1.0, 0.25), 48000);
    std::ofstream(dir / "session" / "notes.txt") << "not audio\n";

    VelmoraApp app(storeIn(dir));
    app.start({q(dir / "lead.wav"), q(dir / "session")});
    EXPECT_EQ(app.window().windowTitle(), "Velmora");
    EXPECT_TRUE(app.window().isVisible());
    // The folder is walked as the open panel walks it: audio only, sub-folders too, in the order
    // of their paths.
    EXPECT_EQ(queuedNames(app.model()), QStringList({"lead.wav", "b.wav", "a.wav"}));
    ASSERT_TRUE(waitIdle(app.model()));
    for (const auto& item : app.model().queue()) EXPECT_EQ(item.status, ItemStatus::ready) << item.name.toStdString();
}

TEST(Application, WindowComesBackWhereItWasLeft) {
    ScratchDir dir;
    {
        VelmoraApp app(storeIn(dir));
        app.start({});
        app.window().setGeometry(40, 60, 1400, 900);
        app.window().close();
    }
    VelmoraApp again(storeIn(dir));
    again.start({});
    EXPECT_EQ(again.window().geometry().size(), QSize(1400, 900));
    EXPECT_EQ(again.window().geometry().topLeft(), QPoint(40, 60));
}

// The installed program, off screen, with its settings in a folder of the test's own and no
// session bus, so no other window of the user takes its files.
CommandResult runVelmora(const ScratchDir& home, const std::string& arguments) {
    return runCommand("cd " + shellQuote(home.path().string()) + " && XDG_CONFIG_HOME=" +
                      shellQuote((home / "config").string()) + " DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent" +
                      " QT_QPA_PLATFORM=offscreen VELMORA_QUIT_WHEN_IDLE=1 timeout 120 " VELMORA_APP_PATH " " + arguments);
}

TEST(Application, TheExecutableAnalysesWhatItIsOpenedWith) {
    ScratchDir home;
    writeFloatWav(home / "tone.wav", sine(1.0, 0.25), 48000);
    std::ofstream(home / "notes.txt") << "not audio\n";

    const auto opened = runVelmora(home, "tone.wav");
    EXPECT_EQ(opened.exitCode, 0) << opened.err;
    // Its window's place is in the user's settings, under Velmora's key.
    std::ifstream conf(home / "config" / "Velmora" / "Velmora.conf");
    const std::string settings{std::istreambuf_iterator<char>(conf), {}};
    EXPECT_NE(settings.find("[Velmora_window]"), std::string::npos) << settings;
    EXPECT_NE(settings.find("geometry="), std::string::npos) << settings;

    EXPECT_EQ(runVelmora(home, "notes.txt").exitCode, 1) << "nothing it can open";
    EXPECT_EQ(runVelmora(home, "").exitCode, 0) << "no file: the empty window";
}

}  // namespace
}  // namespace velmora::test
