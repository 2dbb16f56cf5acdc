// A video master is the source's picture, packet for packet and the right way up, under the
// master's samples cut where the picture ends. Whatever cannot be made leaves the earlier movie
// and nothing else.
#include <string_view>

#include "output/OutputTestSupport.h"
#include "output/VideoRemux.h"

namespace velmora {
namespace {

using namespace test;
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Fields = std::map<std::string, std::string>;

const char* const cannotWriteText = "Impossible d'écrire le fichier de sortie (vérifiez l'espace disque et les permissions).";
// A source without a picture is no disk failure.
const char* const noPictureText = "Image de la vidéo source impossible à reprendre telle quelle dans un fichier .mov.";

// Each stream of a file as ffprobe reads it, its rotation included.
std::vector<Fields> streams(const fs::path& file) {
    const auto r = runCommand("ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets,start_pts,"
                              "duration_ts:stream_side_data=rotation " + shellQuote(file.string()));
    std::vector<Fields> all;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);)
        if (line == "[STREAM]") all.emplace_back();
        else if (auto eq = line.find('='); eq != std::string::npos && !all.empty()) all.back()[line.substr(0, eq)] = line.substr(eq + 1);
    return all;
}

std::string ffmpegOutput(const fs::path& file, const std::string& arguments) {
    return runCommand("ffmpeg -nostdin -v error -i " + shellQuote(file.string()) + " " + arguments + " -").out;
}

class VideoRemux : public ::testing::Test {
protected:
    static inline ScratchDir* media = nullptr;
    static fs::path in(const std::string& name) { return media->path() / name; }

    static void SetUpTestSuite() {
        media = new ScratchDir;
        auto at = [](const char* name) { return shellQuote(in(name).string()); };
        const std::string picture = "-f lavfi -i testsrc=s=160x120:r=25:d=4 ", tone = "-f lavfi -i sine=f=997:d=";
        for (const std::string& arguments : {
                 picture + tone + "4 -c:v libx264 -preset ultrafast -c:a aac " + at("picture.mp4"),
                 "-i " + at("picture.mp4") + " -c copy -metadata:s:v:0 rotate=90 " + at("rotated.mov"),
                 "-i " + at("picture.mp4") + " -c copy -an " + at("mute.mp4"),
                 picture + tone + "4 -c:v mpeg4 -c:a mp2 " + at("late.ts"),  // its clock starts near 1.4 s
                 tone + "6:sample_rate=48000 -ac 2 -c:a pcm_s24le " + at("long24.wav"),
                 tone + "2.5:sample_rate=44100 -c:a pcm_s16le " + at("short16.wav"),
                 tone + "5:sample_rate=48000 -ac 2 -c:a pcm_f32le " + at("float.wav"),
                 tone + "3:sample_rate=96000 -ac 6 -c:a pcm_s24le " + at("surround96.wav"),
                 tone + "3 -c:a aac " + at("compressed.m4a")})
            ASSERT_TRUE(ffmpeg(arguments)) << arguments;
        std::ofstream(in("cut.mp4"), std::ios::binary) << contents(in("picture.mp4")).substr(0, 2000);
    }
    static void TearDownTestSuite() { delete media; }

    ScratchDir out;
};

struct Master {
    const char* file;
    const char* samples;  // raw format of its PCM
    std::size_t frameBytes, keptFrames;
};
void PrintTo(const Master& m, std::ostream* os) { *os << m.file; }

class VideoRemuxMasters : public VideoRemux, public ::testing::WithParamInterface<Master> {};

TEST_P(VideoRemuxMasters, ReplaceTheEarlierMovieWithThePictureUntouchedAndTheMasterUpToItsEnd) {
    const Master m = GetParam();
    std::ofstream(out / "m.mov") << "old movie";
    const auto failure = remuxVideoMaster(in("rotated.mov"), in(m.file), out / "m.mov");
    ASSERT_FALSE(failure) << failure->message;
    EXPECT_EQ(folderEntries(out.path()), Strings{"m.mov"});

    auto s = streams(out / "m.mov"), source = streams(in("rotated.mov"));
    ASSERT_EQ(s.size(), 2u);  // the source's own sound stays behind
    EXPECT_EQ(s[0]["nb_read_packets"], "100");
    ASSERT_NE(source[0]["rotation"], "");
    EXPECT_EQ(s[0]["rotation"], source[0]["rotation"]);
    const std::string packets = "-map 0:v -c copy -f hash";
    EXPECT_EQ(ffmpegOutput(out / "m.mov", packets), ffmpegOutput(in("rotated.mov"), packets));

    EXPECT_EQ(s[1]["codec_name"], "pcm_" + std::string(m.samples));
    const std::string sound = ffmpegOutput(out / "m.mov", "-f " + std::string(m.samples));
    const std::string master = ffmpegOutput(in(m.file), "-f " + std::string(m.samples));
    ASSERT_EQ(sound.size(), m.keptFrames * m.frameBytes);
    EXPECT_TRUE(sound == master.substr(0, sound.size()));
}

INSTANTIATE_TEST_SUITE_P(Formats, VideoRemuxMasters,
                         ::testing::Values(Master{"long24.wav", "s24le", 6, 4 * 48000},
                                           Master{"short16.wav", "s16le", 2, 110250},
                                           Master{"float.wav", "f32le", 8, 4 * 48000},
                                           Master{"surround96.wav", "s24le", 18, 3 * 96000}));

TEST_F(VideoRemux, PictureAndSoundStartTogetherWhateverTheSourceClock) {
    ASSERT_NE(streams(in("late.ts"))[0]["start_pts"], "0");
    const auto failure = remuxVideoMaster(in("late.ts"), in("long24.wav"), out / "m.mov");
    ASSERT_FALSE(failure) << failure->message;
    auto s = streams(out / "m.mov");
    EXPECT_EQ(s[0]["start_pts"], "0");
    EXPECT_EQ(s[0]["nb_read_packets"], "100");
    EXPECT_EQ(s[1]["duration_ts"], "192000");
}

TEST_F(VideoRemux, FailuresLeaveTheEarlierMovieAndNothingElse) {
    SmallDisk disk(out / "small");  // room for the earlier movie, not for a new one
    const fs::path movie = out / "small" / "m.mov";
    std::ofstream(movie) << "old movie";
    const struct {
        const char *source, *master, *message;  // no message: a full disk, told in French
    } cases[] = {
        {"short16.wav", "short16.wav", noPictureText},
        {"rotated.mov", "mute.mp4", cannotWriteText},     // no sound
        {"rotated.mov", "compressed.m4a", cannotWriteText},
        {"missing.mov", "short16.wav", "Vidéo impossible à réassembler : fichier ou périphérique introuvable."},
        {"cut.mp4", "short16.wav", "Vidéo impossible à réassembler : fichier vidéo illisible ou endommagé."},
        {"rotated.mov", "long24.wav", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.source) + " under " + c.master);
        if (!c.message && !disk.active()) continue;
        const auto failure = remuxVideoMaster(in(c.source), in(c.master), movie);
        ASSERT_TRUE(failure);
        if (c.message) EXPECT_EQ(failure->message, c.message);
        else EXPECT_EQ(failure->message, "Vidéo impossible à réassembler : disque plein.");
        EXPECT_EQ(failure->error.has_value(),
                  c.message && (std::string_view(c.message) == cannotWriteText || std::string_view(c.message) == noPictureText));
        EXPECT_EQ(contents(movie), "old movie");
        EXPECT_EQ(folderEntries(movie.parent_path()), Strings{"m.mov"});
    }
}

}  // namespace
}  // namespace velmora
