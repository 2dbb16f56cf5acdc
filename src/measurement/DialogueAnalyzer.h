#pragma once
// Dialogue-gated measurement of a programme fed in pieces: the standard measurement and the
// speech detector follow the file as it decodes, so only one speech flag per 30 ms is kept,
// never the programme.
//
//   LoudnessAnalyzer loudness(progress, false);
//   DialogueAnalyzer dialogue(loudness, [&](const PlanarAudio& a) { return weightsOf(a); });
//   readAudioFile(path, &dialogue);
//   auto result = dialogue.result(weights);
#include <array>
#include <atomic>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "measurement/SpeechDetector.h"
#include "measurement/StreamingMeter.h"

namespace velmora {

class DialogueAnalyzer final : public DecodeListener {
public:
    using WeightsFor = std::function<std::vector<double>(const PlanarAudio&)>;
    // `weightsFor` gives the channel weights of the fold-down once the format is known.
    DialogueAnalyzer(LoudnessAnalyzer& loudness, WeightsFor weightsFor);
    ~DialogueAnalyzer() override;

    void started(const PlanarAudio& audio, std::size_t expectedFrames) override;
    void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) override;
    void quiesce() override;
    bool keepsSamples() const override { return loudness_.keepsSamples(); }

    // Once decoding is over: the measurement with the dialogue loudness, the programme loudness
    // beside it, the share of speech and its short-term range.
    LoudnessResult result(std::span<const double> weights);
    const std::vector<bool>& speechFrames() const { return speech_.frames(); }

private:
    // Folds frames [begin, end) and listens to them, on the detector's own thread.
    void listen(const PlanarAudio& audio, std::size_t begin, std::size_t end);
    void work();

    LoudnessAnalyzer& loudness_;
    WeightsFor weightsFor_;
    std::vector<double> foldWeights_;
    std::vector<float> mono_;
    SpeechStream speech_;
    // The detector works beside the decoder and the meters, not after them, and may fall a few
    // slices behind: the decoder only waits for it when its window turns over (quiesce). The
    // hand-over takes no lock, so the decoder never waits on a detector that is not running.
    std::thread worker_;
    std::counting_semaphore<> queued_{0};
    static constexpr std::size_t ringSize = 64;  // > the slices of one turn of the window
    std::array<std::pair<std::size_t, std::size_t>, ringSize> ring_{};
    std::size_t pushed_ = 0;         // the decoder's count
    std::atomic<std::size_t> done_{0};  // slices listened to, from the detector
    const PlanarAudio* audio_ = nullptr;
    std::atomic<bool> stopping_{false};
    bool finished_ = false;
};

// "Part de dialogue : 42 %": the share of the programme's gated blocks that carry speech.
std::string dialogueShareText(double share);

// Turns a standard measurement into the dialogue one from the speech decisions of 30 ms frames.
void applyDialogueGating(LoudnessResult& result, const BlockEnergies& momentary, const BlockEnergies& shortTerm,
                         std::span<const double> weights, const std::vector<bool>& speechFrames);

}  // namespace velmora
