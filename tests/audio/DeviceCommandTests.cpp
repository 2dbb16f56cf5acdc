// velmora-cli devices and tone against a private JACK server and a probe client.
#include <gtest/gtest.h>

#include "audio/JackFixture.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using test::expectTheTone;
using test::nonZeroCount;
using test::ProbeClient;

constexpr std::size_t probeCapacity = 12 * 48000;  // frames

using DeviceCommands = test::WithPrivateJackServer<48000>;

TEST_F(DeviceCommands, ListTheDevicesAndPlayTheToneOnTheChosenChannels) {
    ProbeClient probe(server->name(), "probe", 8, probeCapacity);
    ASSERT_TRUE(probe.open());
    const std::string cli = "timeout 30 " + test::shellQuote(VELMORA_CLI_PATH);
    const auto listed = test::runCommand(cli + " devices --json");
    EXPECT_EQ(listed.exitCode, 0) << listed.err;
    EXPECT_NE(listed.out.find("{\"uid\":\"JACK:probe\",\"name\":\"probe\",\"outputChannels\":8,\"channelNames\":"
                              "[\"in_1\",\"in_2\",\"in_3\",\"in_4\",\"in_5\",\"in_6\",\"in_7\",\"in_8\"]}\n"),
              std::string::npos)
        << listed.out;

    const auto played = test::runCommand(cli + " tone --device JACK:probe --channels 5,6");
    EXPECT_EQ(played.exitCode, 0) << played.out << played.err;
    EXPECT_EQ(played.out, "Test 1 kHz sur probe ✓\n");
    ASSERT_TRUE(probe.receiveMore());
    for (int port : {4, 5}) {
        SCOPED_TRACE("port " + std::to_string(port + 1));
        expectTheTone(probe.recorded(port));
    }
    for (int port : {0, 1, 2, 3, 6, 7}) EXPECT_EQ(nonZeroCount(probe.recorded(port)), 0u) << "port " << port + 1;

    const auto missing = test::runCommand(cli + " tone --device JACK:nowhere");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, "Monitoring : Carte son introuvable (UID JACK:nowhere). Vérifiez qu'elle est connectée et "
                           "reconnue par le système.\n");
}

}  // namespace
}  // namespace velmora
