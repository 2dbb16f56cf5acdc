#pragma once
// An ALSA PCM opened with all its channels, silence written on all but the chosen two, fed by a
// render thread of its own.
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "audio/OutputBackend.h"

namespace velmora {

// Opens the PCM named `pcm` for playback with `channels` channels, the left signal on `left`
// and the right one on `right` (0-based, within range). `closed` runs when the stream is
// destroyed, after the PCM is closed.
Expected<std::unique_ptr<OutputStream>, LiveMonitorError> openAlsaStream(const std::string& pcm, unsigned channels,
                                                                        std::size_t left, std::size_t right,
                                                                        OutputEvents& events,
                                                                        std::function<void()> closed);

}  // namespace velmora
