// Chains that once ended in a false message or a wrong master: filters above Nyquist on a
// 16 kHz source, a ratio or a Q of zero, a chain that blows the programme up.
#include <cmath>
#include <fstream>

#include "audio/AudioFileReader.h"
#include "output/MasterDelivery.h"
#include "output/OutputTestSupport.h"
#include "support/ProgrammeMaterial.h"

namespace velmora {
namespace {

using namespace test;

const std::vector<double> stereo{1.0, 1.0};

double writtenLUFS(const std::filesystem::path& file) {
    auto decoded = readAudioFile(file);
    if (!decoded) return NAN;
    return LoudnessEngine::measure(decoded->channels, stereo, decoded->sampleRate).integratedLUFS;
}

TEST(ChainSafety, ChainsThatOnceFailedNowReachTheTarget) {
    ScratchDir dir;
    MasterParams tonal16k;  // the tonal shelf's default 10 kHz is above a 16 kHz file's Nyquist
    tonal16k.teqOn = true;
    tonal16k.tHsGain = 3;
    MasterParams noRatio;
    noRatio.compOn = true;
    noRatio.compRatio = 0;
    MasterParams noQ;
    noQ.eqOn = true;
    noQ.b1Gain = 4;
    noQ.b1Q = 0;
    MasterParams negativeHighPass;
    negativeHighPass.eqOn = negativeHighPass.hpfOn = true;
    negativeHighPass.hpfFreq = -40;
    const struct {
        const char* name;
        MasterParams params;
        double rate;
    } cases[] = {{"tonal16k", tonal16k, 16000}, {"noRatio", noRatio, 48000}, {"noQ", noQ, 48000},
                 {"negativeHighPass", negativeHighPass, 44100}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Channels source = programme(Material::dense, c.rate, 8.0);
        DeliveryRequest request;
        request.targetLUFS = -23.0;
        request.params = c.params;
        request.write = {.destination = dir / (std::string(c.name) + ".wav")};
        const auto report = deliverMaster(source, c.rate, stereo, request);
        ASSERT_TRUE(report) << report.error().message();
        EXPECT_FALSE(report->targetMissedLUFS);
        EXPECT_LT(report->maxGR, 60.0);
        EXPECT_NEAR(writtenLUFS(dir / (std::string(c.name) + ".wav")), -23.0, 0.1);
    }
}

// A chain that turns the programme into something without a loudness (a Side gain no control
// allows): never a master called saved, nothing on disk.
TEST(ChainSafety, AMasterThatMissesItsTargetUnannouncedIsAFailure) {
    ScratchDir dir;
    MasterParams wild;
    wild.msOn = true;
    wild.sideGain = 1e300;
    Channels source = programme(Material::dense, 48000, 6.0);
    DeliveryRequest request;
    request.params = wild;
    request.write = {.destination = dir / "m.wav"};
    const auto report = deliverMaster(source, 48000, stereo, request);
    ASSERT_FALSE(report) << "written at " << report->after.integratedLUFS << " LUFS";
    EXPECT_TRUE(folderEntries(dir.path()).empty());
}

// A programme 2 dB louder at every reading (a source rewritten while it is mastered): the gain
// measured on one pass never fits the next, and the corrections run out.
class Drifting final : public Programme {
public:
    explicit Drifting(Channels samples) : samples_(std::move(samples)) {}
    std::size_t channelCount() const override { return samples_.size(); }
    std::size_t frameCount() const override { return samples_[0].size(); }
    double sampleRate() const override { return 48000; }
    std::unique_ptr<ProgrammePass> read() const override {
        return std::make_unique<Pass>(samples_, std::pow(1.25, double(passes_++)));
    }

private:
    struct Pass final : ProgrammePass {
        Pass(const Channels& s, double gain) : source(s), gain(gain), block(s.size()), pointers(s.size()) {}
        float* const* next(std::size_t n) override {
            for (std::size_t c = 0; c < source.size(); ++c) {
                block[c].assign(source[c].begin() + long(at), source[c].begin() + long(at + n));
                for (float& v : block[c]) v = float(v * gain);
                pointers[c] = block[c].data();
            }
            at += n;
            return pointers.data();
        }
        LoudnessError error() const override { return {LoudnessError::Code::cannotRead}; }
        const Channels& source;
        double gain;
        std::size_t at = 0;
        Channels block;
        std::vector<float*> pointers;
    };
    Channels samples_;
    mutable int passes_ = 0;
};

TEST(ChainSafety, AWrittenLoudnessOffTheTargetIsItsOwnFailure) {
    ScratchDir dir;
    std::ofstream(dir / "m.wav") << "earlier master";
    Drifting source(programme(Material::dense, 48000, 6.0));
    DeliveryRequest request;
    request.write = {.destination = dir / "m.wav"};
    const auto report = deliverMaster(source, stereo, request);
    ASSERT_FALSE(report) << "written at " << report->after.integratedLUFS << " LUFS, "
                         << (report->targetMissedLUFS ? "announced" : "unannounced");
    EXPECT_EQ(report.error().code, LoudnessError::Code::targetNotReached);
    EXPECT_EQ(report.error().message(), "Le master écrit n'atteint pas sa cible de sonie : il n'a pas été enregistré.");
    EXPECT_EQ(contents(dir / "m.wav"), "earlier master");
    EXPECT_EQ(folderEntries(dir.path()), std::vector<std::string>{"m.wav"});
}

}  // namespace
}  // namespace velmora
