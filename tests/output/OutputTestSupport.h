#pragma once
// Reading masters back through both libsndfile and FFmpeg, so a header only one of them
// understands does not pass.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sndfile.h>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <vector>

#include "output/MasterWriter.h"
#include "support/TestSupport.h"

namespace velmora::test {

struct SndfileView {
    SF_INFO info{};
    std::vector<int> map;  // empty when the file declares none
    Channels channels;     // full scale ±1
};

inline SndfileView readWithSndfile(const std::filesystem::path& file) {
    SndfileView v;
    SNDFILE* f = sf_open(file.c_str(), SFM_READ, &v.info);
    if (!f) {
        ADD_FAILURE() << "libsndfile cannot open " << file << ": " << sf_strerror(nullptr);
        return v;
    }
    std::vector<int> map(std::size_t(v.info.channels));
    if (sf_command(f, SFC_GET_CHANNEL_MAP_INFO, map.data(), int(map.size() * sizeof(int))) == SF_TRUE) v.map = map;
    std::vector<float> interleaved(std::size_t(v.info.frames * v.info.channels));
    sf_readf_float(f, interleaved.data(), v.info.frames);
    sf_close(f);
    v.channels.assign(std::size_t(v.info.channels), std::vector<float>(std::size_t(v.info.frames)));
    for (std::size_t i = 0; i < interleaved.size(); ++i) v.channels[i % v.channels.size()][i / v.channels.size()] = interleaved[i];
    return v;
}

// codec_name, sample_rate, channels, channel_layout of the first stream, as ffprobe sees it.
inline std::map<std::string, std::string> probe(const std::filesystem::path& file) {
    const auto r = runCommand("ffprobe -v error -select_streams a:0 -show_entries "
                              "stream=codec_name,sample_rate,channels,channel_layout -of default=nw=1 " +
                              shellQuote(file.string()));
    std::map<std::string, std::string> fields;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);)
        if (auto eq = line.find('='); eq != std::string::npos) fields[line.substr(0, eq)] = line.substr(eq + 1);
    return fields;
}

// Every block the writer hands out, joined back into channels.
struct RecordingObserver : SampleObserver {
    Channels seen;
    void samplesWritten(std::span<const float* const> channels, std::size_t frames) override {
        seen.resize(channels.size());
        for (std::size_t c = 0; c < channels.size(); ++c) seen[c].insert(seen[c].end(), channels[c], channels[c] + frames);
    }
};

inline std::vector<std::string> folderEntries(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    return names;
}

inline std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A 64 KiB file system when we may mount one, else a file-size limit: either way the write
// fails part-way through the file.
class SmallDisk {
public:
    explicit SmallDisk(const std::filesystem::path& at) : at_(at) {
        std::filesystem::create_directory(at);
        mounted_ = ::mount("tmpfs", at.c_str(), "tmpfs", 0, "size=64k") == 0;
        if (!mounted_ && ::getrlimit(RLIMIT_FSIZE, &saved_) == 0) {
            oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
            rlimit small = saved_;
            small.rlim_cur = 64 * 1024;
            limited_ = ::setrlimit(RLIMIT_FSIZE, &small) == 0;
        }
    }
    ~SmallDisk() {
        if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
        if (limited_) ::setrlimit(RLIMIT_FSIZE, &saved_);
        if (oldHandler_ != SIG_ERR) std::signal(SIGXFSZ, oldHandler_);
    }
    bool active() const { return mounted_ || limited_; }

private:
    std::filesystem::path at_;
    bool mounted_ = false, limited_ = false;
    rlimit saved_{};
    void (*oldHandler_)(int) = SIG_ERR;
};

}  // namespace velmora::test
