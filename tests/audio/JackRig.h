#pragma once
// A private JACK server on the dummy driver, and a probe client that records what reaches its
// input ports: the real parts the output tests play into.
#include <gtest/gtest.h>
#include <jack/jack.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "audio/OutputTestSupport.h"

namespace velmora::test {

// jackd --no-realtime on the dummy driver under a name of its own, so it never meets the
// user's server. Killed with the test process whatever happens.
class PrivateJackServer {
public:
    explicit PrivateJackServer(int sampleRate);
    ~PrivateJackServer();
    PrivateJackServer(const PrivateJackServer&) = delete;
    PrivateJackServer& operator=(const PrivateJackServer&) = delete;

    // Accepted a client within 10 s.
    bool running() const { return running_; }
    const std::string& name() const { return name_; }

private:
    std::string name_;
    pid_t pid_ = -1;
    bool running_ = false;
};

// A client with `ports` audio inputs "in_1" … copying each block into memory.
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
    // scheduling): worth knowing when a comparison fails.
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
};

// One private server at `rate` Hz for a whole test suite, named in JACK_DEFAULT_SERVER during
// each test: libjack reads it there, for the monitor and for velmora-cli alike.
template <int rate>
class WithPrivateJackServer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server = std::make_unique<PrivateJackServer>(rate); }
    static void TearDownTestSuite() { server.reset(); }
    void SetUp() override {
        ASSERT_TRUE(server->running()) << "jackd -d dummy did not start";
        serverName.emplace("JACK_DEFAULT_SERVER", server->name());
    }
    void TearDown() override { serverName.reset(); }

    static inline std::unique_ptr<PrivateJackServer> server;
    std::optional<ScopedEnv> serverName;
};

}  // namespace velmora::test
