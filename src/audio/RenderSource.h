#pragma once
// What an output stream pulls from on its real-time thread: two planar float blocks per call.
#include <cstddef>

namespace velmora {

class RenderSource {
public:
    virtual ~RenderSource() = default;
    // Fills `frames` frames of both channels; never allocates, blocks or throws.
    virtual void render(std::size_t frames, float* left, float* right) noexcept = 0;
};

}  // namespace velmora
