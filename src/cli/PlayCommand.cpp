// velmora-cli play: a file through the live chain (or untouched) to an output device, with the
// live meter on standard error, until its end, Ctrl-C or the device going away.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "audio/AudioFileReader.h"
#include "audio/ListeningStream.h"
#include "audio/LiveMonitor.h"
#include "cli/Commands.h"
#include "cli/Settings.h"
#include "cli/Text.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"

namespace velmora::cli {

namespace {

// Set from the signal handler, read by the polling loop: a lock-free atomic is all a handler
// may touch.
std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void requestStop(int) { stopRequested.store(true); }

// Ctrl-C and SIGTERM ask the loop to stop instead of killing the process with the stream open,
// for as long as the command runs.
class StopSignals {
public:
    StopSignals() {
        struct sigaction action {};
        action.sa_handler = requestStop;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &oldInt_);
        sigaction(SIGTERM, &action, &oldTerm_);
    }
    ~StopSignals() {
        sigaction(SIGINT, &oldInt_, nullptr);
        sigaction(SIGTERM, &oldTerm_, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    struct sigaction oldInt_ {}, oldTerm_ {};
};

// The streamer, with a count of the frames the stream has pulled: the end of the file has left
// the device once the stream's latency has been pulled after it, and a count that no longer
// moves means the stream froze.
class CountedSource final : public RenderSource {
public:
    explicit CountedSource(std::shared_ptr<OnlineMasteringStreamer> streamer) : streamer_(std::move(streamer)) {}
    void render(std::size_t frames, float* left, float* right) noexcept override {
        streamer_->render(frames, left, right);
        rendered_.fetch_add(std::int64_t(frames), std::memory_order_relaxed);
    }
    std::int64_t rendered() const { return rendered_.load(std::memory_order_relaxed); }

private:
    std::shared_ptr<OnlineMasteringStreamer> streamer_;
    std::atomic<std::int64_t> rendered_{0};
};

std::string meterLine(const LiveMeter::Readings& r) {
    return "M " + oneDecimalOrDash(r.momentary) + "  S " + oneDecimalOrDash(r.shortTerm) + "  I " +
           oneDecimalOrDash(r.integrated) + " LUFS  peak " + oneDecimalOrDash(r.peakDB) + " dBFS";
}

constexpr auto pollPeriod = std::chrono::milliseconds(100);
// No frame pulled for this long while playing: the server or the card hangs, and the shell
// should not hang with it.
constexpr auto stallLimit = std::chrono::seconds(5);

}  // namespace

int runPlay(Args& args) {
    const auto uid = args.option("--device");
    const auto [left, right] = parseChannelPair(args.option("--channels").value_or("1,2"), "--channels");
    const auto paramsFile = args.option("--params");
    const bool loop = args.flag("--loop");
    const auto seekText = args.option("--seek");
    const double seekTo = seekText ? parseDouble(*seekText, "--seek") : 0.0;
    const auto files = args.positionals();
    if (files.size() != 1) throw UsageError("play takes one FILE");
    // Without --params: every stage off, the file as it is.
    const MasterParams params = paramsFile ? readParamsFile(*paramsFile) : MasterParams{};

    stopRequested.store(false);
    const StopSignals signals;
    const bool terminal = isatty(STDERR_FILENO) == 1;

    // Declared before the monitor, which is destroyed first and stops the stream that pulls from
    // them; the loop below also stops it explicitly before reading the meter a last time.
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    auto meter = std::make_shared<LiveMeter>();
    LiveMonitor monitor;

    const auto device = uid ? uid : monitor.defaultOutputDeviceUID();
    if (!device) {
        std::cout << "Monitoring : " << LiveMonitor::noDeviceMessage << '\n';
        return 1;
    }
    if (const auto error = monitor.configure(*device, left, right)) {
        std::cout << "Monitoring : " << error->message() << '\n';
        return 1;
    }

    {
        // Read as it plays: a film costs the few megabytes of the stream, not its length.
        const auto shape = probeStreamShape(files.front(), isVideoPath(files.front()));
        if (!shape) {
            std::cout << "Échec lecture : " << shape.error().message() << '\n';
            return 1;
        }
        streamer->init(std::make_shared<ListeningStream>(*shape, monitor.deviceSampleRate(), 0, loop));
    }
    streamer->update(params, 0.0);
    streamer->setLooping(loop);
    if (seekText) streamer->seek(seekTo);
    meter->init(streamer->renderRate());
    streamer->setLiveMeter(meter);

    auto source = std::make_shared<CountedSource>(streamer);
    int status = 0;
    if (!stopRequested.load() && !monitor.start(source)) {
        std::cout << "Monitoring : " << monitor.lastError().value_or("") << '\n';
        return 1;
    }

    std::optional<std::int64_t> endHeardAt;  // frames pulled when the last frame will have left
    std::int64_t lastCount = -1;
    auto lastMove = std::chrono::steady_clock::now();
    while (!stopRequested.load()) {
        if (!monitor.isPlaying()) {
            // The monitor stopped on a device change: gone (or not routable again) is the end;
            // routed again as it was, playback goes on from where it stopped.
            if (const auto error = monitor.lastError()) {
                std::cout << *error << '\n';
                status = 1;
                break;
            }
            if (!monitor.start(source)) {
                std::cout << "Monitoring : " << monitor.lastError().value_or("") << '\n';
                status = 1;
                break;
            }
        }
        if (const auto error = streamer->stream()->error()) {
            std::cout << "Échec lecture : " << error->message() << '\n';
            status = 1;
            break;
        }
        const std::int64_t count = source->rendered();
        if (!loop && !endHeardAt && streamer->atEnd()) endHeardAt = count + std::int64_t(monitor.latencyFrames());
        if (endHeardAt && count >= *endHeardAt) break;
        const auto now = std::chrono::steady_clock::now();
        if (count != lastCount) {
            lastCount = count;
            lastMove = now;
        } else if (now - lastMove > stallLimit) {
            std::cerr << "velmora-cli: the output stopped pulling audio\n";
            status = 1;
            break;
        }
        if (terminal) {
            std::fprintf(stderr, "\r%s\033[K", meterLine(meter->stats()).c_str());
            std::fflush(stderr);
        }
        std::this_thread::sleep_for(pollPeriod);
    }
    // Nothing pulls from the streamer or feeds the meter from here on.
    monitor.stop();
    std::fprintf(stderr, "%s%s\n", terminal ? "\r\033[K" : "", meterLine(meter->stats()).c_str());
    return status;
}

}  // namespace velmora::cli
