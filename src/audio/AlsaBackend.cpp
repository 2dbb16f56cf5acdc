// ALSA output, for machines without a JACK server: a device is a playback PCM with a hint
// (the cards' own and those the ALSA configuration defines), its channels "Out 1" … A change is
// noticed from /dev/snd, never by reopening devices.
#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "audio/AlsaStream.h"
#include "audio/DeviceNodeWatch.h"
#include "audio/OutputBackend.h"

namespace velmora {

namespace {

// A PCM that converts channels (plug, route, a sound server's plugin) accepts any count up to
// thousands: past this it is not the count of anything real.
constexpr unsigned plausibleChannels = 64;

struct AlsaDevice {
    OutputDevice device;
    std::string pcm;  // the name snd_pcm_open takes
};

// The PCMs this process holds open, whichever back end opened them (playback and the live
// monitor each have theirs): one in use is not opened again to be listed, which a card would
// refuse (busy) and a file PCM would obey by emptying its file, so it is listed as it was.
struct OpenPcms {
    std::mutex mutex;
    std::vector<AlsaDevice> inUse;

    static const std::shared_ptr<OpenPcms>& process() {
        static const auto all = std::make_shared<OpenPcms>();
        return all;
    }
    std::optional<AlsaDevice> find(const std::string& uid) {
        std::lock_guard lock(mutex);
        const auto it = std::find_if(inUse.begin(), inUse.end(), [&](const AlsaDevice& d) { return d.device.uid == uid; });
        return it == inUse.end() ? std::nullopt : std::optional<AlsaDevice>(*it);
    }
    void add(const AlsaDevice& device) {
        std::lock_guard lock(mutex);
        inUse.push_back(device);
    }
    void remove(const std::string& uid) {
        std::lock_guard lock(mutex);
        const auto it = std::find_if(inUse.begin(), inUse.end(), [&](const AlsaDevice& d) { return d.device.uid == uid; });
        if (it != inUse.end()) inUse.erase(it);
    }
};

std::string hint(void* h, const char* id) {
    char* value = snd_device_name_get_hint(h, id);
    std::string text = value ? value : "";
    std::free(value);
    return text;
}

// Its maximum; for a converting PCM, the widest channel map of what it feeds, else stereo.
unsigned playbackChannels(snd_pcm_t* pcm) {
    snd_pcm_hw_params_t* hw;
    snd_pcm_hw_params_alloca(&hw);
    unsigned most = 0;
    if (snd_pcm_hw_params_any(pcm, hw) < 0 || snd_pcm_hw_params_get_channels_max(hw, &most) < 0) return 0;
    if (most <= plausibleChannels) return most;
    unsigned widest = 0;
    if (snd_pcm_chmap_query_t** maps = snd_pcm_query_chmaps(pcm)) {
        for (snd_pcm_chmap_query_t** m = maps; *m; ++m) widest = std::max(widest, (*m)->map.channels);
        snd_pcm_free_chmaps(maps);
    }
    return widest >= 1 && widest <= plausibleChannels ? widest : 2;
}

unsigned probeChannels(const std::string& name) {
    snd_pcm_t* pcm = nullptr;
    // Non-blocking: a card another program holds answers busy at once instead of waiting.
    if (snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) < 0) return 0;
    const unsigned channels = playbackChannels(pcm);
    snd_pcm_close(pcm);
    return channels;
}

std::vector<AlsaDevice> listDevices(OpenPcms& open) {
    std::vector<AlsaDevice> out;
    void** hints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &hints) < 0 || !hints) return out;
    for (void** h = hints; *h; ++h) {
        const std::string name = hint(*h, "NAME"), direction = hint(*h, "IOID");
        if (name.empty() || direction == "Input") continue;  // no IOID: both directions
        // Two entries may share a name (cards defining the same PCM): the uid tells them apart.
        std::string uid = "ALSA:" + name;
        for (int n = 2; std::any_of(out.begin(), out.end(), [&](const AlsaDevice& d) { return d.device.uid == uid; });
             ++n)
            uid = "ALSA:" + name + "#" + std::to_string(n);
        if (auto inUse = open.find(uid)) {
            out.push_back(std::move(*inUse));
            continue;
        }
        const unsigned channels = probeChannels(name);
        if (channels == 0) continue;
        // Hints describe in two lines: the card, then what this PCM does with it.
        std::string label = hint(*h, "DESC");
        for (std::size_t at; (at = label.find('\n')) != std::string::npos;) label.replace(at, 1, ", ");
        AlsaDevice d{OutputDevice{uid, label.empty() ? name : label, channels, {}}, name};
        for (unsigned c = 1; c <= channels; ++c) d.device.channelNames.push_back("Out " + std::to_string(c));
        out.push_back(std::move(d));
    }
    snd_device_name_free_hint(hints);
    return out;
}

class AlsaBackend final : public OutputBackend {
public:
    explicit AlsaBackend(OutputEvents& events) : events_(events), watch_(events) {}

    std::vector<OutputDevice> devices() override {
        auto listed = listDevices(*open_);
        std::vector<OutputDevice> out;
        for (const auto& d : listed) out.push_back(d.device);
        std::lock_guard lock(mutex_);
        listed_ = std::move(listed);
        return out;
    }

    std::string defaultDeviceUID() const override { return "ALSA:default"; }
    bool holdsDeviceWhileOpen() const override { return true; }

    Expected<std::unique_ptr<OutputStream>, LiveMonitorError> open(const OutputDevice& device, std::size_t left,
                                                                   std::size_t right) override {
        // Listing opens every PCM: the one just listed is taken as it was.
        std::optional<AlsaDevice> found = lastListed(device.uid);
        if (!found) {
            devices();
            found = lastListed(device.uid);
        }
        if (!found) return LiveMonitorError::deviceNotFound(device.uid);
        const auto channels = unsigned(found->device.outputChannels);
        if (left >= channels || right >= channels) return LiveMonitorError::channelMapFailed(-EINVAL);

        auto stream = openAlsaStream(found->pcm, channels, left, right, events_,
                                     [open = open_, uid = found->device.uid] { open->remove(uid); });
        if (stream) open_->add(*found);
        return stream;
    }

private:
    std::optional<AlsaDevice> lastListed(const std::string& uid) {
        std::lock_guard lock(mutex_);
        const auto it =
            std::find_if(listed_.begin(), listed_.end(), [&](const AlsaDevice& d) { return d.device.uid == uid; });
        return it == listed_.end() ? std::nullopt : std::optional<AlsaDevice>(*it);
    }

    OutputEvents& events_;
    std::shared_ptr<OpenPcms> open_ = OpenPcms::process();
    std::mutex mutex_;
    std::vector<AlsaDevice> listed_;
    DeviceNodeWatch watch_;
};

}  // namespace

std::unique_ptr<OutputBackend> openAlsaBackend(OutputEvents& events) {
    if (snd_config_update() < 0) return nullptr;
    return std::make_unique<AlsaBackend>(events);
}

}  // namespace velmora
