// The desktop's panels and file manager as the model uses them: the open panel taking files
// and folders together, and reveal over a private D-Bus with and without a file manager on
// it, or with no bus at all. Folders "opened" reach a handler of the test's own, never a real
// file manager.
#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDesktopServices>
#include <QDir>
#include <QSettings>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QListView>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "ui/app/DesktopChoosers.h"

namespace velmora::test {
namespace {

using ::testing::UnorderedElementsAre;

// Receives the URLs QDesktopServices would hand to the desktop.
class OpenedUrls : public QObject {
    Q_OBJECT
public:
    OpenedUrls() { QDesktopServices::setUrlHandler("file", this, "open"); }
    ~OpenedUrls() override { QDesktopServices::unsetUrlHandler("file"); }
    QList<QUrl> urls;
public slots:
    void open(const QUrl& url) { urls << url; }
};

// A file manager on the bus, as a desktop has one: it records what it is asked to show.
class FileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
    QString startupId;
public slots:
    void ShowItems(const QStringList& uris, const QString& startup) {
        shown = uris;
        startupId = startup;
    }
};

// A session bus of the test's own: dbus-daemon with nothing activatable on it.
class PrivateBus {
public:
    explicit PrivateBus(const ScratchDir& dir) {
        const auto config = dir / "bus.conf";
        std::ofstream(config) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                                 " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                                 "<busconfig><type>session</type><listen>unix:tmpdir="
                              << dir.path().string()
                              << "</listen><policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                 "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
        daemon_.start("dbus-daemon", {"--nofork", "--print-address=1", "--config-file=" + q(config)});
        if (daemon_.waitForStarted() && daemon_.waitForReadyRead(10000)) address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
    ~PrivateBus() {
        for (const auto& name : names_) QDBusConnection::disconnectFromBus(name);
        daemon_.terminate();
        daemon_.waitForFinished();
    }
    bool running() const { return !address_.isEmpty(); }
    QDBusConnection connect(const QString& name) {
        names_ << name;
        return QDBusConnection::connectToBus(address_, name);
    }

private:
    QProcess daemon_;
    QString address_;
    QStringList names_;
};

// Acts on the next panel once it is up, then lets `choose` return.
void answerPanel(const std::function<void(QFileDialog&)>& act) {
    QTimer::singleShot(0, [act] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (!dialog) {
            ADD_FAILURE() << "no panel";
            return;
        }
        act(*dialog);
        if (dialog->isVisible()) dialog->reject();
    });
}

QPushButton* openButton(QFileDialog& dialog) {
    return dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Open);
}

TEST(OpenPanel, TakesFilesAndFoldersTogetherOrTheFolderOnShow) {
    ScratchDir dir;
    for (const char* name : {"a.wav", "B.FLAC", "notes.txt"}) std::ofstream(dir / name) << "x";
    std::filesystem::create_directory(dir / "sub");
    DesktopChoosers choosers{QDBusConnection(QString())};
    choosers.setStartFolder(q(dir.path()));

    answerPanel([&](QFileDialog& dialog) {
        EXPECT_EQ(dialog.windowTitle(), "Ouvrir des fichiers ou un dossier");
        auto* list = dialog.findChild<QListView*>("listView");
        ASSERT_NE(list, nullptr);
        auto* files = qobject_cast<QFileSystemModel*>(list->model());
        const QModelIndex root = list->rootIndex();
        // Listed: the folder and the audio files, whatever their case; not the text file.
        ASSERT_TRUE(eventually([&] { return files->rowCount(root) == 3; })) << files->rowCount(root);
        for (const char* name : {"a.wav", "sub"}) {
            const QModelIndex row = files->index(q(dir / name));
            list->selectionModel()->select(row, QItemSelectionModel::Select | QItemSelectionModel::Rows);
        }
        EXPECT_EQ(openButton(dialog)->text(), "Ouvrir");
        EXPECT_TRUE(openButton(dialog)->isEnabled()) << "a folder in the selection leaves Open on";
        QTest::mouseClick(openButton(dialog), Qt::LeftButton);
    });
    EXPECT_THAT(choosers.chooseFilesOrFolders("Ouvrir des fichiers ou un dossier", "Ouvrir"),
                UnorderedElementsAre(q(dir / "a.wav"), q(dir / "sub")));

    answerPanel([&](QFileDialog& dialog) { QTest::mouseClick(openButton(dialog), Qt::LeftButton); });
    EXPECT_EQ(choosers.chooseFilesOrFolders("Ouvrir", "Ouvrir"), QStringList{q(dir.path())}) << "nothing selected";

    answerPanel([](QFileDialog& dialog) { dialog.reject(); });
    EXPECT_TRUE(choosers.chooseFilesOrFolders("Ouvrir", "Ouvrir").isEmpty());
}

TEST(OpenPanel, TheOpenAndExportFoldersAreRememberedAcrossRuns) {
    ScratchDir dir;
    const auto music = dir / "music", exports = dir / "exports";
    std::filesystem::create_directories(music);
    std::filesystem::create_directories(exports);
    QSettings store(q(dir / "Velmora.ini"), QSettings::IniFormat);
    {
        DesktopChoosers choosers{QDBusConnection(QString())};
        choosers.rememberFoldersIn(&store);
        choosers.setStartFolder(q(dir.path()));
        answerPanel([&](QFileDialog& dialog) {
            dialog.setDirectory(q(music));
            QTest::mouseClick(openButton(dialog), Qt::LeftButton);
        });
        EXPECT_EQ(choosers.chooseFilesOrFolders("Ouvrir", "Ouvrir"), QStringList{q(music)});
        answerPanel([&](QFileDialog& dialog) {
            EXPECT_EQ(QDir(dialog.directory()), QDir(q(dir.path()))) << "the export panel keeps its own folder";
            dialog.setDirectory(q(exports));
            static_cast<QDialog&>(dialog).accept();  // as Enter does
        });
        EXPECT_EQ(choosers.chooseFolder("Choisir le dossier des exports", "Exporter ici"), q(exports));
    }
    EXPECT_EQ(store.value("Velmora_lastOpenFolder").toString(), q(music));
    EXPECT_EQ(store.value("Velmora_exportFolder").toString(), q(exports));

    // The next run opens each panel where it was left.
    DesktopChoosers next{QDBusConnection(QString())};
    next.rememberFoldersIn(&store);
    EXPECT_EQ(next.startFolder(), q(music));
    EXPECT_EQ(next.exportFolder(), q(exports));
    answerPanel([&](QFileDialog& dialog) { EXPECT_EQ(QDir(dialog.directory()), QDir(q(exports))); });
    EXPECT_EQ(next.chooseSaveFile("Enregistrer", "Enregistrer", "master.wav"), std::nullopt);
    answerPanel([&](QFileDialog& dialog) { EXPECT_EQ(QDir(dialog.directory()), QDir(q(music))); });
    EXPECT_TRUE(next.chooseFilesOrFolders("Ouvrir", "Ouvrir").isEmpty());

    // A folder removed since is not where a panel opens.
    std::filesystem::remove_all(exports);
    DesktopChoosers later{QDBusConnection(QString())};
    later.rememberFoldersIn(&store);
    EXPECT_NE(later.exportFolder(), q(exports));
    EXPECT_EQ(later.startFolder(), q(music));
}

TEST(Reveal, WithoutASessionBusOpensTheFoldersHoldingTheItems) {
    OpenedUrls opened;
    DesktopChoosers choosers{QDBusConnection(QString())};
    choosers.reveal({"/tmp/velmora-a/one.wav", "/tmp/velmora-a/two.wav", "/tmp/velmora-b/three.wav"});
    EXPECT_EQ(opened.urls, QList<QUrl>({QUrl("file:///tmp/velmora-a"), QUrl("file:///tmp/velmora-b")}));
}

TEST(Reveal, AsksTheFileManagerOnTheBusAndFallsBackWhenThereIsNone) {
    ScratchDir dir;
    PrivateBus bus(dir);
    ASSERT_TRUE(bus.running());
    OpenedUrls opened;
    const QString item = q(dir / "Mix final #2 é.wav");

    QDBusConnection client = bus.connect("velmora-client");
    DesktopChoosers choosers(client);
    choosers.reveal({item});
    ASSERT_TRUE(eventually([&] { return !opened.urls.isEmpty(); })) << "no file manager: the folder is opened";
    EXPECT_EQ(opened.urls, QList<QUrl>{QUrl::fromLocalFile(q(dir.path()))});

    FileManager manager;
    QDBusConnection service = bus.connect("velmora-file-manager");
    ASSERT_TRUE(service.registerObject("/org/freedesktop/FileManager1", &manager, QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(service.registerService("org.freedesktop.FileManager1"));
    opened.urls.clear();
    choosers.reveal({item});
    ASSERT_TRUE(eventually([&] { return !manager.shown.isEmpty(); }));
    EXPECT_EQ(manager.shown, QStringList{QUrl::fromLocalFile(item).toString(QUrl::FullyEncoded)});
    EXPECT_TRUE(manager.shown[0].startsWith("file:///")) << manager.shown[0].toStdString();
    EXPECT_FALSE(manager.shown[0].contains(' '));
    // A round trip on the same connection comes back after the file manager's answer; once it
    // has been handled, nothing fell back to opening the folder as well.
    client.interface()->isServiceRegistered("org.freedesktop.FileManager1");
    QCoreApplication::processEvents();
    EXPECT_TRUE(opened.urls.isEmpty());
}

}  // namespace
}  // namespace velmora::test

#include "DesktopChoosersTest.moc"
