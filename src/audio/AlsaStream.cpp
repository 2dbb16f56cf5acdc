#include "audio/AlsaStream.h"

#include <alsa/asoundlib.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <system_error>
#include <thread>
#include <variant>
#include <vector>

#include "audio/Denormals.h"
#include "audio/SourceSlot.h"
#include "audio/SystemErrorText.h"

namespace velmora {

namespace {

constexpr unsigned preferredRate = 48000;           // Hz
constexpr snd_pcm_uframes_t preferredPeriod = 512;  // frames: about 11 ms at 48 kHz
constexpr unsigned preferredPeriods = 3;            // per buffer: room for one late block
constexpr int realTimePriority = 60;                // SCHED_FIFO, for the render thread

// ALSA's own codes lie past the errno range; its words for both are English.
std::string alsaErrorText(int code) {
    return code < 0 && -code < 500 ? systemErrorText(-code) : "erreur du pilote ALSA n° " + std::to_string(-code);
}

// The sample formats written, best first, and how one float becomes each.
constexpr snd_pcm_format_t writableFormats[] = {SND_PCM_FORMAT_FLOAT_LE, SND_PCM_FORMAT_S32_LE,
                                                SND_PCM_FORMAT_S24_3LE, SND_PCM_FORMAT_S24_LE,
                                                SND_PCM_FORMAT_S16_LE};

void encode(snd_pcm_format_t format, float x, std::uint8_t* at) noexcept {
    if (format == SND_PCM_FORMAT_FLOAT_LE) {
        std::memcpy(at, &x, 4);
        return;
    }
    const double clipped = std::clamp(double(x), -1.0, 1.0);
    auto put = [&](std::int32_t v, int bytes) {
        for (int b = 0; b < bytes; ++b) at[b] = std::uint8_t(std::uint32_t(v) >> (8 * b));
    };
    switch (format) {
    case SND_PCM_FORMAT_S32_LE: put(std::int32_t(std::lrint(clipped * 2147483647.0)), 4); break;
    case SND_PCM_FORMAT_S24_3LE: put(std::int32_t(std::lrint(clipped * 8388607.0)), 3); break;
    case SND_PCM_FORMAT_S24_LE: put(std::int32_t(std::lrint(clipped * 8388607.0)), 4); break;
    default: put(std::int32_t(std::lrint(clipped * 32767.0)), 2); break;
    }
}

struct StreamShape {
    unsigned channels;
    snd_pcm_format_t format;
    double rate;  // Hz
    snd_pcm_uframes_t period, buffer;
};

// A negative errno and which error case it is, or the shape the PCM took.
struct Refusal {
    int status;
    bool channels;  // the channel count was refused: a routing failure
};

std::variant<StreamShape, Refusal> setUp(snd_pcm_t* pcm, unsigned channels) {
    snd_pcm_hw_params_t* hw;
    snd_pcm_hw_params_alloca(&hw);
    StreamShape shape{channels, SND_PCM_FORMAT_UNKNOWN, 0, preferredPeriod, 0};
    if (int rc = snd_pcm_hw_params_any(pcm, hw); rc < 0) return Refusal{rc, false};
    if (int rc = snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED); rc < 0)
        return Refusal{rc, false};
    if (int rc = snd_pcm_hw_params_set_channels(pcm, hw, channels); rc < 0) return Refusal{rc, true};
    for (snd_pcm_format_t f : writableFormats)
        if (snd_pcm_hw_params_test_format(pcm, hw, f) == 0) {
            shape.format = f;
            break;
        }
    if (shape.format == SND_PCM_FORMAT_UNKNOWN) return Refusal{-EINVAL, false};
    unsigned rate = preferredRate, periods = preferredPeriods;
    int dir = 0;
    if (int rc = snd_pcm_hw_params_set_format(pcm, hw, shape.format); rc < 0) return Refusal{rc, false};
    if (int rc = snd_pcm_hw_params_set_rate_near(pcm, hw, &rate, &dir); rc < 0) return Refusal{rc, false};
    snd_pcm_hw_params_set_period_size_near(pcm, hw, &shape.period, &dir);
    snd_pcm_hw_params_set_periods_near(pcm, hw, &periods, &dir);
    if (int rc = snd_pcm_hw_params(pcm, hw); rc < 0) return Refusal{rc, false};
    snd_pcm_hw_params_get_period_size(hw, &shape.period, &dir);
    snd_pcm_hw_params_get_buffer_size(hw, &shape.buffer);
    shape.rate = rate;

    snd_pcm_sw_params_t* sw;
    snd_pcm_sw_params_alloca(&sw);
    // Start once the buffer is full, so the first blocks have the whole buffer as a margin.
    if (snd_pcm_sw_params_current(pcm, sw) == 0) {
        snd_pcm_sw_params_set_start_threshold(pcm, sw, shape.buffer);
        snd_pcm_sw_params_set_avail_min(pcm, sw, shape.period);
        snd_pcm_sw_params(pcm, sw);
    }
    return shape;
}

class AlsaStream final : public OutputStream {
public:
    AlsaStream(snd_pcm_t* pcm, const StreamShape& shape, std::size_t left, std::size_t right, OutputEvents& events,
               std::function<void()> closed)
        : pcm_(pcm), shape_(shape), left_(left), right_(right), events_(events), closed_(std::move(closed)),
          leftBlock_(shape.period), rightBlock_(shape.period),
          frameBytes_(std::size_t(snd_pcm_format_physical_width(shape.format) / 8) * shape.channels),
          interleaved_(frameBytes_ * shape.period, 0) {
        // Silence on every other channel is written once here and never touched again.
        snd_pcm_format_set_silence(shape.format, interleaved_.data(), unsigned(shape.period * shape.channels));
    }
    ~AlsaStream() override {
        stop();
        snd_pcm_close(pcm_);
        if (closed_) closed_();
    }

    double sampleRate() const override { return shape_.rate; }
    std::size_t latencyFrames() const override { return shape_.buffer; }
    bool healthy() const override { return !failed_.load(); }

    std::optional<std::string> start(RenderSource* source) override {
        if (failed_.load()) return alsaErrorText(error_.load());
        slot_.exchange(source);
        if (thread_.joinable()) return std::nullopt;
        if (int rc = snd_pcm_prepare(pcm_); rc < 0) return alsaErrorText(rc);
        running_.store(true);
        try {
            thread_ = std::thread([this] { run(); });
        } catch (const std::system_error& e) {
            running_.store(false);
            return systemErrorText(e.code().value());
        }
        // Real-time priority where the user may have it (the audio group's rtprio); without it the
        // thread still runs, with more risk of underruns under load.
        sched_param priority{};
        priority.sched_priority = realTimePriority;
        pthread_setschedparam(thread_.native_handle(), SCHED_FIFO, &priority);
        return std::nullopt;
    }

    void stop() override {
        running_.store(false);
        if (thread_.joinable()) thread_.join();
        snd_pcm_drop(pcm_);
        slot_.exchange(nullptr);
    }

private:
    void run() noexcept;
    bool writeBlock() noexcept;
    void interleave() noexcept {
        const std::size_t width = frameBytes_ / shape_.channels;
        for (snd_pcm_uframes_t i = 0; i < shape_.period; ++i) {
            std::uint8_t* frame = interleaved_.data() + i * frameBytes_;
            encode(shape_.format, leftBlock_[i], frame + left_ * width);
            // Written second: one channel chosen for both sides carries the right signal.
            encode(shape_.format, rightBlock_[i], frame + right_ * width);
        }
    }

    snd_pcm_t* pcm_;
    const StreamShape shape_;
    const std::size_t left_, right_;
    OutputEvents& events_;
    std::function<void()> closed_;
    // Allocated once: the render thread only fills them.
    std::vector<float> leftBlock_, rightBlock_;
    const std::size_t frameBytes_;
    std::vector<std::uint8_t> interleaved_;
    SourceSlot slot_;
    std::thread thread_;
    std::atomic<bool> running_{false}, failed_{false};
    std::atomic<int> error_{0};
};

void AlsaStream::run() noexcept {
    using Clock = std::chrono::steady_clock;
    ScopedDenormalFlush flush;
    const std::chrono::duration<double> blockTime(double(shape_.period) / shape_.rate);
    // A card paces this loop by blocking in snd_pcm_writei; a PCM that never blocks (null, a
    // file over null) would be fed as fast as blocks render. Those follow the clock instead, a
    // buffer ahead of it; any write that blocks restarts the count, so a card's own clock rules.
    Clock::time_point paceFrom = Clock::now();
    std::uint64_t pacedFrames = 0;
    while (running_.load(std::memory_order_acquire)) {
        if (RenderSource* source = slot_.acquire()) {
            source->render(shape_.period, leftBlock_.data(), rightBlock_.data());
        } else {
            std::fill(leftBlock_.begin(), leftBlock_.end(), 0.0f);
            std::fill(rightBlock_.begin(), rightBlock_.end(), 0.0f);
        }
        slot_.release();
        interleave();
        const Clock::time_point before = Clock::now();
        if (!writeBlock()) {
            failed_.store(true);
            events_.post(OutputEvents::streamFailed);
            return;
        }
        const Clock::time_point after = Clock::now();
        if (after - before > blockTime / 4) {
            paceFrom = after;
            pacedFrames = 0;
            continue;
        }
        pacedFrames += shape_.period;
        if (pacedFrames > shape_.buffer) {
            const std::chrono::duration<double> ahead(double(pacedFrames - shape_.buffer) / shape_.rate);
            std::this_thread::sleep_until(paceFrom + std::chrono::duration_cast<Clock::duration>(ahead));
        }
    }
}

bool AlsaStream::writeBlock() noexcept {
    snd_pcm_uframes_t done = 0;
    while (done < shape_.period && running_.load(std::memory_order_relaxed)) {
        const snd_pcm_sframes_t n =
            snd_pcm_writei(pcm_, interleaved_.data() + done * frameBytes_, shape_.period - done);
        if (n >= 0) {
            done += snd_pcm_uframes_t(n);
            continue;
        }
        // An underrun or a suspend is recovered in place; a card unplugged is not.
        if (snd_pcm_recover(pcm_, int(n), 1) < 0) {
            error_.store(int(n));
            return false;
        }
    }
    return true;
}

}  // namespace

Expected<std::unique_ptr<OutputStream>, LiveMonitorError> openAlsaStream(const std::string& name, unsigned channels,
                                                                        std::size_t left, std::size_t right,
                                                                        OutputEvents& events,
                                                                        std::function<void()> closed) {
    snd_pcm_t* pcm = nullptr;
    if (int rc = snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_PLAYBACK, 0); rc < 0)
        return LiveMonitorError::deviceSetFailed(rc);
    const auto shape = setUp(pcm, channels);
    if (const auto* refused = std::get_if<Refusal>(&shape)) {
        snd_pcm_close(pcm);
        return refused->channels ? LiveMonitorError::channelMapFailed(refused->status)
                                 : LiveMonitorError::deviceSetFailed(refused->status);
    }
    return std::unique_ptr<OutputStream>(
        std::make_unique<AlsaStream>(pcm, std::get<StreamShape>(shape), left, right, events, std::move(closed)));
}

}  // namespace velmora
