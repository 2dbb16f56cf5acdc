#pragma once
// Shared helpers for tests: scratch folders, running commands, writing small WAV fixtures.
#include <filesystem>
#include <string>
#include <vector>

namespace velmora::test {

// A fresh folder under the system temp dir, removed when the object goes away.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

struct CommandResult {
    int exitCode = -1;
    std::string out;  // standard output
    std::string err;  // standard error
};

// Runs a shell command and captures its output streams.
CommandResult runCommand(const std::string& command);

// Runs the ffmpeg command-line tool quietly with the given arguments; true on success.
bool ffmpeg(const std::string& arguments);

// Writes interleaved float samples as a 32-bit float WAV (no channel mask).
void writeFloatWav(const std::filesystem::path& file, const std::vector<std::vector<float>>& channels,
                   int sampleRate);

std::string shellQuote(const std::string& s);

}  // namespace velmora::test
