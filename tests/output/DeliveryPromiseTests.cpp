// Masters for every norm, read back from disk: at or under the ceiling on the 4× meter and on
// a band-limited reading, and on the target within ±0.1 LU, at the source rate and converted,
// in every depth.
#include <cmath>
#include <cstdio>

#include "audio/AudioFileReader.h"
#include "measurement/BandLimitedPeak.h"
#include "norms/Presets.h"
#include "output/MasterDelivery.h"
#include "output/OutputTestSupport.h"
#include "support/ProgrammeMaterial.h"

namespace velmora {
namespace {

using namespace test;

const std::vector<double> stereo{1.0, 1.0};

struct Reading {
    double integratedLUFS, truePeakDB, bandLimitedDB;
};

Reading readBack(const std::filesystem::path& file, double expectedRate) {
    auto decoded = readAudioFile(file);
    if (!decoded) {
        ADD_FAILURE() << file << ": " << decoded.error().message();
        return {NAN, NAN, NAN};
    }
    EXPECT_EQ(decoded->sampleRate, expectedRate);
    double fine = 1e-12;
    for (const auto& ch : decoded->channels) fine = std::max(fine, bandLimitedPeak(ch));
    const LoudnessResult r = LoudnessEngine::measure(decoded->channels, stereo, decoded->sampleRate);
    return {r.integratedLUFS, r.truePeakDB, 20 * std::log10(fine)};
}

struct Output {
    double rate;  // 0: the source's
    BitDepth depth;
};

class EveryNorm : public ::testing::TestWithParam<int> {};

TEST_P(EveryNorm, WrittenMasterKeepsTheCeilingOnBothReadingsAndLandsOnTheTarget) {
    const Preset& norm = presetAt(GetParam());
    ScratchDir dir;
    for (double sourceRate : {44100.0, 48000.0}) {
        const Channels source = programme(Material::dense, sourceRate, 5.0, std::uint32_t(GetParam()));
        for (Output out : {Output{0, BitDepth::int24}, {0, BitDepth::int16}, {0, BitDepth::float32},
                           {48000, BitDepth::int16}, {48000, BitDepth::int24}, {48000, BitDepth::float32},
                           {96000, BitDepth::int16}, {96000, BitDepth::int24}, {96000, BitDepth::float32}}) {
            SCOPED_TRACE(testing::Message() << sourceRate << " Hz → " << out.rate << " Hz, " << bits(out.depth) << " bits");
            DeliveryRequest request;
            request.targetLUFS = norm.lufs;
            request.ceilingDB = norm.ceiling;
            request.write = {.destination = dir / "m.wav", .depth = out.depth, .outputRate = out.rate};
            const auto report = deliverMaster(source, sourceRate, stereo, request);
            ASSERT_TRUE(report) << report.error().message();
            EXPECT_FALSE(report->targetMissedLUFS);
            const Reading r = readBack(dir / "m.wav", out.rate > 0 ? out.rate : sourceRate);
            EXPECT_LE(r.truePeakDB, norm.ceiling);
            EXPECT_LE(r.bandLimitedDB, norm.ceiling);
            EXPECT_NEAR(r.integratedLUFS, norm.lufs, 0.1);
            // What the report says is what the file holds.
            EXPECT_NEAR(report->after.integratedLUFS, r.integratedLUFS, 1e-6);
            EXPECT_NEAR(report->writtenTruePeakDB, r.truePeakDB, 1e-6);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Delivery, EveryNorm, ::testing::Range(0, 21),
                         [](const auto& info) { return presetTag(info.param); });

// Material that defeats a sample-peak limiter, at the loud norm where the limiter works hardest.
TEST(Delivery, HardMaterialKeepsTheCeilingAtTheLoudNormWithoutAnyRefusal) {
    ScratchDir dir;
    for (Material kind : {Material::clipped, Material::fs4})
        for (double sourceRate : {44100.0, 48000.0})
            for (Output out : {Output{0, BitDepth::int16}, {96000, BitDepth::float32}}) {
                SCOPED_TRACE(name(kind) + " " + std::to_string(sourceRate) + " → " + std::to_string(out.rate));
                DeliveryRequest request;
                request.targetLUFS = -9.0;
                request.ceilingDB = -1.0;
                request.write = {.destination = dir / "m.wav", .depth = out.depth, .outputRate = out.rate};
                const auto report = deliverMaster(programme(kind, sourceRate, 4.0), sourceRate, stereo, request);
                ASSERT_TRUE(report) << report.error().message();
                const Reading r = readBack(dir / "m.wav", out.rate > 0 ? out.rate : sourceRate);
                EXPECT_LE(r.truePeakDB, -1.0);
                EXPECT_LE(r.bandLimitedDB, -1.0);
                if (!report->targetMissedLUFS) {
                    EXPECT_NEAR(r.integratedLUFS, -9.0, 0.1);
                }
            }
}

// A lone crest over a whisper: −9 LUFS would take 30 dB of limiting. The loudest master the
// ceiling allows is written, and the report says the target was missed and by how much.
TEST(Delivery, UnreachableTargetWritesTheLoudestMasterTheCeilingAllowsAndSaysSo) {
    ScratchDir dir;
    Channels source = programme(Material::dense, 48000, 6.0);
    for (auto& ch : source)
        for (auto& v : ch) v *= 0.01f;
    source[0][100000] = source[1][100000] = 0.9f;
    DeliveryRequest request;
    request.targetLUFS = -9.0;
    request.ceilingDB = -1.0;
    request.write = {.destination = dir / "m.wav"};
    const auto report = deliverMaster(source, 48000, stereo, request);
    ASSERT_TRUE(report) << report.error().message();
    ASSERT_TRUE(report->targetMissedLUFS);
    const Reading r = readBack(dir / "m.wav", 48000);
    EXPECT_NEAR(*report->targetMissedLUFS, r.integratedLUFS, 1e-6);
    EXPECT_LT(r.integratedLUFS, -9.5);
    EXPECT_LE(r.truePeakDB, -1.0);
    char text[96];
    std::snprintf(text, sizeof text, "Cible non atteinte : %.1f LUFS (plafond True Peak)", *report->targetMissedLUFS);
    EXPECT_EQ(targetMissedText(*report->targetMissedLUFS), text);
}

}  // namespace
}  // namespace velmora
