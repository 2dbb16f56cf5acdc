#pragma once
// Decoding of audio files and of the first audio stream of videos into PlanarAudio,
// at the file's own rate and channel order, through FFmpeg.
#include <cstddef>
#include <string>
#include <vector>
#include <string_view>

#include "audio/LoudnessError.h"
#include "audio/PlanarAudio.h"

namespace velmora {

// Lets a caller work on the decoded frames while decoding goes on (the measurement of a
// long file overlaps its decoding). Called on the decoding thread.
class DecodeListener {
public:
    virtual ~DecodeListener() = default;
    // Channels are allocated and the rate is known. `expectedFrames` is what the file announces,
    // 0 when it does not say; the decoded length may differ either way (a pipe, a padded block).
    virtual void started(const PlanarAudio& audio, std::size_t expectedFrames) = 0;
    // Frames [begin, end) of every channel hold their final values. The listener may start
    // work that reads them and return at once.
    virtual void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) = 0;
    // Every piece of work started from framesDecoded must have finished when this returns:
    // the reader is about to move or resize the channels, or to hand them back.
    virtual void quiesce() = 0;
    // False when the listener only needs to see every frame once: the reader then decodes
    // through a small reused window instead of the whole file, and hands back channels that
    // are empty (their count and the rate still tell the format).
    virtual bool keepsSamples() const { return true; }
    // False once the listener wants nothing more: the reader stops decoding and reports
    // cannotRead, which the listener that asked can ignore.
    virtual bool wantsMore() const { return true; }
};

// Every extension Velmora accepts (lower case, without the dot): audio files, then the videos
// whose sound is read through the video path.
std::vector<std::string_view> acceptedExtensions();
bool isAcceptedExtension(const std::string& path);
bool isVideoPath(const std::string& path);

Expected<PlanarAudio> readAudioFile(const std::string& path, DecodeListener* listener = nullptr);
Expected<PlanarAudio> readVideoAudio(const std::string& path, DecodeListener* listener = nullptr);
// readVideoAudio for videos, readAudioFile for everything else.
Expected<PlanarAudio> loadAudio(const std::string& path, bool isVideo, DecodeListener* listener = nullptr);

}  // namespace velmora
