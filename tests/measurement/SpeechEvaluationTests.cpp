// The speech detector judged on mixes of real recordings it was never trained on (the speakers,
// tracks and effects the training script keeps aside): speech alone, speech over music beds,
// music of several kinds, effects and noise, and documentary-style edits whose music swells
// between the lines. The truth comes from how each mix is built. The energy detector's scores
// on the same material are printed beside, for comparison.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "audio/AudioFileReader.h"
#include "audio/Resample.h"
#include "measurement/DialogueAnalyzer.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"
#include "measurement/SpeechDetector.h"
#include "measurement/VoiceDetection.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using namespace signals;

const std::string speechDir = "/usr/share/pocketsphinx/test/data/";
const std::string wesnoth = "/usr/share/games/wesnoth/1.16/data/core/music/";
const std::string tuxtype = "/usr/share/tuxtype/sounds/";

// Mono at `fs`, from any file FFmpeg reads, or from headerless 16 kHz 16-bit speech.
std::vector<float> load(const std::string& path, double fs) {
    std::vector<float> x;
    double rate = 16000.0;
    if (path.ends_with(".raw")) {
        std::ifstream in(path, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
            x.push_back(float(std::int16_t(std::uint8_t(bytes[i]) | (std::uint8_t(bytes[i + 1]) << 8))) / 32768.0f);
    } else {
        auto audio = readAudioFile(path);
        if (!audio) return {};
        rate = audio->sampleRate;
        x.assign(audio->frameCount(), 0.0f);
        for (const auto& ch : audio->channels)
            for (std::size_t n = 0; n < x.size(); ++n) x[n] += ch[n] / float(audio->channelCount());
    }
    return rate == fs ? x : resample(x, rate, fs, ResampleQuality::veryHigh);
}

// From the first to the last 30 ms within 25 dB of the loudest: where the talker talks, over the
// room noise of the quieter recordings.
std::vector<float> trimmed(const std::vector<float>& x, double fs) {
    const auto F = std::size_t(fs * 0.03);
    std::vector<double> level;
    for (std::size_t k = 0; (k + 1) * F <= x.size(); ++k) {
        double s = 0;
        for (std::size_t i = 0; i < F; ++i) s += double(x[k * F + i]) * x[k * F + i];
        level.push_back(10 * std::log10(s / double(F) + 1e-12));
    }
    if (level.empty()) return x;
    const double top = *std::max_element(level.begin(), level.end());
    std::size_t first = 0, last = level.size() - 1;
    while (level[first] < top - 25) ++first;
    while (level[last] < top - 25) --last;
    return {x.begin() + long(first * F), x.begin() + long((last + 1) * F)};
}

double loudnessOf(const std::vector<float>& x, double fs) {
    return LoudnessEngine::measure({x}, mono, fs).integratedLUFS;
}

void setLoudness(std::vector<float>& x, double fs, double lufs) {
    const float g = float(dbToAmplitude(lufs - loudnessOf(x, fs)));
    for (auto& v : x) v *= g;
}

struct Sources {
    double fs;
    std::vector<std::vector<float>> speech, music, effects;
    bool ok() const { return speech.size() == 7 && music.size() == 9 && effects.size() >= 10; }
};

const Sources& sources(double fs) {
    static std::vector<std::unique_ptr<Sources>> cache;
    for (const auto& s : cache)
        if (s->fs == fs) return *s;
    auto s = std::make_unique<Sources>();
    s->fs = fs;
    for (const char* name : {"librivox/sense_and_sensibility_01_austen_64kb-0920.wav",
                             "librivox/sense_and_sensibility_01_austen_64kb-0930.wav", "cards/004.wav",
                             "cards/005.wav", "goforward.raw", "numbers.raw", "something.raw"})
        if (auto x = load(speechDir + name, fs); !x.empty()) s->speech.push_back(trimmed(x, fs));
    for (const std::string& path :
         {wesnoth + "battle-epic.ogg", wesnoth + "elvish-theme.ogg", wesnoth + "knalgan_theme.ogg",
          wesnoth + "the_king_is_dead.ogg", wesnoth + "frantic.ogg", wesnoth + "traveling_minstrels.ogg",
          std::string("/usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg"), tuxtype + "chiptune2.ogg",
          tuxtype + "amidst_the_raindrops.ogg"})
        if (auto x = load(path, fs); !x.empty()) s->music.push_back(std::move(x));
    for (const char* name : {"alarm", "bite", "buzz", "explosion", "laser", "pop", "splat", "tock", "run",
                             "shieldsdown", "harp", "lose", "win"})
        if (auto x = load(tuxtype + name + ".wav", fs); !x.empty()) s->effects.push_back(std::move(x));
    cache.push_back(std::move(s));
    return *cache.back();
}

// A programme and, per sample, whether someone is speaking.
struct Mix {
    std::vector<float> x;
    std::vector<bool> speaking;
};

// A programme without speech.
Mix alone(std::vector<float> x) {
    std::vector<bool> none(x.size(), false);
    return {std::move(x), std::move(none)};
}

// The held-out voices in turn, speech at -23 LUFS, separated by pauses of `gapSeconds`.
Mix voices(const Sources& s, double seconds, double gapSeconds, std::size_t firstVoice = 0) {
    Mix m;
    const std::size_t n = framesFor(seconds, s.fs);
    m.x.assign(n, 0.0f);
    m.speaking.assign(n, false);
    std::size_t at = framesFor(1.0, s.fs), v = firstVoice;
    while (at < n) {
        auto clip = s.speech[v++ % s.speech.size()];
        setLoudness(clip, s.fs, -23.0);
        for (std::size_t i = 0; i < clip.size() && at + i < n; ++i) m.x[at + i] = clip[i], m.speaking[at + i] = true;
        at += clip.size() + framesFor(gapSeconds, s.fs);
    }
    return m;
}

// `seconds` of one track from a third of the way in, at `lufs`.
std::vector<float> excerpt(const std::vector<float>& track, std::size_t n, double fs, double lufs) {
    std::vector<float> x(n);
    const std::size_t start = track.size() > n ? (track.size() - n) / 3 : 0;
    for (std::size_t i = 0; i < n; ++i) x[i] = track[(start + i) % track.size()];
    setLoudness(x, fs, lufs);
    return x;
}

// Speech or not, for each 400 ms block (100 ms hop): half of it or more spoken.
std::vector<bool> truthBlocks(const Mix& m, double fs) {
    const std::size_t N = LoudnessEngine::momentaryBlockFrames(fs), H = LoudnessEngine::hopFrames(fs);
    std::vector<bool> out;
    for (std::size_t start = 0; start + N <= m.x.size(); start += H)
        out.push_back(2 * std::count(m.speaking.begin() + long(start), m.speaking.begin() + long(start + N), true) >=
                      long(N));
    return out;
}

std::vector<bool> detectedBlocks(const VoiceActivityDetector& d, const Mix& m, double fs) {
    return speechBlockFlags(d.detect(m.x, fs), truthBlocks(m, fs).size());
}

double agreement(const std::vector<bool>& a, const std::vector<bool>& b) {
    std::size_t same = 0;
    for (std::size_t j = 0; j < a.size(); ++j) same += a[j] == b[j] ? 1 : 0;
    return a.empty() ? 0.0 : double(same) / double(a.size());
}

double speechShare(const std::vector<bool>& flags) {
    return flags.empty() ? 0.0 : double(std::count(flags.begin(), flags.end(), true)) / double(flags.size());
}

// The BS.1770 loudness of the mix over the spoken blocks only.
double truthLoudness(const Mix& m, double fs) {
    const auto blocks = BlockEnergies{
        LoudnessEngine::blockMeanSquares(LoudnessEngine::kWeightChannels({m.x}, fs).front(),
                                         LoudnessEngine::momentaryBlockFrames(fs), LoudnessEngine::hopFrames(fs))};
    return LoudnessEngine::maskedIntegratedLoudness(blocks, mono, truthBlocks(m, fs));
}

// Narration over a music bed ducked `duckDB` under it, swelling to `swellLUFS` between lines.
Mix documentary(const Sources& s, std::size_t track, double duckDB, double swellLUFS, std::size_t firstVoice) {
    Mix m = voices(s, 60.0, 3.0, firstVoice);
    const auto bed = excerpt(s.music[track], m.x.size(), s.fs, swellLUFS);
    // The duck follows the voice with half a second of lead and lag, faded over 250 ms.
    const std::size_t lead = framesFor(0.5, s.fs), fade = framesFor(0.25, s.fs);
    std::vector<float> duck(m.x.size(), 0.0f);
    for (std::size_t n = 0; n < m.x.size(); ++n)
        if (m.speaking[n])
            for (std::size_t k = n > lead ? n - lead : 0; k < std::min(m.x.size(), n + lead); ++k) duck[k] = 1.0f;
    float g = 0.0f;
    const float step = 1.0f / float(fade);
    const float ducked = float(dbToAmplitude(-duckDB + (-23.0 - swellLUFS)));
    for (std::size_t n = 0; n < m.x.size(); ++n) {
        g = duck[n] > g ? std::min(duck[n], g + step) : std::max(duck[n], g - step);
        m.x[n] += bed[n] * (1.0f - g + g * ducked);
    }
    return m;
}

class SpeechEvaluation : public ::testing::Test {
protected:
    void SetUp() override {
        if (!sources(fs48).ok()) GTEST_SKIP() << "recordings missing: run scripts/setup-deps";
    }
    const Sources& s = sources(fs48);
    const SpeechDetector speech;
    const EnergyVAD energy;
};

TEST_F(SpeechEvaluation, SpeechOverMusicBedsIsFoundBlockByBlock) {
    for (const double bedDB : {10.0, 15.0, 20.0}) {
        std::vector<bool> truth, found, foundEnergy;
        for (std::size_t track = 0; track < s.music.size(); ++track) {
            Mix m = voices(s, 40.0, 2.0, track);
            const auto bed = excerpt(s.music[track], m.x.size(), s.fs, -23.0 - bedDB);
            for (std::size_t n = 0; n < m.x.size(); ++n) m.x[n] += bed[n];
            const auto t = truthBlocks(m, s.fs), d = detectedBlocks(speech, m, s.fs), e = detectedBlocks(energy, m, s.fs);
            truth.insert(truth.end(), t.begin(), t.end());
            found.insert(found.end(), d.begin(), d.end());
            foundEnergy.insert(foundEnergy.end(), e.begin(), e.end());
        }
        std::printf("speech over music %.0f dB under: blocks right %.1f %% (energy detector %.1f %%)\n", bedDB,
                    100 * agreement(truth, found), 100 * agreement(truth, foundEnergy));
        EXPECT_GE(agreement(truth, found), 0.90) << "bed " << bedDB << " dB under";
    }
}

TEST_F(SpeechEvaluation, MusicEffectsAndNoiseAloneAreNotSpeech) {
    std::vector<bool> music, musicEnergy;
    for (std::size_t track = 0; track < s.music.size(); ++track) {
        const Mix m = alone(excerpt(s.music[track], framesFor(40.0, s.fs), s.fs, -23.0));
        const auto d = detectedBlocks(speech, m, s.fs), e = detectedBlocks(energy, m, s.fs);
        std::printf("  music %zu: %.1f %% of blocks called speech\n", track, 100 * speechShare(d));
        music.insert(music.end(), d.begin(), d.end());
        musicEnergy.insert(musicEnergy.end(), e.begin(), e.end());
    }
    std::printf("music alone: %.1f %% of blocks called speech (energy detector %.1f %%)\n", 100 * speechShare(music),
                100 * speechShare(musicEnergy));
    EXPECT_LE(speechShare(music), 0.05);

    // Effects one after another over a faint room tone, then noises of three colours.
    std::vector<bool> effects, effectsEnergy;
    Mix fx = alone(std::vector<float>(framesFor(40.0, s.fs), 0.0f));
    std::mt19937 random(3342);
    std::normal_distribution<float> gauss;
    for (auto& v : fx.x) v = 0.0005f * gauss(random);
    for (std::size_t at = 0, k = 0; at < fx.x.size(); ++k) {
        const auto& e = s.effects[k % s.effects.size()];
        for (std::size_t i = 0; i < e.size() && at + i < fx.x.size(); ++i) fx.x[at + i] += 0.5f * e[i];
        at += e.size() + framesFor(0.7, s.fs);
    }
    Mix noises = alone(std::vector<float>(framesFor(30.0, s.fs)));
    PinkishNoise pink(11, s.fs);
    for (std::size_t n = 0; n < noises.x.size(); ++n) {
        const double t = double(n) / s.fs;
        noises.x[n] = float(t < 10 ? 0.05 * gauss(random) : t < 20 ? 0.2 * pink.next() : 0.02 * gauss(random));
    }
    for (const Mix* m : {&fx, &noises}) {
        const auto d = detectedBlocks(speech, *m, s.fs), e = detectedBlocks(energy, *m, s.fs);
        effects.insert(effects.end(), d.begin(), d.end());
        effectsEnergy.insert(effectsEnergy.end(), e.begin(), e.end());
    }
    std::printf("effects and noise alone: %.1f %% of blocks called speech (energy detector %.1f %%)\n",
                100 * speechShare(effects), 100 * speechShare(effectsEnergy));
    EXPECT_LE(speechShare(effects), 0.05);
}

TEST_F(SpeechEvaluation, DocumentaryDialogueLoudnessFollowsTheVoice) {
    double worst = 0, worstEnergy = 0;
    const std::pair<double, double> edits[] = {{15.0, -23.0}, {12.0, -20.0}, {20.0, -26.0}, {18.0, -22.0}};
    for (std::size_t i = 0; i < std::size(edits); ++i) {
        const auto [duckDB, swellLUFS] = edits[i];
        const Mix m = documentary(s, (2 * i + 1) % s.music.size(), duckDB, swellLUFS, i);
        const double truth = truthLoudness(m, s.fs);
        const auto d = LoudnessEngine::measureDialogue({m.x, m.x}, stereo, s.fs, {}, speech);
        const auto e = LoudnessEngine::measureDialogue({m.x, m.x}, stereo, s.fs, {}, energy);
        const double speechTruth = truth + 10 * std::log10(2.0);  // the same signal on both channels
        std::printf("documentary %zu: truth %.2f, dialogue %.2f, energy detector %.2f, programme %.2f LUFS\n", i,
                    speechTruth, d.integratedLUFS, e.integratedLUFS, d.programmeLUFS.value_or(NAN));
        EXPECT_NEAR(d.integratedLUFS, speechTruth, 1.0) << "edit " << i;
        worst = std::max(worst, std::fabs(d.integratedLUFS - speechTruth));
        worstEnergy = std::max(worstEnergy, std::fabs(e.integratedLUFS - speechTruth));
    }
    std::printf("documentaries: worst error %.2f LU (energy detector %.2f LU)\n", worst, worstEnergy);
}

TEST_F(SpeechEvaluation, SpeechAloneMeasuresAsTheProgramme) {
    for (const double gap : {0.4, 1.5}) {
        const Mix m = voices(s, 40.0, gap);
        const auto d = LoudnessEngine::measureDialogue({m.x, m.x}, stereo, s.fs, {}, speech);
        ASSERT_TRUE(d.programmeLUFS);
        std::printf("speech alone, %.1f s pauses: dialogue %.2f, programme %.2f LUFS, share %.0f %%\n", gap,
                    d.integratedLUFS, *d.programmeLUFS, 100 * d.dialogueShare.value_or(NAN));
        EXPECT_NEAR(d.integratedLUFS, *d.programmeLUFS, 0.3) << gap;
        EXPECT_GT(d.dialogueShare.value_or(0), 0.9);
    }
}

// The detector follows the file as it decodes, at the file's rate and channel count, and decides
// as it does on the whole programme at once.
TEST_F(SpeechEvaluation, StreamingAnalysisOfAFileMatchesTheWholeProgramme) {
    const Sources& s441 = sources(44100.0);
    const Mix m = documentary(s441, 1, 15.0, -23.0, 2);
    test::ScratchDir dir;
    const auto path = dir / "documentary.wav";
    test::writeFloatWav(path, {m.x, m.x}, 44100);
    AnalysisSettings settings;
    settings.dialogueGating = true;
    const auto a = analyseFile(path.string(), settings);
    ASSERT_TRUE(a);
    const auto whole = LoudnessEngine::measureDialogue({m.x, m.x}, stereo, 44100.0, {}, speech);
    EXPECT_NEAR(a->result.integratedLUFS, whole.integratedLUFS, 0.05);
    ASSERT_TRUE(a->result.programmeLUFS && a->result.dialogueShare);
    EXPECT_NEAR(*a->result.programmeLUFS, *whole.programmeLUFS, 0.01);
    EXPECT_NEAR(*a->result.dialogueShare, *whole.dialogueShare, 0.02);
    EXPECT_NEAR(a->result.integratedLUFS, truthLoudness(m, 44100.0) + 10 * std::log10(2.0), 1.0);
    EXPECT_FALSE(a->unmeasurableReason());

    // Music alone: no dialogue, the programme still measured, and the reason said.
    test::writeFloatWav(dir / "music.wav", {excerpt(s441.music[0], framesFor(20.0, 44100.0), 44100.0, -20.0)}, 44100);
    const auto music = analyseFile((dir / "music.wav").string(), settings);
    ASSERT_TRUE(music);
    EXPECT_EQ(music->result.integratedLUFS, minusInf);
    ASSERT_TRUE(music->result.programmeLUFS);
    EXPECT_NEAR(*music->result.programmeLUFS, -20.0, 0.1);
    EXPECT_EQ(music->result.dialogueShare, 0.0);
    EXPECT_EQ(music->unmeasurableReason(), std::string("Aucun dialogue détecté"));
}

}  // namespace
}  // namespace velmora
