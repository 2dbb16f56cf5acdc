// JACK output: a device is a client with playback (input) ports, "system" being the sound card;
// Velmora is one client with two output ports, connected to the two chosen ports. The server's
// rate is the stream's rate.
#include <jack/jack.h>
#include <jack/metadata.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>

#include "audio/Denormals.h"
#include "audio/OutputBackend.h"
#include "audio/SourceSlot.h"

namespace velmora {

namespace {

constexpr const char* clientName = "Velmora";

// libjack prints to stderr when no server answers, which is how ALSA gets chosen: not an error.
void quiet(const char*) {}

// One connection to the server with Velmora's two output ports, which live as long as it does.
// Streams share it, so a stream opened before the server went away still holds a valid handle.
class JackClient {
public:
    // Nullptr and the jack_status_t when no server answers or the client cannot be set up.
    static std::shared_ptr<JackClient> connect(OutputEvents& events, int& status);
    ~JackClient() {
        // Once the server has gone, libjack's close touches the server's unmapped memory and
        // crashes: the dead handle is left to the process's end instead.
        if (client_ && alive()) jack_client_close(client_);
    }
    JackClient(const JackClient&) = delete;
    JackClient& operator=(const JackClient&) = delete;

    jack_client_t* handle() const { return client_; }
    jack_port_t* port(int side) const { return ports_[side]; }
    bool alive() const { return !shutDown_.load(); }
    SourceSlot& slot() { return slot_; }
    // [control thread] Connections made before the call are in effect once two cycles have
    // ended after it: the server switches its graph only between cycles.
    void waitTwoCycles() const {
        const std::uint64_t from = cycles_.load();
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        while (alive() && cycles_.load() < from + 2 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    explicit JackClient(OutputEvents& events) : events_(events) {}

    // [audio thread]
    static int process(jack_nframes_t frames, void* self) noexcept;
    // [JACK's notification thread] Posts only: calling the server back from here deadlocks.
    static void shutdown(void* self) {
        static_cast<JackClient*>(self)->shutDown_.store(true);
        static_cast<JackClient*>(self)->events_.post(OutputEvents::streamFailed | OutputEvents::devicesChanged);
    }
    static void changed(void* self) { static_cast<JackClient*>(self)->events_.post(OutputEvents::devicesChanged); }

    OutputEvents& events_;
    jack_client_t* client_ = nullptr;
    jack_port_t* ports_[2] = {};
    SourceSlot slot_;
    std::atomic<std::uint64_t> cycles_{0};
    std::atomic<bool> shutDown_{false};
};

std::shared_ptr<JackClient> JackClient::connect(OutputEvents& events, int& status) {
    static std::once_flag quietened;
    std::call_once(quietened, [] {
        jack_set_error_function(quiet);
        jack_set_info_function(quiet);
    });
    std::shared_ptr<JackClient> c(new JackClient(events));
    jack_status_t opened{};
    // Never start a server: a missing one means ALSA, not a jackd spawned behind the user's back.
    c->client_ = jack_client_open(clientName, JackNoStartServer, &opened);
    status = int(opened);
    if (!c->client_) return nullptr;
    const char* names[2] = {"out_L", "out_R"};
    for (int side = 0; side < 2; ++side) {
        c->ports_[side] = jack_port_register(c->client_, names[side], JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        if (!c->ports_[side]) {
            status = -ENOMEM;
            return nullptr;
        }
    }
    jack_client_t* h = c->client_;
    jack_set_process_callback(h, &JackClient::process, c.get());
    jack_on_shutdown(h, &JackClient::shutdown, c.get());
    jack_set_client_registration_callback(h, [](const char*, int, void* self) { changed(self); }, c.get());
    jack_set_port_registration_callback(h, [](jack_port_id_t, int, void* self) { changed(self); }, c.get());
    jack_set_port_rename_callback(h, [](jack_port_id_t, const char*, const char*, void* self) { changed(self); },
                                  c.get());
    jack_set_property_change_callback(
        h, [](jack_uuid_t, const char*, jack_property_change_t, void* self) { changed(self); }, c.get());
    if (int rc = jack_activate(h)) {
        status = rc;
        return nullptr;
    }
    return c;
}

int JackClient::process(jack_nframes_t frames, void* arg) noexcept {
    auto& self = *static_cast<JackClient*>(arg);
    ScopedDenormalFlush flush;
    auto* left = static_cast<float*>(jack_port_get_buffer(self.ports_[0], frames));
    auto* right = static_cast<float*>(jack_port_get_buffer(self.ports_[1], frames));
    if (RenderSource* source = self.slot_.acquire()) {
        source->render(frames, left, right);
    } else {
        std::fill_n(left, frames, 0.0f);
        std::fill_n(right, frames, 0.0f);
    }
    self.slot_.release();
    self.cycles_.fetch_add(1, std::memory_order_release);
    return 0;
}

struct JackDevice {
    OutputDevice device;
    std::vector<std::string> ports;  // full names, one per channel
};

// The port's pretty-name metadata when a patchbay or the card's driver set one.
std::optional<std::string> prettyName(jack_port_t* port) {
    char* value = nullptr;
    char* type = nullptr;
    if (jack_get_property(jack_port_uuid(port), JACK_METADATA_PRETTY_NAME, &value, &type) != 0) return std::nullopt;
    std::optional<std::string> name;
    if (value && *value) name = value;
    jack_free(value);
    jack_free(type);
    return name;
}

// Every client with audio input ports but ours, in the order the server lists their ports.
std::vector<JackDevice> listDevices(jack_client_t* client) {
    std::vector<JackDevice> out;
    const char** names = jack_get_ports(client, nullptr, JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput);
    if (!names) return out;
    for (const char** n = names; *n; ++n) {
        jack_port_t* port = jack_port_by_name(client, *n);
        if (!port || jack_port_is_mine(client, port)) continue;
        const std::string full = *n, shortName = jack_port_short_name(port);
        if (full.size() <= shortName.size()) continue;
        const std::string owner = full.substr(0, full.size() - shortName.size() - 1);
        const std::string uid = "JACK:" + owner;
        auto it = std::find_if(out.begin(), out.end(), [&](const JackDevice& d) { return d.device.uid == uid; });
        if (it == out.end()) it = out.insert(out.end(), JackDevice{OutputDevice{uid, owner, 0, {}}, {}});
        it->device.channelNames.push_back(prettyName(port).value_or(shortName));
        it->device.outputChannels += 1;
        it->ports.push_back(full);
    }
    jack_free(names);
    return out;
}

class JackStream final : public OutputStream {
public:
    explicit JackStream(std::shared_ptr<JackClient> client)
        : client_(std::move(client)), rate_(jack_get_sample_rate(client_->handle())) {}
    ~JackStream() override {
        stop();
        if (client_->alive())
            for (int side = 0; side < 2; ++side) jack_port_disconnect(client_->handle(), client_->port(side));
    }

    double sampleRate() const override { return rate_; }
    std::size_t latencyFrames() const override {
        if (!client_->alive()) return 0;
        jack_nframes_t most = 0;
        for (int side = 0; side < 2; ++side) {
            jack_latency_range_t range{};
            jack_port_get_latency_range(client_->port(side), JackPlaybackLatency, &range);
            most = std::max(most, range.max);
        }
        // What the port reports lies downstream of the block being rendered.
        return std::size_t(most) + jack_get_buffer_size(client_->handle());
    }
    std::optional<std::string> start(RenderSource* source) override {
        if (!client_->alive()) return std::string("le serveur JACK s'est arrêté");
        client_->slot().exchange(source);
        return std::nullopt;
    }
    void stop() override { client_->slot().exchange(nullptr); }
    bool healthy() const override { return client_->alive(); }

private:
    std::shared_ptr<JackClient> client_;
    double rate_;
};

class JackBackend final : public OutputBackend {
public:
    JackBackend(OutputEvents& events, std::shared_ptr<JackClient> client)
        : events_(events), client_(std::move(client)) {}

    std::vector<OutputDevice> devices() override {
        int status = 0;
        const auto client = connected(status);
        if (!client) return {};
        std::vector<OutputDevice> out;
        for (auto& d : listDevices(client->handle())) out.push_back(std::move(d.device));
        return out;
    }

    std::string defaultDeviceUID() const override { return "JACK:system"; }

    Expected<std::unique_ptr<OutputStream>, LiveMonitorError> open(const OutputDevice& device, std::size_t left,
                                                                   std::size_t right) override {
        int status = 0;
        const auto client = connected(status);
        if (!client) return LiveMonitorError::deviceSetFailed(status);
        const auto listed = listDevices(client->handle());
        const auto it =
            std::find_if(listed.begin(), listed.end(), [&](const JackDevice& d) { return d.device.uid == device.uid; });
        if (it == listed.end()) return LiveMonitorError::deviceNotFound(device.uid);
        if (left >= it->ports.size() || right >= it->ports.size()) return LiveMonitorError::channelMapFailed(EINVAL);

        // Built first, so that a failure below undoes whatever was connected.
        auto stream = std::make_unique<JackStream>(client);
        jack_client_t* h = client->handle();
        for (int side = 0; side < 2; ++side)
            if (int rc = jack_port_disconnect(h, client->port(side))) return LiveMonitorError::channelMapFailed(rc);
        auto connect = [&](int side, std::size_t channel) {
            const int rc = jack_connect(h, jack_port_name(client->port(side)), it->ports[channel].c_str());
            return rc == EEXIST ? 0 : rc;
        };
        if (left != right)
            if (int rc = connect(0, left)) return LiveMonitorError::channelMapFailed(rc);
        if (int rc = connect(1, right)) return LiveMonitorError::channelMapFailed(rc);
        // So that the first block rendered reaches the device rather than the old route.
        client->waitTwoCycles();
        return std::unique_ptr<OutputStream>(std::move(stream));
    }

private:
    // The live connection, made again when the server went away and another answers now.
    std::shared_ptr<JackClient> connected(int& status) {
        std::lock_guard lock(mutex_);
        if (!client_ || !client_->alive()) client_ = JackClient::connect(events_, status);
        return client_;
    }

    OutputEvents& events_;
    std::mutex mutex_;
    std::shared_ptr<JackClient> client_;
};

}  // namespace

std::unique_ptr<OutputBackend> openJackBackend(OutputEvents& events) {
    int status = 0;
    auto client = JackClient::connect(events, status);
    if (!client) return nullptr;
    return std::make_unique<JackBackend>(events, std::move(client));
}

}  // namespace velmora
