#pragma once
// A video source gets its master back as a movie: the source's picture, untouched, under the
// mastered sound. Nothing is re-encoded, so the picture is bit for bit the source's.
#include <filesystem>
#include <optional>
#include <string>

#include "audio/LoudnessError.h"

namespace velmora {

// Why a video master was not made. Velmora's own refusals carry their LoudnessError and its
// French text; failures of reading the inputs or of writing the movie carry FFmpeg's own
// description with no error, since no LoudnessError says more than that text.
struct RemuxFailure {
    std::string message;                // what the user is shown, as it is
    std::optional<LoudnessError> error;  // when it is one of ours
};

// Writes `destination` as a QuickTime movie holding the first video track of `sourceVideo`
// (with its orientation) and the first audio track of `masterAudio`, an uncompressed PCM file
// such as the master writer's WAV. The sound is cut to the sample where the picture ends; a
// shorter master leaves the end of the picture silent. The source's own sound and any other
// track are left out. An existing destination is replaced only once the movie is complete.
//
// pictureNotCarried when the source has no picture or one a movie cannot carry as it is;
// cannotWrite when the master has no audio or cannot be carried (a compressed master).
std::optional<RemuxFailure> remuxVideoMaster(const std::filesystem::path& sourceVideo,
                                             const std::filesystem::path& masterAudio,
                                             const std::filesystem::path& destination);

}  // namespace velmora
