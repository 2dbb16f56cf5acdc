#pragma once
// One private JACK server per test suite (rig/JackRig.h), named to libjack during each test.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "audio/OutputTestSupport.h"
#include "rig/JackRig.h"

namespace velmora::test {

using rig::PrivateJackServer;
using rig::ProbeClient;

// A server at `rate` Hz, 256 frames per period, synchronous; its name is in JACK_DEFAULT_SERVER
// during each test, where libjack reads it, for the monitor and for velmora-cli alike.
template <int rate>
class WithPrivateJackServer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { server = std::make_unique<PrivateJackServer>(PrivateJackServer::Options{rate}); }
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
