#pragma once
// A programme read from its first frame to its last, block after block, as many times as a
// master needs: from samples already in memory, or decoded again from its file. A master made
// from the file holds a few blocks of it rather than the programme, whatever its length, and
// decoding runs on a thread of its own, ahead of the work that uses the blocks.
#include <cstddef>
#include <memory>
#include <string>

#include "audio/LoudnessError.h"
#include "audio/PlanarAudio.h"

namespace velmora {

// One reading of a programme from its start.
class ProgrammePass {
public:
    static constexpr std::size_t maxBlockFrames = 65536;

    virtual ~ProgrammePass() = default;
    // The next n frames of every channel (n at most maxBlockFrames, never past the end), one
    // pointer per channel; the caller may change them in place. Valid until the next call.
    // Null when the programme could not be read: error() then says why.
    virtual float* const* next(std::size_t n) = 0;
    virtual LoudnessError error() const = 0;
};

class Programme {
public:
    virtual ~Programme() = default;
    virtual std::size_t channelCount() const = 0;
    virtual std::size_t frameCount() const = 0;
    virtual double sampleRate() const = 0;
    // Allocates the pass's blocks (and, for a file, starts decoding).
    virtual std::unique_ptr<ProgrammePass> read() const = 0;
    // The whole programme, when it is in memory: the stages that need all of it at once use it.
    virtual const Channels* samples() const { return nullptr; }
};

// Samples already in memory, kept by reference.
class HeldProgramme final : public Programme {
public:
    HeldProgramme(const Channels& channels, double sampleRate) : channels_(channels), rate_(sampleRate) {}
    std::size_t channelCount() const override { return channels_.size(); }
    std::size_t frameCount() const override { return channels_.empty() ? 0 : channels_.front().size(); }
    double sampleRate() const override { return rate_; }
    std::unique_ptr<ProgrammePass> read() const override;
    const Channels* samples() const override { return &channels_; }

private:
    const Channels& channels_;
    double rate_;
};

// A file decoded again for every pass. Its shape is what its analysis found; a decode that
// gives anything else (the file was replaced since) fails with sourceChanged.
class FileProgramme final : public Programme {
public:
    FileProgramme(std::string path, bool isVideo, std::size_t channels, std::size_t frames, double sampleRate)
        : path_(std::move(path)), isVideo_(isVideo), channels_(channels), frames_(frames), rate_(sampleRate) {}
    std::size_t channelCount() const override { return channels_; }
    std::size_t frameCount() const override { return frames_; }
    double sampleRate() const override { return rate_; }
    std::unique_ptr<ProgrammePass> read() const override;

private:
    std::string path_;
    bool isVideo_;
    std::size_t channels_, frames_;
    double rate_;
};

// Every frame of a programme read into memory. Fails with tooLarge when memory runs out.
Expected<Channels> loadProgramme(const Programme& programme);

}  // namespace velmora
