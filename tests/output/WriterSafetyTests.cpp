// A master reaches its destination whole or not at all: an existing file is replaced, the
// source never is, and every refused or failed write ends with its message, the old file
// intact and no temporary file left in the folder.
#include <fcntl.h>
#include <fstream>
#include <sys/fsuid.h>
#include <unistd.h>

#include "output/OutputTestSupport.h"

namespace velmora {
namespace {

using namespace test;
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

const std::string cannotWriteText = "Impossible d'écrire le fichier de sortie (vérifiez l'espace disque et les permissions).";

class WriterSafety : public ::testing::Test {
protected:
    ScratchDir dir;
    Channels tone = Channels(2, std::vector<float>(48000 * 10, 0.25f));  // 10 s, 2.9 MB at 24 bits

    Expected<WriteReport> write(const fs::path& to, const fs::path& source = {}) {
        return writeMaster(tone, 48000.0, {.destination = to, .sourcePath = source});
    }
};

TEST_F(WriterSafety, ReplacesAnExistingFileKeepingItsPermissions) {
    std::ofstream(dir / "m.wav") << "old master";
    fs::permissions(dir / "m.wav", fs::perms(0640));
    auto r = write(dir / "m.wav");
    ASSERT_TRUE(r && r->committed);
    EXPECT_EQ(readWithSndfile(dir / "m.wav").info.frames, 480000);
    EXPECT_EQ(fs::status(dir / "m.wav").permissions(), fs::perms(0640));
    EXPECT_EQ(folderEntries(dir.path()), Strings{"m.wav"});
}

TEST_F(WriterSafety, AnObserverRefusingTheFileLeavesTheDestinationAsItWas) {
    struct Refusing : SampleObserver {
        std::size_t frames = 0;
        void samplesWritten(std::span<const float* const>, std::size_t n) override { frames += n; }
        bool acceptWrite() override { return frames == 0; }
    } refusing;
    std::ofstream(dir / "m.wav") << "old master";
    auto r = writeMaster(tone, 48000.0, {.destination = dir / "m.wav"}, &refusing);
    ASSERT_TRUE(r);
    EXPECT_FALSE(r->committed);
    EXPECT_EQ(refusing.frames, 480000u);
    EXPECT_EQ(contents(dir / "m.wav"), "old master");
    EXPECT_EQ(folderEntries(dir.path()), Strings{"m.wav"});
}

TEST_F(WriterSafety, NeverWritesOverItsSourceUnderAnyName) {
    ASSERT_TRUE(write(dir / "src.wav"));
    const std::string before = contents(dir / "src.wav");
    fs::create_symlink(dir / "src.wav", dir / "link.wav");
    for (const fs::path& to : {dir / "src.wav", dir.path() / "." / "src.wav", dir / "link.wav"}) {
        auto r = writeMaster(Channels{{0.5f, 0.5f}}, 48000.0, {.destination = to, .sourcePath = dir / "src.wav"});
        ASSERT_FALSE(r) << to;
        // Not the disk's fault: the message says what is wrong.
        EXPECT_EQ(r.error().message(), "Le master ne peut pas remplacer son fichier source : choisissez un autre nom.");
    }
    EXPECT_EQ(contents(dir / "src.wav"), before);
    EXPECT_EQ(fs::read_symlink(dir / "link.wav"), dir / "src.wav");
}

TEST_F(WriterSafety, MissingFolderOrAFileUsedAsFolderCannotBeWritten) {
    std::ofstream(dir / "file.wav") << "x";
    for (const fs::path& to : {dir / "missing" / "m.wav", dir / "file.wav" / "m.wav"}) {
        auto r = write(to);
        ASSERT_FALSE(r) << to;
        EXPECT_EQ(r.error().message(), cannotWriteText);
    }
    EXPECT_EQ(folderEntries(dir.path()), Strings{"file.wav"});
}

TEST_F(WriterSafety, FolderWithoutWritePermissionIsRefusedAccess) {
    const fs::path locked = dir / "locked";
    fs::create_directory(locked);
    fs::permissions(locked, fs::perms(0555));
    // Root passes permission checks; an unprivileged file-system identity on this thread does not.
    const bool root = geteuid() == 0;
    if (root) setfsuid(65534);
    const int probeFd = ::open((locked / "probe").c_str(), O_CREAT | O_WRONLY, 0600);
    Expected<WriteReport> r = probeFd < 0 ? write(locked / "m.wav") : Expected<WriteReport>(LoudnessError{});
    if (root) setfsuid(0);
    if (probeFd >= 0) {
        ::close(probeFd);
        GTEST_SKIP() << "cannot give up the right to write everywhere";
    }
    ASSERT_FALSE(r);
    EXPECT_EQ(r.error().message(), "Accès au disque refusé. Vérifiez les permissions du dossier.");
    EXPECT_TRUE(folderEntries(locked).empty());
}

TEST_F(WriterSafety, FullDiskKeepsTheOldMasterAndLeavesNoTemporaryFile) {
    SmallDisk disk(dir / "small");
    if (!disk.active()) GTEST_SKIP() << "neither a small file system nor a file-size limit is available";
    std::ofstream(dir / "small" / "m.wav") << "old master";
    auto r = write(dir / "small" / "m.wav");
    ASSERT_FALSE(r);
    EXPECT_EQ(r.error().message(), cannotWriteText);
    EXPECT_EQ(contents(dir / "small" / "m.wav"), "old master");
    EXPECT_EQ(folderEntries(dir / "small"), Strings{"m.wav"});
}

}  // namespace
}  // namespace velmora
