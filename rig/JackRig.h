#pragma once
// A private JACK server on the dummy driver, and a probe client that records what reaches its
// input ports: the real parts the output tests and the xrun benchmark play into. No test
// framework here, so the benchmarks link it too.
#include <jack/jack.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velmora::rig {

// Polls `done` every 10 ms for at most `timeout`; its last answer.
bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

// jackd on the dummy driver under a name of its own, so it never meets the user's server.
// Killed with the process that started it whatever happens.
class PrivateJackServer {
public:
    struct Options {
        int sampleRate = 48000;   // Hz
        int periodFrames = 256;
        // The server waits for a late client instead of dropping its block (-S): what the
        // output tests need on a busy machine without real-time scheduling. The xrun benchmark
        // runs the default asynchronous mode, which drops.
        bool synchronous = true;
        // Real-time scheduling (-R), where the machine grants it; without it a busy machine
        // makes the server late on its own.
        bool realtime = false;
    };
    explicit PrivateJackServer(Options options);
    ~PrivateJackServer();
    PrivateJackServer(const PrivateJackServer&) = delete;
    PrivateJackServer& operator=(const PrivateJackServer&) = delete;

    // Accepted a client within 10 s.
    bool running() const { return running_; }
    const std::string& name() const { return name_; }
    // The server's command line, for reports.
    const std::string& command() const { return command_; }

private:
    void start(Options options);

    std::string name_;
    std::string command_;
    int slotLock_ = -1;
    pid_t pid_ = -1;
    bool running_ = false;
};

// A client with `ports` audio inputs "in_1" … copying each block into memory until
// `capacityFrames` have arrived, and counting the server's xruns. With no port it only counts.
class ProbeClient {
public:
    ProbeClient(const std::string& server, const std::string& name, int ports, std::size_t capacityFrames);
    ~ProbeClient() { close(); }
    ProbeClient(const ProbeClient&) = delete;
    ProbeClient& operator=(const ProbeClient&) = delete;

    bool open() const { return client_ != nullptr; }
    void close();
    std::vector<std::string> portNames() const;
    // Renames port `index` (0-based) while the probe runs, as a patchbay would.
    bool renamePort(int index, const std::string& name);
    std::size_t frames() const { return written_.load(std::memory_order_acquire); }
    // Cycles the server reported late since the probe opened (the test server has no real-time
    // scheduling): worth knowing when a comparison fails, and what the xrun benchmark counts.
    int xruns() const { return xruns_.load(); }
    // Waits (at most 5 s) for `more` frames past what has arrived: a block rendered before the
    // call may reach the probe a few cycles later.
    bool receiveMore(std::size_t more = 4096) const;
    // What port `index` (0-based) received, from the first block on.
    std::vector<float> recorded(int index) const;

private:
    static int process(jack_nframes_t frames, void* self);

    jack_client_t* client_ = nullptr;
    std::vector<jack_port_t*> ports_;
    std::vector<std::vector<float>> buffers_;
    std::atomic<std::size_t> written_{0};
    std::atomic<int> xruns_{0};
    std::atomic<std::uint64_t> cycles_{0};
};

}  // namespace velmora::rig
