#pragma once
// The one thing an output stream knows of what it plays, so the back ends stay free of mastering.
#include <cstddef>

namespace velmora {
// What an output stream pulls from on its real-time thread: two planar float blocks per call.
class RenderSource {
public:
    virtual ~RenderSource() = default;
    // Fills `frames` frames of both channels; never allocates, blocks or throws.
    virtual void render(std::size_t frames, float* left, float* right) noexcept = 0;
};
}
