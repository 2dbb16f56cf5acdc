#pragma once
// Live mastering: the selected file, folded to stereo (streamed from the file by a
// ListeningStream, or held in memory), played in a loop through the real-time part of the chain (pre-gain, five-band equaliser, bus compressor, tonal
// equaliser) while the controls move, and fed to a LiveMeter block by block.
//
//   auto streamer = std::make_shared<OnlineMasteringStreamer>();
//   streamer->init(file.channels, file.sampleRate, deviceRate);   // main thread, stream stopped
//   (or streamer->init(std::make_shared<ListeningStream>(shape, deviceRate, 0, true)) for a file
//   of any length, read as it plays)
//   streamer->update(params, 0.0);
//   meter->init(streamer->renderRate());   // the meter measures what is played, at that rate
//   streamer->setLiveMeter(meter);
//   backend.start(*streamer);           // the render thread calls render() from here on
//   streamer->update(changed, 0.0);     // main thread, heard from the next block
//   streamer->seek(0.5);
//   backend.stop();                     // before the streamer or the meter is dropped
//
// Threads: the render thread is the only one to call render(); every other call is made on the
// main thread. Values cross through lock-free exchanges, so render() never waits: parameters
// through a triple buffer (one whole coefficient set per block), the seek request and the
// playhead as atomics. The filter memories and the compressor envelope belong to the render
// thread; only a seek, applied by render() at the start of its next block, resets them.
//
// A/B: the source, as it enters the chain, can be heard in place of the chain's output, at a
// gain that brings it to the output's loudness (setSourceHeard, setSourceGain: two atomics).
// The chain runs on while the source is heard, so that switching back meets it in its present
// state, and the render crosses from one side to the other over crossfadeSeconds.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "audio/ListeningStream.h"
#include "audio/LoudnessError.h"
#include "audio/PlanarAudio.h"
#include "audio/RenderSource.h"
#include "audio/StereoFold.h"
#include "mastering/Compressors.h"
#include "mastering/LiveMeter.h"
#include "mastering/MasterParams.h"
#include "mastering/TripleBuffer.h"
#include "measurement/Biquad.h"
#include "measurement/Kernels.h"

namespace velmora {

class OnlineMasteringStreamer final : public RenderSource {
public:
    // Five equaliser bands and three tonal bands at the most.
    static constexpr std::size_t maxFilters = 8;

    // [main thread, no render running] Folds the file's planar channels to stereo (mono on both
    // sides; centre and first surround pair mixed in at 0.707; LFE and every channel after the
    // sixth dropped) and, when `renderRate` differs from `fileRate` (both Hz), converts the pair
    // once to `renderRate`: from then on everything runs and counts at `renderRate`. Empties
    // the filter memories, the envelope, the playhead, the pending seek, the coefficients (no
    // filter, no compressor, unity gain) and the meter link. Allocates; nothing when it worked,
    // else rateConversion with an empty source.
    std::optional<LoudnessError> init(const Channels& channels, double fileRate, double renderRate);
    // The same from a pair already folded.
    std::optional<LoudnessError> initFolded(StereoSamples stereo, double fileRate, double renderRate);
    // [main thread, no render running] The same from a stream that folds and converts as it reads:
    // what it delivers goes through the chain, its silence while it refills does not. Its seek,
    // loop, position and end are the streamer's.
    void init(std::shared_ptr<ListeningStream> stream);
    const std::shared_ptr<ListeningStream>& stream() const { return stream_; }

    // [main thread] The chain's real-time stages from `params` (equaliser bands whose gain
    // counts, pre-compressor bands first, all under eqOn; the bus compressor under compOn) and a
    // pre-gain in dB, used from the next block on. Filter memories are kept. Allocates.
    void update(const MasterParams& params, double preGainDB);

    // [render thread] The next `frames` frames of both channels; the block that reaches the end
    // of the file is completed with silence and the next one starts again at frame 0.
    void render(std::size_t frames, float* left, float* right) noexcept override;

    // [main thread] Asks for a jump to `fraction` (clamped to 0 … 1) of the file, taken at the
    // start of the next block together with a reset of the filter memories and the envelope.
    void seek(double fraction) noexcept;

    // [any thread] On (the default), the file loops as live mastering plays it; off, it plays
    // to its end once and then renders silence, as plain playback does, until a seek.
    void setLooping(bool on) noexcept;
    // [any thread] Played to the end, not looping, and no seek pending.
    bool atEnd() const noexcept;

    // [any thread] The playhead as a fraction of the file, 0 when it is empty.
    double position() const noexcept;
    std::int64_t totalFrames() const noexcept { return totalFrames_; }  // at the render rate
    double renderRate() const noexcept { return renderRate_; }          // Hz

    // [any thread] Which side the render plays from the next block on: the source (true) or the
    // chain's output (false, the default). The change is an equal-gain crossfade of
    // crossfadeSeconds inside the render: no step, no gap.
    void setSourceHeard(bool on) noexcept { sourceHeard_.store(on, std::memory_order_relaxed); }
    bool sourceHeard() const noexcept { return sourceHeard_.load(std::memory_order_relaxed); }
    // [any thread] The gain of the source side, dB; a new value glides over the crossfade's time.
    void setSourceGain(double dB) noexcept;
    static constexpr double crossfadeSeconds = 0.025;

    // [one thread, while no render runs on this streamer] The chain over a block the caller
    // hands in, in place, exactly as render() runs it, with no meter: for measuring off the
    // real-time thread what the live chain does to a file.
    void processBlock(float* left, float* right, std::size_t n) noexcept;

    // [main thread, before the stream starts] The meter each rendered block goes to, or none.
    // The streamer does not keep it alive: its owner holds it, and must stop the stream before
    // dropping or replacing it, because the render thread uses it without taking a reference
    // (setting none while playing stops the metering from the next block, but the old meter may
    // still be in use until the stream stops).
    void setLiveMeter(std::shared_ptr<LiveMeter> meter) noexcept;

private:
    struct Coefs {
        bool enabled = false;  // eqOn: when false no filter runs
        std::array<Biquad, maxFilters> filters{};
        std::size_t filterCount = 0;
        std::size_t numPreCompFilters = 0;  // leading filters that run before the compressor
        float preGainLin = 1.0f;
        bool compOn = false;
        CompressorSettings comp{};
    };
    using FilterStates = std::array<kernels::SectionState, maxFilters>;
    // [render thread] The chain over the first n frames of the block, in place.
    void process(const Coefs& coefs, float* left, float* right, std::size_t n) noexcept;
    // [render thread] The chain, then the side to hear (crossing over when it changed), then the
    // meter, over the first n frames of the block, in place.
    void play(const Coefs& coefs, float* left, float* right, std::size_t n) noexcept;
    // Frames of the source kept aside while the chain runs over them, at a time.
    static constexpr std::size_t sideFrames = 1024;

    std::vector<float> sourceL_, sourceR_;
    std::shared_ptr<ListeningStream> stream_;  // when set, the source instead of sourceL_/R_
    std::int64_t totalFrames_ = 0;
    double renderRate_ = 48000;  // Hz

    TripleBuffer<Coefs> coefs_;
    std::atomic<std::int64_t> playhead_{0};     // the next frame to render
    std::atomic<std::int64_t> pendingSeek_{-1};  // a frame, or -1 when none
    std::atomic<LiveMeter*> meter_{nullptr};
    std::atomic<bool> looping_{true};
    std::atomic<bool> sourceHeard_{false};
    std::atomic<float> sourceGain_{1.0f};  // linear

    // Render thread only.
    FilterStates stateL_{}, stateR_{};
    double envDB_ = detectorRestDB;
    float sourceWeight_ = 0;       // 0: the chain's output alone, 1: the source alone
    double appliedSourceGain_ = 1;  // gliding towards sourceGain_
    float weightStep_ = 1;          // per frame, from renderRate_
    double gainGlide_ = 1;          // one-pole coefficient per frame
    std::array<float, sideFrames> dryL_{}, dryR_{};
};

}  // namespace velmora
