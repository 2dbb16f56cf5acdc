#pragma once
// A master is first written to a hidden file beside its destination and only renamed over it
// once complete and on disk, so a failed or interrupted write never leaves a truncated master
// nor costs the file that was there before.
#include <filesystem>
#include <optional>

#include "audio/LoudnessError.h"

namespace velmora {

class PendingFile {
public:
    // Creates the hidden file in the destination's folder.
    static Expected<PendingFile> create(const std::filesystem::path& destination);
    PendingFile(PendingFile&& other) noexcept;
    PendingFile& operator=(PendingFile&&) = delete;
    PendingFile(const PendingFile&) = delete;
    ~PendingFile();  // removes the hidden file unless it was committed

    int fd() const { return fd_; }
    const std::filesystem::path& path() const { return temp_; }
    // Starts writing back what has been written so far, so the final flush has little left.
    void startWriteback() const;
    // Flushes, closes and renames over the destination; on failure the hidden file is gone.
    std::optional<LoudnessError> commit();

private:
    PendingFile(int fd, std::filesystem::path temp, std::filesystem::path destination);
    void discard();

    int fd_ = -1;
    std::filesystem::path temp_, destination_;
};

// Folder refused → diskAccess; anything else (missing folder, full disk, I/O error) → cannotWrite.
LoudnessError writeErrorFor(int errnoValue);

}  // namespace velmora
