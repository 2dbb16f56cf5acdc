#include "audio/ProgrammeStream.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <vector>

#include "audio/AudioFileReader.h"

namespace velmora {

namespace {

using Code = LoudnessError::Code;

// Planar blocks of maxBlockFrames handed to the caller, writable.
class Blocks {
public:
    explicit Blocks(std::size_t channels)
        : storage_(channels, std::vector<float>(ProgrammePass::maxBlockFrames)), pointers_(channels) {
        for (std::size_t c = 0; c < channels; ++c) pointers_[c] = storage_[c].data();
    }
    float* channel(std::size_t c) { return pointers_[c]; }
    float* const* pointers() { return pointers_.data(); }

private:
    std::vector<std::vector<float>> storage_;
    std::vector<float*> pointers_;
};

class HeldPass final : public ProgrammePass {
public:
    explicit HeldPass(const Channels& channels) : channels_(channels), blocks_(channels.size()) {}

    float* const* next(std::size_t n) override {
        const std::size_t frames = channels_.empty() ? 0 : channels_.front().size();
        n = std::min({n, maxBlockFrames, frames - std::min(frames, at_)});
        for (std::size_t c = 0; c < channels_.size(); ++c)
            std::copy_n(channels_[c].data() + at_, n, blocks_.channel(c));
        at_ += n;
        return blocks_.pointers();
    }
    LoudnessError error() const override { return {Code::nothingToWrite}; }

private:
    const Channels& channels_;
    Blocks blocks_;
    std::size_t at_ = 0;
};

// The decoder fills a ring a few blocks long on its own thread; the caller empties it. Each
// waits for the other only when the ring is full or empty, so decoding overlaps the work.
class DecodingPass final : public ProgrammePass, private DecodeListener {
public:
    DecodingPass(const std::string& path, bool isVideo, std::size_t channels, std::size_t frames, double rate)
        : channels_(channels), frames_(frames), rate_(rate), ring_(channels, std::vector<float>(ringFrames)),
          blocks_(channels) {
        thread_ = std::thread([this, path, isVideo] { run(path, isVideo); });
    }

    ~DecodingPass() override {
        {
            std::lock_guard lock(mutex_);
            cancelled_ = true;
        }
        space_.notify_all();
        thread_.join();
    }

    float* const* next(std::size_t n) override {
        n = std::min(n, maxBlockFrames);
        std::unique_lock lock(mutex_);
        data_.wait(lock, [&] { return written_ - read_ >= n || finished_; });
        if (written_ - read_ < n) {
            if (!failure_) failure_ = LoudnessError{Code::sourceChanged};
            return nullptr;
        }
        const std::size_t from = read_;
        lock.unlock();
        // [read_, written_) is the caller's alone until read_ moves.
        for (std::size_t done = 0; done < n;) {
            const std::size_t at = (from + done) % ringFrames, m = std::min(n - done, ringFrames - at);
            for (std::size_t c = 0; c < channels_; ++c) std::copy_n(ring_[c].data() + at, m, blocks_.channel(c) + done);
            done += m;
        }
        lock.lock();
        read_ += n;
        lock.unlock();
        space_.notify_one();
        return blocks_.pointers();
    }

    LoudnessError error() const override {
        std::lock_guard lock(mutex_);
        return failure_.value_or(LoudnessError{Code::sourceChanged});
    }

private:
    static constexpr std::size_t ringFrames = 4 * maxBlockFrames;

    void run(const std::string& path, bool isVideo) {
        std::optional<LoudnessError> failure;
        try {
            auto decoded = loadAudio(path, isVideo, this);
            if (!decoded) failure = decoded.error();
        } catch (const std::bad_alloc&) {
            failure = LoudnessError{Code::tooLarge};
        }
        std::lock_guard lock(mutex_);
        finished_ = true;
        // A stop the caller asked for is no failure; a different shape is a different file.
        if (changed_) failure_ = LoudnessError{Code::sourceChanged};
        else if (failure && !cancelled_) failure_ = failure;
        data_.notify_all();
    }

    void started(const PlanarAudio& audio, std::size_t) override {
        if (audio.channelCount() != channels_ || audio.sampleRate != rate_) stopAsChanged();
    }

    void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) override {
        for (std::size_t at = begin; at < end;) {
            std::unique_lock lock(mutex_);
            space_.wait(lock, [&] { return cancelled_ || written_ - read_ < ringFrames; });
            if (cancelled_) return;
            if (written_ + (end - at) > frames_) {
                lock.unlock();
                stopAsChanged();
                return;
            }
            const std::size_t to = written_ % ringFrames;
            const std::size_t m = std::min({end - at, ringFrames - (written_ - read_), ringFrames - to});
            lock.unlock();
            // [written_, read_ + ringFrames) is the decoder's alone until written_ moves.
            for (std::size_t c = 0; c < channels_; ++c) std::copy_n(audio.channels[c].data() + at, m, ring_[c].data() + to);
            lock.lock();
            written_ += m;
            lock.unlock();
            data_.notify_one();
            at += m;
        }
    }

    void stopAsChanged() {
        std::lock_guard lock(mutex_);
        changed_ = true;
        cancelled_ = true;
    }

    void quiesce() override {}
    bool keepsSamples() const override { return false; }
    bool wantsMore() const override { return !cancelled_; }

    std::size_t channels_, frames_;
    double rate_;
    std::vector<std::vector<float>> ring_;
    Blocks blocks_;
    mutable std::mutex mutex_;
    std::condition_variable data_, space_;
    std::size_t written_ = 0, read_ = 0;
    bool finished_ = false, changed_ = false;
    std::atomic<bool> cancelled_ = false;
    std::optional<LoudnessError> failure_;
    std::thread thread_;
};

}  // namespace

std::unique_ptr<ProgrammePass> HeldProgramme::read() const { return std::make_unique<HeldPass>(channels_); }

std::unique_ptr<ProgrammePass> FileProgramme::read() const {
    return std::make_unique<DecodingPass>(path_, isVideo_, channels_, frames_, rate_);
}

Expected<Channels> loadProgramme(const Programme& programme) {
    try {
        if (const Channels* held = programme.samples()) return *held;
        const std::size_t frames = programme.frameCount();
        Channels channels(programme.channelCount(), std::vector<float>(frames));
        auto pass = programme.read();
        for (std::size_t at = 0; at < frames; at += ProgrammePass::maxBlockFrames) {
            const std::size_t n = std::min(ProgrammePass::maxBlockFrames, frames - at);
            float* const* block = pass->next(n);
            if (!block) return pass->error();
            for (std::size_t c = 0; c < channels.size(); ++c) std::copy_n(block[c], n, channels[c].data() + at);
        }
        return channels;
    } catch (const std::bad_alloc&) {
        return LoudnessError{Code::tooLarge};
    }
}

}  // namespace velmora
