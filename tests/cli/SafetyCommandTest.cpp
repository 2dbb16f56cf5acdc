// Nothing lost, nothing silent, with real processes and real files: masters killed at any
// moment, interrupted batches, a disk that fills up, names that are not UTF-8, files cut short,
// out-of-range chains and summaries that count.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "output/PendingFile.h"
#include "support/ProgrammeMaterial.h"
#include "support/TestSupport.h"

extern char** environ;

using namespace velmora::test;
namespace fs = std::filesystem;

namespace {

const std::string cli = VELMORA_CLI_PATH;

std::vector<std::string> entries(const fs::path& dir) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// A 440 Hz tone: its loudness range is 0, so its masters are named …_LRA0.
std::vector<std::vector<float>> tone(double seconds, double amplitude = 0.2) {
    std::vector<float> x(std::size_t(seconds * 48000));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(amplitude * std::sin(2 * M_PI * 440 * double(i) / 48000));
    return {x, x};
}

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// velmora-cli with its standard output in a file, so a test can watch it and signal the process.
class Running {
public:
    Running(const std::vector<std::string>& arguments, const fs::path& output) : output_(output) {
        std::vector<std::string> args{cli};
        args.insert(args.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&pid_, cli.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Running() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            wait();
        }
    }
    void signal(int s) const { ::kill(pid_, s); }
    bool saysSoon(const std::string& text) const {
        for (int i = 0; i < 1200; ++i) {
            if (slurp(output_).find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    // The exit status, or 128 + the signal that ended it.
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    std::string out() const { return slurp(output_); }

private:
    fs::path output_;
    pid_t pid_ = -1;
};

// A tmpfs of `kilobytes`, when this process may mount one.
class Tmpfs {
public:
    Tmpfs(const fs::path& at, int kilobytes) : at_(at) {
        fs::create_directories(at);
        mounted_ = ::mount("tmpfs", at.c_str(), "tmpfs", 0, ("size=" + std::to_string(kilobytes) + "k").c_str()) == 0;
    }
    ~Tmpfs() {
        if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
    }
    bool mounted() const { return mounted_; }

private:
    fs::path at_;
    bool mounted_ = false;
};

TEST(Debris, KilledAtAnyMomentAMasterLeavesNothingBehind) {
    ScratchDir dir;
    writeFloatWav(dir / "long.wav", programme(Material::dense, 48000, 40.0), 48000);
    std::mt19937 random(7);
    int finished = 0;
    for (int round = 0; round < 8; ++round) {
        const fs::path out = dir / ("out" + std::to_string(round));
        fs::create_directories(out);
        Running master({"master", (dir / "long.wav").string(), "-o", (out / "m.wav").string(), "--rate", "96000"},
                       dir / "log");
        std::this_thread::sleep_for(std::chrono::milliseconds(200 + random() % 2000));
        master.signal(SIGKILL);
        master.wait();
        const auto left = entries(out);
        SCOPED_TRACE("round " + std::to_string(round));
        EXPECT_TRUE(left.empty() || left == std::vector<std::string>{"m.wav"}) << left.front();
        finished += !left.empty();
    }
    std::printf("%d of 8 masters finished before their kill\n", finished);
}

TEST(Debris, KilledDuringAVideoMasterLeavesNoSoundBehind) {
    ScratchDir dir;
    ASSERT_TRUE(ffmpeg("-f lavfi -i testsrc=size=160x120:rate=25:duration=60 -f lavfi -i "
                       "sine=frequency=440:duration=60:sample_rate=48000 -c:v mpeg4 -c:a pcm_s16le " +
                       shellQuote((dir / "film.mov").string())));
    fs::create_directories(dir / "tmp");
    const char* saved = std::getenv("TMPDIR");
    const std::string savedValue = saved ? saved : "";
    ::setenv("TMPDIR", (dir / "tmp").c_str(), 1);  // where the master's sound waits for the picture
    std::mt19937 random(11);
    for (int round = 0; round < 5; ++round) {
        const fs::path out = dir / ("out" + std::to_string(round));
        Running batch({"batch", (dir / "film.mov").string(), "-o", out.string(), "--rate", "192000"}, dir / "log");
        std::this_thread::sleep_for(std::chrono::milliseconds(300 + random() % 2500));
        batch.signal(SIGKILL);
        batch.wait();
        SCOPED_TRACE("round " + std::to_string(round));
        for (const auto& name : entries(dir / "tmp"))  // Qt keeps its runtime folder there too
            EXPECT_EQ(name, "runtime-root") << "no sound of the master left behind";
        if (fs::exists(out)) {
            const auto left = entries(out);
            EXPECT_TRUE(left.empty() || left == std::vector<std::string>{"film_master_-23LUFS_LRA0.mov"}) << left.front();
        }
    }
    if (saved) ::setenv("TMPDIR", savedValue.c_str(), 1);
    else ::unsetenv("TMPDIR");
}

TEST(Debris, OnlyTheTemporariesOfWritersThatAreGoneAreSwept) {
    ScratchDir dir;
    std::ofstream(dir / ".m.wav.velmora-AbC123.tmp") << "left by a writer killed long ago";
    std::ofstream(dir / ".n.wav.velmora-XyZ789.tmp") << "a writer still at work";
    std::ofstream(dir / ".hidden") << "not ours";
    // A live writer holds its file's lock, as velmora does while it writes.
    const auto lock = runCommand("(flock -x " + shellQuote((dir / ".n.wav.velmora-XyZ789.tmp").string()) +
                                 " sleep 20 >/dev/null 2>&1 &) ; sleep 0.3");
    ASSERT_EQ(lock.exitCode, 0);
    EXPECT_EQ(velmora::sweepStaleTemporaries(dir.path()), 1);
    EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{".hidden", ".n.wav.velmora-XyZ789.tmp"}));
}

TEST(Debris, CtrlCAndSigtermEndABatchWithItsSummary) {
    ScratchDir dir;
    fs::create_directories(dir / "in");
    for (int i = 0; i < 6; ++i) {
        std::string name = "f";  // appended piecewise: GCC 12 warns falsely on "f" + to_string(i)
        name += std::to_string(i);
        name += ".wav";
        writeFloatWav(dir / "in" / name, programme(Material::dense, 48000, 20.0, std::uint32_t(i + 1)), 48000);
    }
    for (int sig : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(sig);
        const fs::path out = dir / ("out" + std::to_string(sig));
        Running batch({"batch", (dir / "in").string(), "-o", out.string(), "--rate", "192000"}, dir / "log");
        ASSERT_TRUE(batch.saysSoon("f0.wav : Masterisé ✓")) << batch.out();
        batch.signal(sig);
        EXPECT_EQ(batch.wait(), 128 + sig) << batch.out();
        const std::string said = batch.out();
        EXPECT_NE(said.find("Traitement par lots interrompu : "), std::string::npos) << said;
        EXPECT_NE(said.find(" non traités"), std::string::npos) << said;
        for (const auto& name : entries(out)) {
            EXPECT_NE(name.front(), '.') << "no temporary left: " << name;
            const auto check = runCommand(cli + " analyse --json " + shellQuote((out / name).string()));
            EXPECT_NE(check.out.find("\"integratedLUFS\":-23.0"), std::string::npos) << name << ": only whole masters";
        }
        EXPECT_LT(entries(out).size(), 6u);
    }
}

TEST(Accounting, AReportThatCannotBeWrittenIsSaidAndCounted) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", tone(8.0), 48000);
    // Room for the 24-bit master (2252 KiB) and its text report, not for its PDF.
    Tmpfs disk(dir / "out", 2272);
    if (!disk.mounted()) GTEST_SKIP() << "mounting a tmpfs needs privileges this run does not have";
    const auto r = runCommand(cli + " batch " + shellQuote((dir / "a.wav").string()) + " -o " +
                              shellQuote((dir / "out").string()) + " --txt --pdf");
    EXPECT_EQ(r.exitCode, 1) << r.out << r.err;
    EXPECT_NE(r.out.find("a.wav : Masterisé ✓ · rapport PDF non écrit : disque plein"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Traitement par lots terminé : 1 fichier, 1 rapport non écrit"), std::string::npos) << r.out;
    EXPECT_TRUE(fs::exists(dir / "out" / "a_master_-23LUFS_LRA0.txt"));
    for (const auto& name : entries(dir / "out")) EXPECT_NE(name.front(), '.') << name;
}

TEST(Accounting, SummariesCountSuccessesAndFailures) {
    ScratchDir dir;
    fs::create_directories(dir / "in");
    for (const char* name : {"a.wav", "b.wav", "c.wav"}) writeFloatWav(dir / "in" / name, tone(8.0), 48000);
    fs::create_directories(dir / "out" / "b_master_-23LUFS_LRA0.wav");  // a folder where b's master should go
    auto r = runCommand(cli + " batch " + shellQuote((dir / "in").string()) + " -o " + shellQuote((dir / "out").string()));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.out.find("Traitement par lots terminé : 2 fichiers, 1 échec"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("✓ ("), std::string::npos) << r.out;

    // Every master of a multi-master fails: nothing generated is never "✓".
    fs::create_directories(dir / "mm" / "a_master_EBU.wav");
    fs::create_directories(dir / "mm" / "a_master_RT040.wav");
    r = runCommand(cli + " multimaster " + shellQuote((dir / "in" / "a.wav").string()) + " -o " +
                   shellQuote((dir / "mm").string()) + " --norms 0,1");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.out.find("Multi-Master terminé : 0 master généré, 2 échecs"), std::string::npos) << r.out;
}

TEST(Names, ALatin1NameIsReadMasteredAndReported) {
    ScratchDir dir;
    fs::create_directories(dir / "in");
    const std::string name = "\xe9t\xe9";  // "été" in Latin-1, as an old disk may hold it
    writeFloatWav(dir / "in" / (name + ".wav"), tone(8.0), 48000);
    writeFloatWav(dir / "in" / "plain.wav", tone(8.0), 48000);
    const auto r = runCommand(cli + " batch " + shellQuote((dir / "in").string()) + " -o " +
                              shellQuote((dir / "out").string()) + " --txt");
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_NE(r.out.find(name + ".wav : Masterisé ✓"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Traitement par lots terminé ✓ (2 fichiers)"), std::string::npos) << r.out;
    EXPECT_TRUE(fs::exists(dir / "out" / (name + "_master_-23LUFS_LRA0.wav")));
    EXPECT_NE(slurp(dir / "out" / (name + "_master_-23LUFS_LRA0.txt")).find("été.wav"), std::string::npos)
        << "the report shows the name as its Latin-1 bytes read";
}

TEST(Names, ANameTooLongForTheFileSystemSaysSo) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", programme(Material::dense, 48000, 2.0), 48000);
    const std::string longName = std::string(300, 'x') + ".wav";
    const auto r = runCommand(cli + " master " + shellQuote((dir / "a.wav").string()) + " -o " +
                              shellQuote((dir / longName).string()));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.out.find("Échec enregistrement : Nom de fichier trop long pour le système de fichiers"), std::string::npos)
        << r.out;
    EXPECT_EQ(entries(dir.path()), std::vector<std::string>{"a.wav"});
}

TEST(TruncatedFiles, AreMeasuredAndMasteredUpToTheirCut) {
    ScratchDir dir;
    ASSERT_TRUE(ffmpeg("-f lavfi -i sine=frequency=440:duration=10:sample_rate=48000 -ac 2 " + shellQuote((dir / "a.flac").string())));
    ASSERT_TRUE(ffmpeg("-f lavfi -i sine=frequency=440:duration=10:sample_rate=48000 -ac 2 -c:a aac -movflags +faststart " +
                       shellQuote((dir / "a.m4a").string())));
    ASSERT_TRUE(ffmpeg("-f lavfi -i testsrc=size=160x120:rate=25:duration=10 -f lavfi -i "
                       "sine=frequency=440:duration=10:sample_rate=48000 -c:v mpeg4 -c:a pcm_s16le -movflags +faststart " +
                       shellQuote((dir / "a.mov").string())));
    for (const char* ext : {"flac", "m4a", "mov"}) {
        SCOPED_TRACE(ext);
        const fs::path whole = dir / (std::string("a.") + ext), cut = dir / (std::string("cut.") + ext);
        fs::copy_file(whole, cut);
        fs::resize_file(cut, fs::file_size(whole) * 6 / 10);  // a recorder that stopped
        const auto full = runCommand(cli + " analyse --json " + shellQuote(whole.string()));
        EXPECT_NE(full.out.find("\"truncated\":false"), std::string::npos) << full.out;
        const auto r = runCommand(cli + " analyse --json " + shellQuote(cut.string()));
        EXPECT_EQ(r.exitCode, 0) << r.out;
        EXPECT_NE(r.out.find("\"truncated\":true"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("· tronqué à 0:0"), std::string::npos) << r.out;

        const fs::path out = dir / (std::string("out-") + ext);
        const auto b = runCommand(cli + " batch " + shellQuote(cut.string()) + " -o " + shellQuote(out.string()) + " --txt");
        EXPECT_EQ(b.exitCode, 0) << b.out;
        EXPECT_NE(b.out.find("tronqué à 0:0"), std::string::npos) << b.out;
        const std::string masterExt = std::string(ext) == "mov" ? ".mov" : ".wav";
        const fs::path master = out / ("cut_master_-23LUFS_LRA0" + masterExt);
        ASSERT_TRUE(fs::exists(master)) << b.out;
        EXPECT_NE(slurp(fs::path(master).replace_extension("txt")).find("(tronqué à 0:0"), std::string::npos);
        const auto again = runCommand(cli + " analyse --json " + shellQuote(master.string()));
        EXPECT_NE(again.out.find("\"integratedLUFS\":-23.0"), std::string::npos) << again.out;
    }
}

TEST(ChainValues, OutOfRangeParamsAreRefusedByName) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", programme(Material::dense, 48000, 2.0), 48000);
    const std::string params = R"({"eqOn":true,"hpfOn":true,"hpfFreq":-40,"lsGain":0,"lsFreq":120,"b1Freq":400,"b1Gain":0,)"
                               R"("b1Q":0,"b2Freq":3000,"b2Gain":0,"b2Q":1,"hsGain":0,"hsFreq":8000,"compOn":false,)"
                               R"("compThreshold":-18,"compRatio":2,"compAttack":10,"compRelease":200,"compMakeup":0,)"
                               R"("lraOn":false,"lraTarget":12,"msOn":false,"midGain":0,"sideGain":0,"teqOn":false,)"
                               R"("tLsGain":0,"tLsFreq":100,"tMidGain":0,"tMidFreq":1000,"tMidQ":0.7,"tHsGain":0,)"
                               R"("tHsFreq":10000,"autoProtectComp":true,"autoProtectThresholdDB":1.5,"lraIterative":false})";
    std::ofstream(dir / "chain.json") << params;
    for (const char* command : {"master", "batch", "multimaster"}) {
        SCOPED_TRACE(command);
        std::string line = cli + " " + command + " " + shellQuote((dir / "a.wav").string()) + " -o " +
                           shellQuote((dir / "out").string()) + " --params " + shellQuote((dir / "chain.json").string());
        if (std::string(command) == "multimaster") line += " --norms 0";
        const auto r = runCommand(line);
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_NE(r.err.find("hpfFreq = -40 hors de sa plage (20 à 300); b1Q = 0 hors de sa plage (0.3 à 3)"),
                  std::string::npos)
            << r.err;
    }
    EXPECT_FALSE(fs::exists(dir / "out"));
}

}  // namespace
