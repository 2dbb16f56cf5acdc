// velmora-cli play into a probe client on a private JACK server: what reaches the chosen ports,
// sample for sample, and how the command ends.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <regex>

#include "audio/JackFixture.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "model/MasterParamsJson.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using namespace std::chrono_literals;
using test::firstNonZero;
using test::nonZeroCount;
using test::ProbeClient;
using test::waitUntil;

constexpr std::size_t probeCapacity = 12 * 48000;  // frames

// Never zero, and no value twice in less than a million frames, so where a run starts and what
// it holds are plain; the right channel differs in sign and scale, so a swapped or shared
// channel shows.
Channels programme(std::size_t frames) {
    Channels c(2, std::vector<float>(frames));
    for (std::size_t k = 0; k < frames; ++k) {
        c[0][k] = float(0.05 + 0.85 * double((k * 7919) % 1000003) / 1000003.0);
        c[1][k] = -0.5f * c[0][(k * 13) % frames];
    }
    return c;
}

// `got` holds `expected` from its first audible sample on, then silence: the stream's start
// offset is wherever the first sample lands. That offset, or -1 after a failure.
std::ptrdiff_t expectPlayedOnce(const std::vector<float>& got, const std::vector<float>& expected,
                                std::size_t from = 0) {
    const std::ptrdiff_t lead = firstNonZero(expected), start = firstNonZero(got, from) - lead;
    EXPECT_GE(lead, 0);
    EXPECT_GE(start, std::ptrdiff_t(from)) << "nothing audible";
    if (lead < 0 || start < std::ptrdiff_t(from)) return -1;
    EXPECT_GE(got.size(), std::size_t(start) + expected.size()) << "played short";
    if (got.size() < std::size_t(start) + expected.size()) return -1;
    const auto [e, g] = std::mismatch(expected.begin(), expected.end(), got.begin() + start);
    EXPECT_EQ(e, expected.end()) << "frame " << (e - expected.begin()) << ": " << *g << " instead of " << *e;
    EXPECT_EQ(nonZeroCount(got, std::size_t(start) + expected.size()), 0u) << "sound after the end";
    return start;
}

// The one line the command leaves on standard error when it is not a terminal, as numbers.
std::optional<LiveMeter::Readings> finalMeterLine(const std::string& err) {
    static const std::regex line(R"(M (\S+)  S (\S+)  I (\S+) LUFS  peak (\S+) dBFS\n)");
    std::smatch m;
    if (!std::regex_match(err, m, line)) return std::nullopt;
    const auto number = [](const std::string& text) {
        return text == "—" ? -std::numeric_limits<double>::infinity() : std::stod(text);
    };
    return LiveMeter::Readings{number(m[1]), number(m[2]), number(m[3]), number(m[4])};
}

// velmora-cli running in the background, standard output and error into files, so that a test
// can signal it; killed if a test leaves it running.
class CliProcess {
public:
    CliProcess(const std::vector<std::string>& args, const std::filesystem::path& out,
               const std::filesystem::path& err) {
        std::vector<std::string> all = {VELMORA_CLI_PATH};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
            dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~CliProcess() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    CliProcess(const CliProcess&) = delete;
    CliProcess& operator=(const CliProcess&) = delete;

    void signal(int number) const { kill(pid_, number); }
    // Its exit status once it has exited within `timeout`; nothing if it is still running or died
    // of a signal.
    std::optional<int> exitStatus(std::chrono::milliseconds timeout) {
        int status = 0;
        if (pid_ <= 0 || !waitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, timeout)) return {};
        pid_ = -1;
        return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
    }

private:
    pid_t pid_ = -1;
};

std::string slurp(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class PlayCommand : public test::WithPrivateJackServer<48000> {
protected:
    test::ScratchDir dir;
    const std::string cli = "timeout 30 " + test::shellQuote(VELMORA_CLI_PATH);
};

TEST_F(PlayCommand, PlaysThroughTheChainExactlyAsTheStreamerRendersItWithItsMeterLine) {
    // 44.1 kHz into a 48 kHz server: the conversion is part of what must match.
    const Channels file = programme(44100);
    test::writeFloatWav(dir / "in.wav", file, 44100);
    MasterParams params;
    params.eqOn = params.hpfOn = true;
    params.b1Gain = 6, params.hsGain = -4;
    params.compOn = true;
    params.compThreshold = -24, params.compRatio = 4, params.compAttack = 2, params.compMakeup = 3;
    params.teqOn = true, params.tMidGain = 2;
    std::ofstream(dir / "chain.json") << masterParamsToJson(params).toStdString();

    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    const auto played = test::runCommand(cli + " play " + test::shellQuote((dir / "in.wav").string()) +
                                         " --device JACK:probe --channels 3,4 --params " +
                                         test::shellQuote((dir / "chain.json").string()));
    ASSERT_EQ(played.exitCode, 0) << played.out << played.err;
    EXPECT_EQ(played.out, "");
    ASSERT_TRUE(probe.receiveMore());

    OnlineMasteringStreamer streamer;
    ASSERT_EQ(streamer.init(file, 44100, 48000), std::nullopt);
    streamer.update(params, 0.0);
    streamer.setLooping(false);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(48000);
    streamer.setLiveMeter(meter);
    std::vector<float> left(std::size_t(streamer.totalFrames())), right(left.size());
    streamer.render(left.size(), left.data(), right.data());

    SCOPED_TRACE("xruns " + std::to_string(probe.xruns()));
    const std::ptrdiff_t startL = expectPlayedOnce(probe.recorded(2), left);
    const std::ptrdiff_t startR = expectPlayedOnce(probe.recorded(3), right);
    EXPECT_EQ(startL, startR);
    for (int port : {0, 1, 4, 5, 6, 7}) EXPECT_EQ(nonZeroCount(probe.recorded(port)), 0u) << "port " << port + 1;

    // Integrated loudness and peak do not depend on how the stream cut its blocks.
    const auto line = finalMeterLine(played.err);
    ASSERT_TRUE(line) << played.err;
    const auto heard = meter->stats();
    EXPECT_NEAR(line->integrated, heard.integrated, 0.051);
    EXPECT_NEAR(line->peakDB, heard.peakDB, 0.051);
    EXPECT_TRUE(std::isfinite(line->momentary) && std::isfinite(line->shortTerm)) << played.err;
}

TEST_F(PlayCommand, PlaysTheFileItselfFromTheStartOrHalfwayAndToTheSystemOutputByDefault) {
    const Channels file = programme(48000);
    const std::string path = test::shellQuote((dir / "in.wav").string());
    test::writeFloatWav(dir / "in.wav", file, 48000);
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());

    const auto whole = test::runCommand(cli + " play " + path + " --device JACK:probe --channels 3,4");
    ASSERT_EQ(whole.exitCode, 0) << whole.out << whole.err;
    ASSERT_TRUE(probe.receiveMore());
    SCOPED_TRACE("xruns " + std::to_string(probe.xruns()));
    expectPlayedOnce(probe.recorded(2), file[0]);
    expectPlayedOnce(probe.recorded(3), file[1]);

    std::size_t mark = probe.frames();
    const auto half = test::runCommand(cli + " play " + path + " --device JACK:probe --channels 3,4 --seek 0.5");
    ASSERT_EQ(half.exitCode, 0) << half.out << half.err;
    ASSERT_TRUE(probe.receiveMore());
    for (int c = 0; c < 2; ++c)
        expectPlayedOnce(probe.recorded(2 + c), std::vector<float>(file[c].begin() + 24000, file[c].end()), mark);

    // Without --device the server's own output plays it, not the probe.
    mark = probe.frames();
    const auto byDefault = test::runCommand(cli + " play " + path);
    EXPECT_EQ(byDefault.exitCode, 0) << byDefault.out << byDefault.err;
    ASSERT_TRUE(probe.receiveMore());
    for (int port = 0; port < 8; ++port) EXPECT_EQ(nonZeroCount(probe.recorded(port), mark), 0u) << "port " << port + 1;
}

TEST_F(PlayCommand, PlaysA51FileAt44100FromASeekAsTheHeldStreamerRendersIt) {
    // Read from the file as it plays: folded, converted and started a quarter in, with the
    // converter restarted there, it still gives the whole-file conversion's samples.
    Channels file = programme(44100);
    file.push_back(file[0]);  // centre
    file.push_back(std::vector<float>(file[0].size(), 0.9f));  // LFE: left out
    file.push_back(file[1]);  // surrounds
    file.push_back(file[0]);
    for (auto& v : file[2]) v *= 0.5f;
    test::writeFloatWav(dir / "in.wav", file, 44100);
    ProbeClient probe(server->name(), "probe", 2, probeCapacity);
    ASSERT_TRUE(probe.open());
    const auto played = test::runCommand(cli + " play " + test::shellQuote((dir / "in.wav").string()) +
                                         " --device JACK:probe --seek 0.25");
    ASSERT_EQ(played.exitCode, 0) << played.out << played.err;
    ASSERT_TRUE(probe.receiveMore());

    OnlineMasteringStreamer held;
    ASSERT_EQ(held.init(file, 44100, 48000), std::nullopt);
    held.setLooping(false);
    std::vector<float> left(std::size_t(held.totalFrames())), right(left.size());
    held.render(left.size(), left.data(), right.data());
    const auto from = std::ptrdiff_t(0.25 * double(held.totalFrames()));
    for (int c = 0; c < 2; ++c) {
        const std::vector<float> want((c ? right : left).begin() + from, (c ? right : left).end());
        const auto got = probe.recorded(c);
        const std::ptrdiff_t start = firstNonZero(got);
        ASSERT_GE(start, 0);
        ASSERT_GE(got.size(), std::size_t(start) + want.size());
        float worst = 0;
        for (std::size_t i = 0; i < want.size(); ++i) worst = std::max(worst, std::fabs(got[std::size_t(start) + i] - want[i]));
        EXPECT_LT(worst, 1e-6f) << "channel " << c;
        EXPECT_EQ(nonZeroCount(got, std::size_t(start) + want.size()), 0u);
    }
}

TEST_F(PlayCommand, LoopsUntilInterruptedAndStopsCleanlyOnEitherSignal) {
    const Channels file = programme(12000);  // 0.25 s
    test::writeFloatWav(dir / "in.wav", file, 48000);
    for (const int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal == SIGINT ? "SIGINT" : "SIGTERM");
        ProbeClient probe(server->name(), "probe", 8, probeCapacity);
        ASSERT_TRUE(probe.open());
        CliProcess play({"play", (dir / "in.wav").string(), "--device", "JACK:probe", "--loop"}, dir / "out",
                        dir / "err");
        // Three times the file: it has looped.
        ASSERT_TRUE(waitUntil([&] { return nonZeroCount(probe.recorded(0)) > 3 * file[0].size(); }, 10s));
        play.signal(signal);
        EXPECT_EQ(play.exitStatus(10s), 0);
        EXPECT_EQ(slurp(dir / "out"), "");
        const auto line = finalMeterLine(slurp(dir / "err"));
        ASSERT_TRUE(line) << slurp(dir / "err");
        EXPECT_TRUE(std::isfinite(line->integrated));

        // Each lap is the whole file; the block that ends one is completed with silence.
        const auto got = probe.recorded(0);
        std::size_t from = 0;
        for (int lap = 0; lap < 3; ++lap) {
            const std::ptrdiff_t start = firstNonZero(got, from);
            ASSERT_GE(start, 0);
            ASSERT_GE(got.size(), std::size_t(start) + file[0].size());
            EXPECT_TRUE(std::equal(file[0].begin(), file[0].end(), got.begin() + start)) << "lap " << lap;
            from = std::size_t(start) + file[0].size();
        }
    }
}

TEST_F(PlayCommand, EndsWithTheMessageWhenTheDeviceGoesAway) {
    test::writeFloatWav(dir / "in.wav", programme(12000), 48000);
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    CliProcess play({"play", (dir / "in.wav").string(), "--device", "JACK:probe", "--loop"}, dir / "out", dir / "err");
    ASSERT_TRUE(waitUntil([&] { return nonZeroCount(probe.recorded(0)) > 0; }, 10s));
    probe.close();
    EXPECT_EQ(play.exitStatus(10s), 1);
    EXPECT_EQ(slurp(dir / "out"), "Carte son déconnectée. Le mode export A/B WAV reste disponible.\n");
    EXPECT_TRUE(finalMeterLine(slurp(dir / "err"))) << slurp(dir / "err");
}

TEST_F(PlayCommand, RefusesWhatItCannotPlay) {
    test::writeFloatWav(dir / "in.wav", programme(4800), 48000);
    const std::string path = test::shellQuote((dir / "in.wav").string());

    const auto nowhere = test::runCommand(cli + " play " + path + " --device JACK:nowhere");
    EXPECT_EQ(nowhere.exitCode, 1);
    EXPECT_EQ(nowhere.out, "Monitoring : Carte son introuvable (UID JACK:nowhere). Vérifiez qu'elle est connectée et "
                           "reconnue par le système.\n");

    const auto missing = test::runCommand(cli + " play " + test::shellQuote((dir / "missing.wav").string()));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out.rfind("Échec lecture : ", 0), 0u) << missing.out;

    const auto incomplete = test::runCommand(cli + " play " + path + " --params " + path);
    EXPECT_EQ(incomplete.exitCode, 2) << incomplete.err;
}

}  // namespace
}  // namespace velmora
