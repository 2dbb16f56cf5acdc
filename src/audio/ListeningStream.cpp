#include "audio/ListeningStream.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <new>
#include <numeric>

#include "audio/FfmpegDecoder.h"
#include "audio/Resample.h"
#include "audio/StereoFold.h"

namespace velmora {

namespace {

using Code = LoudnessError::Code;
using detail::FfmpegDecoder;

// Below the interface (0), above the batch jobs (10): listening must not stutter while a
// master is written, and must not take the redraws' turn either.
constexpr int decodingNiceness = 5;
// Frames folded, converted and pushed at a time: the first sound after a seek waits for one.
constexpr std::size_t sliceFrames = 8192;
// Output frames a restarted converter runs before the frame asked for, so that the filter has
// forgotten the silence it started from: past this, the output is the whole-file conversion's.
constexpr std::int64_t primingFrames = 16384;
// Frames decoded and dropped before the one asked for in a compressed file.
constexpr std::int64_t compressedPreroll = 8192;
// How often the decoding thread looks again at a full ring.
constexpr auto ringPoll = std::chrono::milliseconds(4);

std::size_t nextPowerOfTwo(std::size_t n) {
    std::size_t p = 1;
    while (p < n) p <<= 1;
    return p;
}

// Counts the frames of a decode that keeps none of them.
class FrameCounter final : public DecodeListener {
public:
    void started(const PlanarAudio&, std::size_t) override {}
    void framesDecoded(const PlanarAudio&, std::size_t begin, std::size_t end) override { frames += end - begin; }
    void quiesce() override {}
    bool keepsSamples() const override { return false; }
    std::size_t frames = 0;
};

}  // namespace

Expected<StreamShape> probeStreamShape(const std::string& path, bool isVideo) {
    {
        // Plain PCM says its length in its header, which its size vouches for.
        FfmpegDecoder decoder(path);
        if (decoder.status() == FfmpegDecoder::Status::ok && decoder.channelCount() <= 16) {
            const auto length = decoder.estimatedLength();
            if (length.bounded && length.frames > 0)
                return StreamShape{path, isVideo, std::size_t(decoder.channelCount()), std::size_t(length.frames),
                                   double(decoder.sampleRate())};
        }
    }
    FrameCounter counter;
    const auto decoded = loadAudio(path, isVideo, &counter);
    if (!decoded) return decoded.error();
    return StreamShape{path, isVideo, decoded->channelCount(), counter.frames, decoded->sampleRate};
}

// The file's frames from any position on: sample-exact where the container's timestamps are
// (PCM), else decoded and dropped from the seek point before it.
class ListeningStream::Decoder {
public:
    explicit Decoder(const StreamShape& shape) : shape_(shape), pointers_(shape.channels) {}

    // The next frames returned start at `frame`.
    std::optional<LoudnessError> position(std::int64_t frame) {
        if (auto failure = open()) return failure;
        skipTo_ = frame;
        if (frame == 0) return std::nullopt;
        if (!originKnown_) {
            // The first frame's timestamp is where the file starts; every later one counts from it.
            auto first = pullFrame();
            if (!first) return first.error();
            if (!*first) return std::nullopt;  // empty: the end is the end
            const auto start = decoder_->frameStart();
            origin_ = start.value_or(0);
            originKnown_ = start.has_value();
            pending_ = true;
        }
        // A compressed frame leans on the ones before it (overlapping transforms, a bit
        // reservoir): decoding starts a little earlier, and what precedes `frame` is dropped.
        const std::int64_t from = decoder_->plainPcm() ? frame : std::max<std::int64_t>(frame - compressedPreroll, 0);
        if (from > 0 && originKnown_ && decoder_->seek(from + origin_)) {
            pending_ = false;
            locating_ = true;
        }
        return std::nullopt;
    }

    // The next frames, in channels(), from at() on: 0 at the end.
    Expected<std::size_t> next() {
        for (;;) {
            if (!pending_) {
                auto pulled = pullFrame();
                if (!pulled) return pulled.error();
                if (!*pulled) return std::size_t{0};
            }
            pending_ = false;
            const std::size_t length = decoder_->frameLength();
            if (locating_) {
                locating_ = false;
                const auto start = decoder_->frameStart();
                if (!start || *start - origin_ > skipTo_) {
                    // No timestamp to go by, or the seek overshot: decode from the start instead.
                    const std::int64_t target = skipTo_;
                    originKnown_ = false;
                    if (auto failure = open()) return *failure;
                    skipTo_ = target;
                    continue;
                }
                at_ = *start - origin_;
            }
            const std::int64_t begin = at_;
            at_ += std::int64_t(length);
            if (at_ <= skipTo_) continue;
            const std::int64_t end = std::min<std::int64_t>(at_, std::int64_t(shape_.frames));
            const std::int64_t from = std::max(begin, skipTo_);
            if (from >= end) return std::size_t{0};  // past the length the analysis found
            for (std::size_t c = 0; c < shape_.channels; ++c) pointers_[c] = buffers_[c].data() + (from - begin);
            returnedAt_ = from;
            return std::size_t(end - from);
        }
    }

    const float* const* channels() const { return pointers_.data(); }
    std::int64_t at() const { return returnedAt_; }

private:
    std::optional<LoudnessError> open() {
        decoder_ = std::make_unique<FfmpegDecoder>(shape_.path);
        if (decoder_->status() != FfmpegDecoder::Status::ok || decoder_->openDecoder() != FfmpegDecoder::Status::ok)
            return unreadable();
        if (std::size_t(decoder_->channelCount()) != shape_.channels || decoder_->sampleRate() != shape_.sampleRate)
            return LoudnessError{Code::sourceChanged};
        at_ = 0;
        skipTo_ = 0;
        pending_ = locating_ = false;
        return std::nullopt;
    }

    // Whether a frame came (false at the end), converted into the buffers.
    Expected<bool> pullFrame() {
        const auto pulled = decoder_->pull();
        if (pulled == FfmpegDecoder::Pull::end) return false;
        if (pulled == FfmpegDecoder::Pull::error) return unreadable();
        if (std::size_t(decoder_->frameChannelCount()) != shape_.channels ||
            decoder_->frameSampleRate() != shape_.sampleRate)
            return LoudnessError{Code::sourceChanged};
        const std::size_t length = decoder_->frameLength();
        if (buffers_.empty() || buffers_.front().size() < length)
            buffers_.assign(shape_.channels, std::vector<float>(length));
        std::vector<float*> into(shape_.channels);
        for (std::size_t c = 0; c < shape_.channels; ++c) into[c] = buffers_[c].data();
        if (decoder_->convertFrame(into.data()) != FfmpegDecoder::Conversion::ok) return unreadable();
        return true;
    }

    LoudnessError unreadable() const { return {shape_.isVideo ? Code::cannotRead : Code::corruptFile}; }

    const StreamShape& shape_;
    std::unique_ptr<FfmpegDecoder> decoder_;
    std::vector<std::vector<float>> buffers_;
    std::vector<const float*> pointers_;
    std::int64_t at_ = 0;        // file frame where the next pulled frame starts
    std::int64_t skipTo_ = 0;    // frames before this one are dropped
    std::int64_t returnedAt_ = 0;
    std::int64_t origin_ = 0;    // the first frame's timestamp
    bool originKnown_ = false;
    bool pending_ = false;       // a frame was pulled and not yet used
    bool locating_ = false;      // after a seek: the next frame's timestamp says where it is
};

ListeningStream::ListeningStream(StreamShape shape, double renderRate, std::int64_t startFrame, bool looping)
    : shape_(std::move(shape)), renderRate_(renderRate),
      totalFrames_(shape_.sampleRate == renderRate
                       ? std::int64_t(shape_.frames)
                       : std::int64_t(renderRate / shape_.sampleRate * double(shape_.frames))),
      capacity_(nextPowerOfTwo(std::size_t(std::max(renderRate, 8000.0) * 0.5))),
      ringL_(capacity_), ringR_(capacity_),
      request_(pack(1, std::uint64_t(std::clamp<std::int64_t>(startFrame, 0, totalFrames_)))),
      generationStart_(pack(0, 0)), looping_(looping) {
    const double sourcePerRender = renderRate > 0 ? shape_.sampleRate / renderRate : 1.0;
    const std::size_t kept = nextPowerOfTwo(std::size_t(double(capacity_) * sourcePerRender) + 2 * sliceFrames + 8192);
    history_.assign(shape_.channels, std::vector<float>(kept));
    thread_ = std::thread([this] { run(); });
}

ListeningStream::~ListeningStream() {
    {
        std::lock_guard lock(wakeMutex_);
        cancelled_.store(true);
    }
    wake_.notify_all();
    thread_.join();
}

ListeningStream::Block ListeningStream::read(std::size_t frames, float* left, float* right) noexcept {
    Block block;
    const std::uint64_t request = request_.load(std::memory_order_acquire);
    const std::uint64_t asked = request >> generationShift;
    if (asked != playing_.load(std::memory_order_relaxed)) {
        // The ring index first, the generation's start after: if the start is still an older
        // generation's, everything up to that index is older too.
        const std::uint64_t written = written_.load(std::memory_order_acquire);
        const std::uint64_t start = generationStart_.load(std::memory_order_acquire);
        if ((start >> generationShift) != asked) {
            read_.store(written, std::memory_order_release);
            std::fill_n(left, frames, 0.0f);
            std::fill_n(right, frames, 0.0f);
            return block;
        }
        read_.store(start & frameMask, std::memory_order_release);
        playhead_.store(std::int64_t(request & frameMask), std::memory_order_relaxed);
        playing_.store(asked, std::memory_order_release);
        block.restarted = true;
    }
    std::int64_t playhead = playhead_.load(std::memory_order_relaxed);
    const bool loops = looping_.load(std::memory_order_relaxed);
    if (playhead >= totalFrames_ && loops) playhead = 0;
    const std::uint64_t from = read_.load(std::memory_order_relaxed);
    const std::uint64_t available = written_.load(std::memory_order_acquire) - from;
    const std::size_t n = std::size_t(
        std::min<std::uint64_t>({std::uint64_t(frames), available, std::uint64_t(std::max<std::int64_t>(totalFrames_ - playhead, 0))}));
    for (std::size_t done = 0; done < n;) {
        const std::size_t at = std::size_t((from + done) & (capacity_ - 1));
        const std::size_t m = std::min(n - done, capacity_ - at);
        std::copy_n(ringL_.data() + at, m, left + done);
        std::copy_n(ringR_.data() + at, m, right + done);
        done += m;
    }
    std::fill(left + n, left + frames, 0.0f);
    std::fill(right + n, right + frames, 0.0f);
    read_.store(from + n, std::memory_order_release);
    const std::int64_t next = playhead + std::int64_t(n);
    playhead_.store(loops && next >= totalFrames_ ? 0 : next, std::memory_order_relaxed);
    block.frames = n;
    return block;
}

void ListeningStream::seek(std::int64_t frame) {
    frame = std::clamp<std::int64_t>(frame, 0, totalFrames_);
    std::uint64_t generation = ((request_.load() >> generationShift) + 1) & 0xffff;
    if (generation == 0) generation = 1;  // 0 is "nothing played yet"
    {
        std::lock_guard lock(wakeMutex_);
        request_.store(pack(generation, std::uint64_t(frame)), std::memory_order_release);
    }
    wake_.notify_all();
}

void ListeningStream::seekFraction(double fraction) {
    const double f = fraction > 0 ? std::min(fraction, 1.0) : 0.0;
    seek(std::int64_t(f * double(totalFrames_)));
}

void ListeningStream::setLooping(bool on) {
    {
        std::lock_guard lock(wakeMutex_);
        looping_.store(on);
    }
    wake_.notify_all();
}

std::int64_t ListeningStream::playhead() const noexcept {
    const std::uint64_t request = request_.load(std::memory_order_acquire);
    if ((request >> generationShift) != playing_.load(std::memory_order_acquire)) return std::int64_t(request & frameMask);
    return playhead_.load(std::memory_order_relaxed);
}

double ListeningStream::position() const noexcept {
    return totalFrames_ > 0 ? double(std::min(playhead(), totalFrames_)) / double(totalFrames_) : 0.0;
}

bool ListeningStream::atEnd() const noexcept {
    const std::uint64_t request = request_.load(std::memory_order_acquire);
    return !looping_.load(std::memory_order_relaxed) &&
           (request >> generationShift) == playing_.load(std::memory_order_acquire) &&
           playhead_.load(std::memory_order_relaxed) >= totalFrames_;
}

std::optional<LoudnessError> ListeningStream::error() const {
    const int code = failure_.load(std::memory_order_acquire);
    if (code < 0) return std::nullopt;
    return LoudnessError{LoudnessError::Code(code)};
}

Channels ListeningStream::framesAtPlayhead(std::size_t n) const {
    const std::int64_t from = std::int64_t(double(playhead()) * shape_.sampleRate / renderRate_);
    std::lock_guard lock(historyMutex_);
    if (history_.empty() || from < historyBegin_ || from + std::int64_t(n) > historyEnd_) return {};
    const std::size_t size = history_.front().size();
    Channels out(history_.size(), std::vector<float>(n));
    for (std::size_t c = 0; c < history_.size(); ++c)
        for (std::size_t i = 0; i < n; ++i) out[c][i] = history_[c][std::size_t(from + std::int64_t(i)) & (size - 1)];
    return out;
}

bool ListeningStream::superseded(std::uint64_t generation) const {
    return cancelled_.load() || (request_.load(std::memory_order_acquire) >> generationShift) != generation;
}

void ListeningStream::fail(LoudnessError error) { failure_.store(int(error.code), std::memory_order_release); }

void ListeningStream::keepHistory(const float* const* channels, std::size_t n) {
    std::lock_guard lock(historyMutex_);
    if (history_.empty()) return;
    const std::size_t size = history_.front().size();
    for (std::size_t c = 0; c < history_.size(); ++c)
        for (std::size_t i = 0; i < n; ++i) history_[c][std::size_t(historyEnd_ + std::int64_t(i)) & (size - 1)] = channels[c][i];
    historyEnd_ += std::int64_t(n);
    historyBegin_ = std::max(historyBegin_, historyEnd_ - std::int64_t(size));
}

bool ListeningStream::push(const float* left, const float* right, std::size_t n, std::uint64_t generation) {
    for (std::size_t done = 0; done < n;) {
        const std::uint64_t written = written_.load(std::memory_order_relaxed);
        const std::size_t room = capacity_ - std::size_t(written - read_.load(std::memory_order_acquire));
        if (room == 0) {
            // The real-time side cannot signal: look again shortly, or at once on a seek.
            std::unique_lock lock(wakeMutex_);
            wake_.wait_for(lock, ringPoll, [&] { return superseded(generation); });
            if (superseded(generation)) return false;
            continue;
        }
        const std::size_t at = std::size_t(written & (capacity_ - 1));
        const std::size_t m = std::min({n - done, room, capacity_ - at});
        std::copy_n(left + done, m, ringL_.data() + at);
        std::copy_n(right + done, m, ringR_.data() + at);
        written_.store(written + m, std::memory_order_release);
        done += m;
    }
    return !superseded(generation);
}

void ListeningStream::run() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), decodingNiceness);
    try {
        Decoder decoder(shape_);
        while (!cancelled_.load()) {
            if (!produce(decoder)) {
                // Failed, or played to the end without looping: wait for a seek or the end.
                std::unique_lock lock(wakeMutex_);
                const std::uint64_t idle = request_.load() >> generationShift;
                wake_.wait(lock, [&] { return cancelled_.load() || (request_.load() >> generationShift) != idle; });
            }
        }
    } catch (const std::bad_alloc&) {
        fail(LoudnessError{Code::tooLarge});
    }
}

// One generation, from its frame to the end (lap after lap while looping). False once there is
// nothing more to do for it: the end reached, or a failure.
bool ListeningStream::produce(Decoder& decoder) {
    const std::uint64_t request = request_.load(std::memory_order_acquire);
    const std::uint64_t generation = request >> generationShift;
    std::int64_t target = std::int64_t(request & frameMask);
    if (failure_.load() >= 0) return false;
    const bool converting = shape_.sampleRate != renderRate_;

    std::unique_ptr<StreamingResampler> convertL, convertR;
    std::int64_t inPeriod = 1, outPeriod = 1;
    if (converting) {
        convertL = std::make_unique<StreamingResampler>(shape_.sampleRate, renderRate_);
        convertR = std::make_unique<StreamingResampler>(shape_.sampleRate, renderRate_);
        if (!convertL->valid() || !convertR->valid()) {
            fail(LoudnessError{Code::rateConversion});
            return false;
        }
        // A restart on a whole period of both rates keeps the converter's phase that of the
        // whole-file conversion.
        const auto in = std::int64_t(shape_.sampleRate), out = std::int64_t(renderRate_);
        if (double(in) == shape_.sampleRate && double(out) == renderRate_ && in > 0 && out > 0) {
            const std::int64_t common = std::gcd(in, out);
            if (in / common <= 4 * in) inPeriod = in / common, outPeriod = out / common;
        }
    }

    std::vector<float> foldL(sliceFrames), foldR(sliceFrames), outL, outR, zeros(sliceFrames, 0.0f);
    std::vector<const float*> slice(shape_.channels);
    bool first = true;
    for (;;) {
        // A lap: start the decoder and the converter where the output frame `target` needs them.
        std::int64_t outAt = target, inStart = target;
        if (converting) {
            const std::int64_t k = std::max<std::int64_t>(target - primingFrames, 0) / outPeriod;
            inStart = k * inPeriod;
            outAt = inPeriod == 1 && outPeriod == 1 ? std::int64_t(std::llround(double(inStart) * renderRate_ / shape_.sampleRate))
                                                    : k * outPeriod;
            convertL->reset();
            convertR->reset();
        }
        std::int64_t discard = target - outAt;
        if (auto failure = decoder.position(inStart)) {
            fail(*failure);
            return false;
        }
        {
            std::lock_guard lock(historyMutex_);
            historyBegin_ = historyEnd_ = inStart;
        }
        if (first) {
            // From here on the ring holds this generation: read() drops what came before.
            generationStart_.store(pack(generation, written_.load()), std::memory_order_release);
            first = false;
        }

        // Output frames [outAt, totalFrames_) of the converted fold, the first `discard` dropped.
        auto emit = [&](const float* l, const float* r, std::size_t n) {
            const std::size_t dropped = std::size_t(std::min<std::int64_t>(discard, std::int64_t(n)));
            discard -= std::int64_t(dropped);
            outAt += std::int64_t(dropped);
            const std::size_t kept = std::size_t(std::min<std::int64_t>(std::int64_t(n - dropped), std::max<std::int64_t>(totalFrames_ - outAt, 0)));
            outAt += std::int64_t(kept);
            return push(l + dropped, r + dropped, kept, generation);
        };
        for (;;) {
            auto got = decoder.next();
            if (!got) {
                fail(got.error());
                return false;
            }
            const std::size_t n = *got;
            if (n == 0) break;
            for (std::size_t done = 0; done < n; done += sliceFrames) {
                const std::size_t m = std::min(sliceFrames, n - done);
                for (std::size_t c = 0; c < shape_.channels; ++c) slice[c] = decoder.channels()[c] + done;
                keepHistory(slice.data(), m);
                foldToStereo(slice.data(), shape_.channels, m, foldL.data(), foldR.data());
                bool going;
                if (converting) {
                    outL.clear(), outR.clear();
                    if (!convertL->process({foldL.data(), m}, outL) || !convertR->process({foldR.data(), m}, outR)) {
                        fail(LoudnessError{Code::rateConversion});
                        return false;
                    }
                    going = emit(outL.data(), outR.data(), std::min(outL.size(), outR.size()));
                } else {
                    going = emit(foldL.data(), foldR.data(), m);
                }
                if (!going) return true;  // a seek or the end: the caller looks again
            }
        }
        if (converting) {
            outL.clear(), outR.clear();
            if (!convertL->process({}, outL) || !convertR->process({}, outR)) {
                fail(LoudnessError{Code::rateConversion});
                return false;
            }
            if (!emit(outL.data(), outR.data(), std::min(outL.size(), outR.size()))) return true;
        }
        // A file shorter than its analysis found ends in silence, as the whole-file conversion does.
        while (outAt < totalFrames_) {
            if (!emit(zeros.data(), zeros.data(), std::size_t(std::min<std::int64_t>(totalFrames_ - outAt, std::int64_t(sliceFrames)))))
                return true;
        }
        if (!looping_.load()) return false;
        target = 0;  // the next lap, in the same generation: no gap
    }
}

}  // namespace velmora
