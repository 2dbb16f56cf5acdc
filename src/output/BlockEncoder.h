#pragma once
// Turns planar float blocks into the file's interleaved sample bytes and writes them: workers
// quantise and pack the next block while this thread writes the previous one and shows it to
// the observer. Nothing is allocated once constructed.
#include <cstddef>
#include <vector>

#include "measurement/WorkerPool.h"
#include "output/OutputFormat.h"

namespace velmora {

class SampleObserver;

class BlockEncoder {
public:
    // `write` stores whole frames of packed bytes and says whether all of them were stored.
    using WriteFn = bool (*)(void* context, const unsigned char* bytes, std::size_t count);

    BlockEncoder(std::size_t channels, BitDepth depth, bool bigEndian, SampleObserver* observer, WriteFn write,
                 void* context);
    // Encodes every frame of `in` before returning (the caller may then reuse it); the last
    // block may stay pending until the next push or finish().
    bool push(const float* const* in, std::size_t frames);
    bool finish();

    static constexpr std::size_t blockFrames = 65536;

private:
    struct Block {
        std::vector<unsigned char> bytes;
        std::vector<float> stored;  // planar, what the file holds, for the observer
        std::vector<const float*> channels;
        std::size_t frames = 0;
    };
    void encode(Block& block, const float* const* in, std::size_t from, std::size_t to) const;
    bool flush(Block& block);

    std::size_t channels_, sampleBytes_;
    BitDepth depth_;
    bool bigEndian_;
    SampleObserver* observer_;
    WriteFn write_;
    void* context_;
    Block blocks_[2];
    int pending_ = -1;  // block encoded but not yet written
    // The job the workers run, kept here so starting it allocates nothing.
    std::vector<const float*> jobInput_;
    Block* jobBlock_ = nullptr;
    std::size_t jobTasks_ = 1;
    WorkerPool pool_;
};

}  // namespace velmora
