#include "support/TestSupport.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <sys/wait.h>

namespace velmora::test {

ScratchDir::ScratchDir() {
    std::random_device rd;
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto candidate = std::filesystem::temp_directory_path() / ("velmora-test-" + std::to_string(rd()));
        if (std::filesystem::create_directory(candidate)) {
            path_ = candidate;
            return;
        }
    }
    throw std::runtime_error("cannot create a scratch folder");
}

ScratchDir::~ScratchDir() {
    std::error_code ec;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
}

std::string shellQuote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        if (c == '\'') q += "'\\''";
        else q += c;
    }
    return q + "'";
}

CommandResult runCommand(const std::string& command) {
    ScratchDir dir;
    auto errFile = dir / "stderr";
    std::string full = command + " 2>" + shellQuote(errFile.string());
    CommandResult r;
    FILE* pipe = popen(full.c_str(), "r");
    if (!pipe) return r;
    std::array<char, 4096> buf;
    std::size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) r.out.append(buf.data(), n);
    int status = pclose(pipe);
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(errFile, std::ios::binary);
    r.err.assign(std::istreambuf_iterator<char>(err), {});
    return r;
}

bool ffmpeg(const std::string& arguments) {
    return runCommand("ffmpeg -nostdin -hide_banner -loglevel error -y " + arguments).exitCode == 0;
}

void writeFloatWav(const std::filesystem::path& file, const std::vector<std::vector<float>>& channels,
                   int sampleRate) {
    const std::uint32_t nch = std::uint32_t(channels.size());
    const std::uint32_t frames = channels.empty() ? 0 : std::uint32_t(channels[0].size());
    const std::uint32_t dataBytes = frames * nch * 4;
    std::ofstream f(file, std::ios::binary);
    auto u32 = [&](std::uint32_t v) { f.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](std::uint16_t v) { f.write(reinterpret_cast<const char*>(&v), 2); };
    f.write("RIFF", 4);
    u32(36 + dataBytes);
    f.write("WAVEfmt ", 8);
    u32(16);
    u16(3);  // IEEE float
    u16(std::uint16_t(nch));
    u32(std::uint32_t(sampleRate));
    u32(std::uint32_t(sampleRate) * nch * 4);
    u16(std::uint16_t(nch * 4));
    u16(32);
    f.write("data", 4);
    u32(dataBytes);
    for (std::uint32_t i = 0; i < frames; ++i)
        for (std::uint32_t c = 0; c < nch; ++c) f.write(reinterpret_cast<const char*>(&channels[c][i]), 4);
}

}  // namespace velmora::test
