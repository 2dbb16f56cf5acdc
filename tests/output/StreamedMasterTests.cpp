// Masters made from the file, decoded again for every pass, against masters made from the
// same samples held in memory: the same file, sample for sample, whatever the retries,
// corrections, protection and rate conversion on the way. And a source that no longer matches
// its analysis fails cleanly.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <unistd.h>

#include "audio/AudioFileReader.h"
#include "audio/ProgrammeStream.h"
#include "mastering/Render.h"
#include "mastering/RenderedProgramme.h"
#include "output/MasterDelivery.h"
#include "output/OutputTestSupport.h"
#include "support/ProgrammeMaterial.h"

namespace velmora {
namespace {

using namespace test;
namespace fs = std::filesystem;

class StreamedMaster : public ::testing::Test {
protected:
    void SetUp() override {
        // The process id too: other checkouts on the machine run the same tests at the same time.
        dir_ = fs::temp_directory_path() /
               ("velmora-streamed-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "-" +
                std::to_string(getpid()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path dir_;
};

Channels loud(Channels channels, float gain) {
    for (auto& ch : channels)
        for (auto& v : ch) v *= gain;
    return channels;
}

TEST_F(StreamedMaster, FromTheFileEqualsFromMemorySampleForSample) {
    constexpr double fs = 48000;
    // Two minutes of dense stereo, and a 5.1 mix of three such programmes, hot enough that
    // the limiter works hard, the loudness is corrected and the protection compressor comes in.
    Channels stereoMix = loud(programme(Material::dense, fs, 120.0, 3), 1.4f);
    Channels surround;
    for (std::uint32_t seed : {5u, 6u, 7u})
        for (auto& ch : loud(programme(Material::dense, fs, 40.0, seed), 1.2f)) surround.push_back(std::move(ch));
    struct Case {
        const Channels* source;
        std::vector<double> weights;
        double target, ceiling, outputRate;
        BitDepth depth;
    };
    const std::vector<Case> cases{
        {&stereoMix, {1, 1}, -9.0, -1.0, 0, BitDepth::int24},
        {&stereoMix, {1, 1}, -14.0, -1.0, 44100, BitDepth::float32},
        {&surround, {1, 1, 1, 0, 1.41, 1.41}, -5.0, -2.0, 0, BitDepth::int16},
    };
    for (std::size_t k = 0; k < cases.size(); ++k) {
        const Case& c = cases[k];
        const fs::path sourceFile = dir_ / ("source" + std::to_string(k) + ".wav");
        writeFloatWav(sourceFile, *c.source, int(fs));
        DeliveryRequest request;
        request.targetLUFS = c.target;
        request.ceilingDB = c.ceiling;
        request.write.depth = c.depth;
        request.write.outputRate = c.outputRate;
        request.write.sourcePath = sourceFile;

        request.write.destination = dir_ / ("memory" + std::to_string(k) + ".wav");
        const auto fromMemory = deliverMaster(*c.source, fs, c.weights, request);
        ASSERT_TRUE(fromMemory) << fromMemory.error().message();

        request.write.destination = dir_ / ("file" + std::to_string(k) + ".wav");
        const FileProgramme file(sourceFile, false, c.source->size(), c.source->front().size(), fs);
        const auto fromFile = deliverMaster(file, c.weights, request);
        ASSERT_TRUE(fromFile) << fromFile.error().message();

        EXPECT_EQ(fromFile->limiterPasses, fromMemory->limiterPasses) << k;
        EXPECT_EQ(fromFile->loudnessCorrections, fromMemory->loudnessCorrections) << k;
        EXPECT_EQ(fromFile->protectionAppliedDB, fromMemory->protectionAppliedDB) << k;
        EXPECT_EQ(fromFile->after.integratedLUFS, fromMemory->after.integratedLUFS) << k;
        const auto a = readWithSndfile(dir_ / ("memory" + std::to_string(k) + ".wav"));
        const auto b = readWithSndfile(dir_ / ("file" + std::to_string(k) + ".wav"));
        ASSERT_EQ(a.channels.size(), c.source->size());
        EXPECT_TRUE(a.channels == b.channels) << k;
        if (k == 0) {
            EXPECT_GT(fromFile->loudnessCorrections + fromFile->limiterPasses, 1) << "nothing was made twice";
        } else if (k == 2) {
            EXPECT_GT(fromFile->protectionAppliedDB, 0.0) << "the protection never came in";
        }
    }
}

// Every stage of the chain on, the loudness range narrowed over several refinement passes: the
// master rendered again from the file for each pass against the whole programme rendered in
// memory first and then conformed. The same samples within float rounding, and the same
// figures.
TEST_F(StreamedMaster, TheFullChainRenderedFromTheFileEqualsTheChainRenderedInMemory) {
    constexpr double fs = 44100;
    const std::vector<double> weights{1, 1};
    Channels source = programme(Material::dense, fs, 150.0, 21);
    // Quiet and loud stretches, so the loudness-range stage has something to narrow.
    for (auto& ch : source)
        for (std::size_t i = 0; i < ch.size(); ++i) ch[i] *= (i / std::size_t(fs * 20)) % 2 ? 1.0f : 0.18f;
    const fs::path sourceFile = dir_ / "source.wav";
    writeFloatWav(sourceFile, source, int(fs));

    MasterParams p;
    p.msOn = true, p.midGain = 1.0, p.sideGain = 2.5;
    p.eqOn = true, p.hpfOn = true, p.lsGain = 2.0, p.b1Gain = -3.0, p.hsGain = 1.5;
    p.compOn = true, p.compThreshold = -24.0, p.compRatio = 3.0;
    p.teqOn = true, p.tHsGain = 2.0, p.tMidGain = -1.0;
    p.lraOn = true, p.lraIterative = true, p.lraTarget = 1.0;

    DeliveryRequest request;
    request.targetLUFS = -16.0;
    request.ceilingDB = -1.0;
    request.write.depth = BitDepth::float32;
    request.write.sourcePath = sourceFile;

    // The refinement really ran: more than one envelope pass.
    const auto plan = planRender(HeldProgramme(source, fs), p, weights);
    ASSERT_TRUE(plan);
    const auto& steps = plan->lraSteps;
    EXPECT_GE(std::count_if(steps.begin(), steps.end(), [](const LraStep& s) { return !s.isGain; }), 2);

    const auto rendered = renderMaster(source, p, fs, weights);
    DeliveryRequest conformOnly = request;
    conformOnly.params.msOn = conformOnly.params.eqOn = conformOnly.params.compOn = false;
    conformOnly.params.teqOn = conformOnly.params.lraOn = false;
    conformOnly.params.autoProtectComp = p.autoProtectComp;
    conformOnly.write.destination = dir_ / "memory.wav";
    const auto fromMemory = deliverMaster(rendered.channels, fs, weights, conformOnly);
    ASSERT_TRUE(fromMemory) << fromMemory.error().message();

    request.params = p;
    request.write.destination = dir_ / "file.wav";
    const auto fromFile =
        deliverMaster(FileProgramme(sourceFile, false, 2, source.front().size(), fs), weights, request);
    ASSERT_TRUE(fromFile) << fromFile.error().message();

    EXPECT_NEAR(fromFile->maxGR, rendered.maxGR, 1e-9);
    EXPECT_GT(fromFile->maxGR, 1.0);
    EXPECT_NEAR(fromFile->after.integratedLUFS, fromMemory->after.integratedLUFS, 0.001);
    EXPECT_NEAR(*fromFile->after.loudnessRange, *fromMemory->after.loudnessRange, 0.01);
    const auto a = readWithSndfile(dir_ / "memory.wav");
    const auto b = readWithSndfile(dir_ / "file.wav");
    ASSERT_EQ(a.channels.size(), 2u);
    ASSERT_EQ(b.channels.size(), 2u);
    ASSERT_EQ(a.channels[0].size(), b.channels[0].size());
    float worst = 0.0f;
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < a.channels[c].size(); ++i)
            worst = std::max(worst, std::fabs(a.channels[c][i] - b.channels[c][i]));
    EXPECT_LT(worst, 2e-5f);
}

TEST_F(StreamedMaster, ASourceThatNoLongerMatchesItsAnalysisFailsAndTouchesNothing) {
    constexpr double fs = 48000;
    const Channels source = programme(Material::dense, fs, 20.0, 9);
    const fs::path sourceFile = dir_ / "source.wav";
    writeFloatWav(sourceFile, source, int(fs));
    const fs::path destination = dir_ / "master.wav";
    {
        std::ofstream earlier(destination);
        earlier << "an earlier master";
    }
    DeliveryRequest request;
    request.write.destination = destination;
    request.write.sourcePath = sourceFile;
    const std::vector<double> weights{1, 1};
    const std::size_t frames = source[0].size();

    // Analysed longer or shorter than it decodes now, another channel count or rate, and gone.
    const std::vector<FileProgramme> changed{
        FileProgramme(sourceFile, false, 2, frames + 1000, fs),
        FileProgramme(sourceFile, false, 2, frames - 1000, fs),
        FileProgramme(sourceFile, false, 1, frames, fs),
        FileProgramme(sourceFile, false, 2, frames, 44100),
    };
    for (const auto& programme : changed) {
        const auto report = deliverMaster(programme, weights, request);
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().code, LoudnessError::Code::sourceChanged) << report.error().message();
    }
    // Known loudness and peak: the file is first read by the write itself.
    request.sourceIntegratedLUFS = -20.0;
    request.sourceTruePeakDB = -3.0;
    const auto shorter = deliverMaster(FileProgramme(sourceFile, false, 2, frames + 1, fs), weights, request);
    ASSERT_FALSE(shorter);
    EXPECT_EQ(shorter.error().code, LoudnessError::Code::sourceChanged);

    fs::rename(sourceFile, dir_ / "moved.wav");
    const auto gone = deliverMaster(FileProgramme(sourceFile, false, 2, frames, fs), weights, request);
    ASSERT_FALSE(gone);
    EXPECT_NE(gone.error().code, LoudnessError::Code::cannotWrite) << "a read failure named as a disk failure";

    EXPECT_EQ(contents(destination), "an earlier master");
    EXPECT_EQ(folderEntries(dir_).size(), 2u) << "a temporary file was left behind";
}

}  // namespace
}  // namespace velmora
