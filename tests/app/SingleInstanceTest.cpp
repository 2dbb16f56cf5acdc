// One window per user: real velmora processes on a session bus of the test's own, the second
// launch handing its files and folders to the first.
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QTest>
#include <fstream>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "model/ModelTesting.h"
#include "ui/app/SingleInstance.h"

namespace velmora::test {
namespace {

// dbus-daemon --session, private to the test.
class SessionBus {
public:
    SessionBus() {
        daemon_.start(QStringLiteral("dbus-daemon"), {"--session", "--nofork", "--print-address=1"});
        if (daemon_.waitForStarted() && daemon_.waitForReadyRead(10000))
            address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
    ~SessionBus() {
        QDBusConnection::disconnectFromBus(QStringLiteral("probe"));
        daemon_.terminate();
        daemon_.waitForFinished();
    }
    const QString& address() const { return address_; }
    bool owned(const char* name) {
        auto bus = QDBusConnection::connectToBus(address_, QStringLiteral("probe"));
        return bus.isConnected() && bus.interface()->isServiceRegistered(QString::fromLatin1(name));
    }

private:
    QProcess daemon_;
    QString address_;
};

std::unique_ptr<QProcess> launch(const ScratchDir& home, const QString& bus, const QString& quitAfter,
                                 const QStringList& arguments) {
    auto p = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("DBUS_SESSION_BUS_ADDRESS", bus);
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_CONFIG_HOME", q(home / "config"));
    env.insert("VELMORA_QUIT_WHEN_IDLE", quitAfter);
    p->setProcessEnvironment(env);
    p->setWorkingDirectory(q(home.path()));
    p->start(QStringLiteral(VELMORA_APP_PATH), arguments);
    return p;
}

TEST(SingleInstance, ASecondLaunchHandsItsFilesToTheRunningWindow) {
    SessionBus bus;
    if (bus.address().isEmpty()) GTEST_SKIP() << "dbus-daemon could not start a session bus";
    ScratchDir home;
    std::filesystem::create_directories(home / "more");
    writeFloatWav(home / "first.wav", sine(1.0, 0.25), 48000);
    writeFloatWav(home / "more" / "b.wav", sine(1.0, 0.25), 48000);
    const std::string latin1 = "\xe9t\xe9.wav";  // "été" in Latin-1: not UTF-8
    writeFloatWav(home / "more" / latin1, sine(1.0, 0.25), 48000);

    auto first = launch(home, bus.address(), "3", {"first.wav"});
    ASSERT_TRUE(eventually([&] { return bus.owned(busName); })) << "the first window owns the name";

    // A relative folder, as a shell in the user's folder passes it.
    auto second = launch(home, bus.address(), "1", {"more"});
    ASSERT_TRUE(second->waitForFinished(30000));
    EXPECT_EQ(second->exitCode(), 0);
    EXPECT_EQ(second->readAllStandardOutput(), "") << "no window of its own, nothing analysed there";

    ASSERT_TRUE(first->waitForFinished(120000));
    EXPECT_EQ(first->exitCode(), 0) << first->readAllStandardError().toStdString();
    const QByteArray queued = first->readAllStandardOutput();
    EXPECT_EQ(queued.toStdString(), (home / "first.wav").string() + "\n" + (home / "more" / "b.wav").string() + "\n" +
                                        (home / "more" / latin1).string() + "\n");
}

TEST(SingleInstance, WithoutASessionBusEachLaunchRunsAlone) {
    ScratchDir home;
    writeFloatWav(home / "tone.wav", sine(1.0, 0.25), 48000);
    auto alone = launch(home, "unix:path=" + q(home / "no-bus"), "1", {"tone.wav"});
    ASSERT_TRUE(alone->waitForFinished(60000));
    EXPECT_EQ(alone->exitCode(), 0);
    EXPECT_EQ(alone->readAllStandardOutput().toStdString(), (home / "tone.wav").string() + "\n");
}

TEST(SingleInstance, UrisCarryAPathsBytesExactly) {
    const std::string odd = "/tmp/d\xe9mo 50%/a#b?.wav";
    const QString uri = fileUri(odd);
    EXPECT_EQ(uri, "file:///tmp/d%E9mo%2050%25/a%23b%3F.wav");
    EXPECT_EQ(pathOfUri(uri), odd);
    EXPECT_EQ(pathOfUri("file://localhost/x/y.wav"), "/x/y.wav");
    EXPECT_FALSE(pathOfUri("https://example.org/a.wav"));
}

}  // namespace
}  // namespace velmora::test
