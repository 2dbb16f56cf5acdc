// What a WAV master keeps of its source, read back by readers other than Velmora's own:
// libsndfile's channel map, broadcast info and chunk API, and MediaInfo.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <numbers>

#include "support/TestSupport.h"

using namespace velmora::test;
namespace fs = std::filesystem;

namespace {

const std::string cli = VELMORA_CLI_PATH;

using SndFile = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;
using BroadcastInfo = SF_BROADCAST_INFO_VAR(4096);

SndFile openForReading(const fs::path& file) {
    SF_INFO info{};
    return {sf_open(file.c_str(), SFM_READ, &info), &sf_close};
}

std::vector<int> channelMap(const fs::path& file, int channels) {
    SndFile f = openForReading(file);
    std::vector<int> map(std::size_t(channels), 0);
    if (!f || sf_command(f.get(), SFC_GET_CHANNEL_MAP_INFO, map.data(), int(map.size() * sizeof(int))) != SF_TRUE) return {};
    return map;
}

std::unique_ptr<BroadcastInfo> broadcastInfo(const fs::path& file) {
    SndFile f = openForReading(file);
    auto info = std::make_unique<BroadcastInfo>();
    if (!f || sf_command(f.get(), SFC_GET_BROADCAST_INFO, info.get(), sizeof(BroadcastInfo)) != SF_TRUE) return nullptr;
    return info;
}

std::string chunk(const fs::path& file, const char* id) {
    SndFile f = openForReading(file);
    SF_CHUNK_INFO wanted{};
    std::strcpy(wanted.id, id);
    wanted.id_size = 4;
    SF_CHUNK_ITERATOR* it = f ? sf_get_chunk_iterator(f.get(), &wanted) : nullptr;
    if (!it) return {};
    SF_CHUNK_INFO found{};
    sf_get_chunk_size(it, &found);
    std::string data(found.datalen, '\0');
    found.data = data.data();
    sf_get_chunk_data(it, &found);
    return data;
}

std::string mediainfo(const fs::path& file, const std::string& inform) {
    return runCommand("mediainfo --Inform=" + shellQuote(inform) + " " + shellQuote(file.string())).out;
}

QJsonObject analyseJson(const fs::path& file) {
    const auto r = runCommand(cli + " analyse --json " + shellQuote(file.string()));
    return QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object();
}

std::string text(const char* field, std::size_t size) { return {field, strnlen(field, size)}; }

// A stereo source as a broadcaster's file holds it: bext with a timecode of 10:00:00:00 at
// 48 kHz, a coding history and loudness fields, and iXML and axml chunks.
const std::string ixml = "<?xml version=\"1.0\"?><BWFXML><PROJECT>Conform</PROJECT><SCENE>12A</SCENE></BWFXML>";
const std::string axml = "<ebuCoreMain><coreMetadata><title>Reel 3</title></coreMetadata></ebuCoreMain>";
constexpr std::uint32_t tenHours = 10u * 3600u * 48000u;

void writeBroadcastSource(const fs::path& file) {
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SndFile f(sf_open(file.c_str(), SFM_WRITE, &info), &sf_close);
    ASSERT_TRUE(f);
    auto b = std::make_unique<BroadcastInfo>();
    std::memset(b.get(), 0, sizeof(BroadcastInfo));
    std::strcpy(b->description, "Reel 3 dialogue stem");
    std::strcpy(b->originator, "Studio B");
    std::strcpy(b->originator_reference, "FRSTB000012345");
    std::memcpy(b->origination_date, "2024-05-01", 10);
    std::memcpy(b->origination_time, "09:30:00", 8);
    b->time_reference_low = tenHours;
    b->loudness_value = -2740;  // what the file claims, far from what it measures
    b->loudness_range = 520;
    b->max_true_peak_level = -310;
    b->max_momentary_loudness = -1800;
    b->max_shortterm_loudness = -2100;
    const char history[] = "A=PCM,F=48000,W=24,M=stereo,T=Recorder\r\n";
    std::strcpy(b->coding_history, history);
    b->coding_history_size = sizeof(history) - 1;
    ASSERT_EQ(sf_command(f.get(), SFC_SET_BROADCAST_INFO, b.get(), sizeof(BroadcastInfo)), SF_TRUE);
    for (const auto& [id, data] : {std::pair{"iXML", ixml}, std::pair{"axml", axml}}) {
        SF_CHUNK_INFO c{};
        std::strcpy(c.id, id);
        c.id_size = 4;
        c.datalen = unsigned(data.size());
        c.data = const_cast<char*>(data.data());
        ASSERT_EQ(sf_set_chunk(f.get(), &c), SF_ERR_NO_ERROR);
    }
    std::vector<float> frames(48000 * 6 * 2);
    for (std::size_t i = 0; i < frames.size() / 2; ++i)
        frames[2 * i] = frames[2 * i + 1] = float(0.05 * std::sin(2 * std::numbers::pi * 997 * double(i) / 48000));
    ASSERT_EQ(sf_writef_float(f.get(), frames.data(), sf_count_t(frames.size() / 2)), sf_count_t(frames.size() / 2));
}

TEST(ChannelMask, SideSurroundsStaySideSurroundsThroughMasterAndBatch) {
    ScratchDir dir;
    const fs::path source = dir / "stem51.wav";
    ASSERT_TRUE(ffmpeg("-f lavfi -i \"aevalsrc=0.2*sin(2*PI*440*t)|0.2*sin(2*PI*550*t)|0.2*sin(2*PI*660*t)|"
                       "0.1*sin(2*PI*50*t)|0.1*sin(2*PI*770*t)|0.1*sin(2*PI*880*t):s=48000:d=4:c=5.1(side)\" "
                       "-c:a pcm_s24le " + shellQuote(source.string())));
    const std::vector<int> side{SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE,
                                SF_CHANNEL_MAP_SIDE_LEFT, SF_CHANNEL_MAP_SIDE_RIGHT};
    ASSERT_EQ(channelMap(source, 6), side) << "the source is not what this test is about";

    const auto master = runCommand(cli + " master " + shellQuote(source.string()) + " -o " +
                                   shellQuote((dir / "master.wav").string()));
    ASSERT_EQ(master.exitCode, 0) << master.out << master.err;
    const auto batch = runCommand(cli + " batch " + shellQuote(source.string()) + " -o " + shellQuote((dir / "out").string()));
    ASSERT_EQ(batch.exitCode, 0) << batch.out << batch.err;
    const fs::path batched = dir / "out" / "stem51_master_-23LUFS_LRA0.wav";

    for (const fs::path& written : {dir / "master.wav", batched}) {
        EXPECT_EQ(channelMap(written, 6), side) << written;
        const std::string positions = mediainfo(written, "Audio;%ChannelPositions%");
        EXPECT_NE(positions.find("Side: L R"), std::string::npos) << written << ": " << positions;
        EXPECT_EQ(positions.find("Back"), std::string::npos) << written << ": " << positions;
    }
}

TEST(BroadcastWave, SourceMetadataKeptTimecodeScaledAndTheMastersOwnLoudnessWritten) {
    ScratchDir dir;
    const fs::path source = dir / "reel3.wav";
    writeBroadcastSource(source);

    // What the source claims is shown beside what it measures.
    const QJsonObject claimed = analyseJson(source)["bextLoudness"].toObject();
    EXPECT_DOUBLE_EQ(claimed["integratedLUFS"].toDouble(), -27.4);
    EXPECT_DOUBLE_EQ(claimed["loudnessRange"].toDouble(), 5.2);
    EXPECT_DOUBLE_EQ(claimed["maxTruePeakDB"].toDouble(), -3.1);
    EXPECT_DOUBLE_EQ(claimed["maxShortTermLUFS"].toDouble(), -21.0);
    const auto human = runCommand(cli + " analyse " + shellQuote(source.string()));
    EXPECT_NE(human.out.find("bext : -27.4 LUFS · LRA 5.2 LU · TP -3.1 dBTP"), std::string::npos) << human.out;

    const fs::path master = dir / "reel3_master.wav";
    const auto r = runCommand(cli + " master " + shellQuote(source.string()) + " -o " + shellQuote(master.string()) +
                              " --target -16 --ceiling -1 --rate 96000");
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;

    const auto b = broadcastInfo(master);
    ASSERT_TRUE(b) << "no bext chunk";
    EXPECT_EQ(b->version, 2);
    EXPECT_EQ(text(b->description, 256), "Reel 3 dialogue stem");
    EXPECT_EQ(text(b->originator, 32), "Studio B");
    EXPECT_EQ(text(b->originator_reference, 32), "FRSTB000012345");
    EXPECT_EQ(text(b->origination_date, 10), "2024-05-01");
    EXPECT_EQ(text(b->origination_time, 8), "09:30:00");
    // 10:00:00:00 at 96 kHz.
    EXPECT_EQ((std::uint64_t(b->time_reference_high) << 32) | b->time_reference_low, std::uint64_t(tenHours) * 2);
    const std::string history = text(b->coding_history, b->coding_history_size);
    EXPECT_EQ(history.rfind("A=PCM,F=48000,W=24,M=stereo,T=Recorder\r\n", 0), 0u) << history;
    EXPECT_NE(history.find("\r\nA=PCM,F=96000,W=24,M=stereo,T=Velmora 0.1.0; norm EBU; target -16.0 "
                           "LUFS; ceiling -1.0 dBTP\r\n"),
              std::string::npos)
        << history;

    // The loudness fields are the master's as measured in the file, not the source's claims.
    const QJsonObject measured = analyseJson(master);
    EXPECT_NEAR(b->loudness_value / 100.0, measured["integratedLUFS"].toDouble(), 0.011);
    EXPECT_NEAR(b->loudness_value / 100.0, -16.0, 0.11);
    EXPECT_NEAR(b->loudness_range / 100.0, measured["loudnessRange"].toDouble(), 0.011);
    EXPECT_NEAR(b->max_true_peak_level / 100.0, measured["truePeakDB"].toDouble(), 0.011);
    EXPECT_LE(b->max_true_peak_level, -100);
    EXPECT_NEAR(b->max_momentary_loudness / 100.0, measured["momentaryMax"].toDouble(), 0.011);
    EXPECT_NEAR(b->max_shortterm_loudness / 100.0, measured["shortTermMax"].toDouble(), 0.011);

    // iXML and axml as they were (libsndfile pads the chunks it writes to four bytes).
    EXPECT_EQ(chunk(master, "iXML").substr(0, ixml.size()), ixml);
    EXPECT_EQ(chunk(master, "axml").substr(0, axml.size()), axml);

    // The batch (the window's own job) shows the source's claim in its info line and writes the
    // same metadata.
    const auto batch = runCommand(cli + " batch " + shellQuote(source.string()) + " --target -16 -o " +
                                  shellQuote((dir / "batch").string()));
    ASSERT_EQ(batch.exitCode, 0) << batch.out << batch.err;
    EXPECT_NE(batch.out.find("reel3.wav : Prêt · 0:06 · stéréo · 48.0 kHz · bext : -27.4 LUFS"), std::string::npos)
        << batch.out;
    const auto batched = broadcastInfo(dir / "batch" / "reel3_master_-16LUFS_LRA0.wav");
    ASSERT_TRUE(batched);
    EXPECT_EQ(text(batched->originator, 32), "Studio B");
    EXPECT_EQ((std::uint64_t(batched->time_reference_high) << 32) | batched->time_reference_low, std::uint64_t(tenHours));
    EXPECT_NEAR(batched->loudness_value / 100.0, -16.0, 0.11);

    // MediaInfo reads the same.
    EXPECT_EQ(mediainfo(master, "General;%Description%"), "Reel 3 dialogue stem\n");
    EXPECT_EQ(mediainfo(master, "General;%Producer%"), "Studio B\n");
    const std::string mi = runCommand("mediainfo --Full " + shellQuote(master.string())).out;
    EXPECT_NE(mi.find("T=Velmora 0.1.0"), std::string::npos) << mi;
    EXPECT_NE(mi.find("10:00:00"), std::string::npos) << "timecode\n" << mi;
}

TEST(BroadcastWave, ASourceWithoutMetadataGetsVelmorasAndAMasterWithoutASourceWithoutBext) {
    ScratchDir dir;
    const fs::path source = dir / "plain.wav";
    std::vector<float> x(48000 * 4);
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(0.1 * std::sin(2 * std::numbers::pi * 440 * double(i) / 48000));
    writeFloatWav(source, {x, x}, 48000);
    EXPECT_TRUE(analyseJson(source)["bextLoudness"].isNull());

    const auto r = runCommand(cli + " master " + shellQuote(source.string()) + " -o " + shellQuote((dir / "m.wav").string()) +
                              " --bits 16");
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    const auto b = broadcastInfo(dir / "m.wav");
    ASSERT_TRUE(b);
    EXPECT_EQ(text(b->originator, 32), "Velmora");
    EXPECT_EQ(text(b->description, 256), "plain.wav");
    const std::string date = text(b->origination_date, 10), time = text(b->origination_time, 8);
    ASSERT_EQ(date.size(), 10u);
    ASSERT_EQ(time.size(), 8u);
    std::tm parts{};
    EXPECT_NE(strptime((date + " " + time).c_str(), "%Y-%m-%d %H:%M:%S", &parts), nullptr) << date << ' ' << time;
    EXPECT_EQ((std::uint64_t(b->time_reference_high) << 32) | b->time_reference_low, 0u);
    const std::string history = text(b->coding_history, b->coding_history_size);
    EXPECT_EQ(history.rfind("A=PCM,F=48000,W=16,M=stereo,T=Velmora 0.1.0; ", 0), 0u) << history;
    EXPECT_NEAR(b->loudness_value / 100.0, -23.0, 0.11);
    // The master's bext loudness is shown when it is analysed.
    EXPECT_NEAR(analyseJson(dir / "m.wav")["bextLoudness"].toObject()["integratedLUFS"].toDouble(), -23.0, 0.11);

    // An AIFF master has no bext.
    const auto aiff = runCommand(cli + " master " + shellQuote(source.string()) + " -o " +
                                 shellQuote((dir / "m.aif").string()));
    ASSERT_EQ(aiff.exitCode, 0) << aiff.err;
    EXPECT_FALSE(broadcastInfo(dir / "m.aif"));
}

}  // namespace
