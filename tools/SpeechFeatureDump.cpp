// Writes the speech detector's features of an audio file, one row per 30 ms frame, for
// tools/train_speech_detector.py: each row is SpeechFeatures::count little-endian 32-bit floats
// followed by 1.0 when the stretch is audible, else 0.0.
//
//   velmora-speech-features input.wav output.f32
#include <cstdio>
#include <vector>

#include "audio/AudioFileReader.h"
#include "audio/ChannelLayout.h"
#include "audio/StreamResampler.h"
#include "measurement/SpeechFeatures.h"
#include "measurement/VoiceDetection.h"

using namespace velmora;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: velmora-speech-features <audio file> <output.f32>\n");
        return 2;
    }
    auto audio = loadAudio(argv[1], isVideoPath(argv[1]));
    if (!audio) {
        std::fprintf(stderr, "%s: %s\n", argv[1], audio.error().message().c_str());
        return 1;
    }
    const auto weights = resolveChannelWeights(int(audio->channelCount()), ChannelLayout::autoDetect,
                                               ChannelOrder::smpte, audio->declaredPositions);
    const auto mono = monoForDetection(audio->channels, weights);
    std::FILE* out = std::fopen(argv[2], "wb");
    if (!out) {
        std::perror(argv[2]);
        return 1;
    }
    constexpr std::size_t slice = 4096;
    StreamResampler resampler(audio->sampleRate, SpeechFeatures::sampleRate, slice, ResampleQuality::low);
    SpeechFeatures features;
    std::vector<float> row(SpeechFeatures::count + 1);
    const auto write = [&](std::size_t, const float* f, bool audible) {
        std::copy(f, f + SpeechFeatures::count, row.begin());
        row.back() = audible ? 1.0f : 0.0f;
        std::fwrite(row.data(), sizeof(float), row.size(), out);
    };
    for (std::size_t at = 0; at < mono.size(); at += slice)
        features.push(resampler.process({mono.data() + at, std::min(slice, mono.size() - at)}), write);
    features.push(resampler.flush(), write);
    features.finish(write);
    return std::fclose(out) == 0 ? 0 : 1;
}
