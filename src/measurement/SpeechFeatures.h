#pragma once
// What tells speech from music, effects and noise, measured on 30 ms frames of a 16 kHz mono
// signal and summarised over about one second around each frame: the cepstral shape and how
// much it moves, the syllabic (3-8 Hz) modulation of the speech band, the share of quiet frames,
// spectral flux, and voicing with its pitch movement. Every feature is independent of the level.
//
// The same code computes the features the speech classifier was trained on (tools/) and the
// ones it judges, so the two never drift apart.
//
//   SpeechFeatures features;                     // allocates its tables and the transform
//   features.push(samples16k, [](std::size_t frame, const float* f) { ... });
//   features.finish(sink);                       // the last frames, on a shorter context
#include <array>
#include <cstddef>
#include <span>
#include <vector>

struct AVTXContext;

namespace velmora {

class SpeechFeatures {
public:
    static constexpr double sampleRate = 16000.0;
    static constexpr std::size_t frameSamples = 480;  // 30 ms: the detector's decision grid
    static constexpr std::size_t fftSize = 512;
    static constexpr std::size_t melBands = 24;
    static constexpr std::size_t cepstra = 12;    // c1 … c12
    static constexpr std::size_t contextHalf = 16;  // frames each side: 990 ms in all
    static constexpr std::size_t count = 2 * cepstra + 15;
    // The speech band's level (dBFS) under which a stretch is silence whatever its shape.
    static constexpr float silenceDB = -70.0f;

    SpeechFeatures();
    ~SpeechFeatures();
    SpeechFeatures(const SpeechFeatures&) = delete;
    SpeechFeatures& operator=(const SpeechFeatures&) = delete;

    // Consumes 16 kHz samples; calls sink(frame, features, audible) for every frame whose
    // context is complete, in frame order. `features` holds `count` values and is reused.
    // Never allocates.
    template <class Sink>
    void push(std::span<const float> x, Sink&& sink) {
        std::size_t i = 0;
        while (i < x.size()) {
            const std::size_t take = std::min(frameSamples - filled_, x.size() - i);
            for (std::size_t k = 0; k < take; ++k) window_[overlap + filled_ + k] = x[i + k];
            filled_ += take;
            i += take;
            if (filled_ < frameSamples) break;
            completeFrame();
            if (computed_ > contextHalf) deliver(computed_ - contextHalf - 1, sink);
        }
    }
    // The frames still waiting for their right-hand context; a partial last frame is dropped.
    template <class Sink>
    void finish(Sink&& sink) {
        const std::size_t first = computed_ > contextHalf ? computed_ - contextHalf : 0;
        for (std::size_t t = first; t < computed_; ++t) deliver(t, sink);
    }
    void reset();

private:
    static constexpr std::size_t overlap = fftSize - frameSamples;
    static constexpr std::size_t ringSize = 64;  // > 2 · contextHalf + 1

    struct Frame {
        std::array<float, cepstra> cepstrum{};
        float speechDB = 0, totalDB = 0, flux = 0, voicing = 0, log2Pitch = 0, centroid = 0;
        double speechPower = 0;  // the speech band's mean square, summed over the context
    };

    template <class Sink>
    void deliver(std::size_t t, Sink& sink) {
        const bool audible = summarise(t);
        sink(t, out_.data(), audible);
    }
    void completeFrame();
    // Fills out_ for frame t from the frames around it; false when the stretch is silence.
    bool summarise(std::size_t t);

    AVTXContext* forward_ = nullptr;
    AVTXContext* inverse_ = nullptr;
    void (*forwardFn_)(AVTXContext*, void*, void*, std::ptrdiff_t) = nullptr;
    void (*inverseFn_)(AVTXContext*, void*, void*, std::ptrdiff_t) = nullptr;

    std::array<float, fftSize> window_{};  // the last 512 samples
    std::size_t filled_ = 0;                // new samples in the current frame
    std::size_t computed_ = 0;              // frames measured so far
    std::array<Frame, ringSize> ring_{};
    std::array<float, melBands> previousMel_{};

    std::vector<float> hann_, power_;
    // The transform's own vector code needs its buffers on 64-byte boundaries: twice as fast
    // as its unaligned path, which the detector would otherwise spend a third of its time in.
    alignas(64) std::array<float, fftSize + 2> frame_{}, autocorrelation_{};
    alignas(64) std::array<float, fftSize + 2> spectrum_{};  // interleaved complex bins
    std::vector<std::size_t> melStart_, melEnd_;
    std::vector<float> melWeights_;  // per band, bins melStart_ … melEnd_ − 1
    std::vector<float> dct_;         // cepstra × melBands
    static constexpr std::size_t modulationBins = 16;
    // Per context frame j, the 16 bins' cos and sin (row j).
    std::array<float, modulationBins * (2 * contextHalf + 1)> modulationCos_{}, modulationSin_{};
    std::array<float, count> out_{};
};

}  // namespace velmora
