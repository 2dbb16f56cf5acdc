#pragma once
// A master is written to a file without a name in its destination's folder (O_TMPFILE) and linked
// into place only once complete and on disk, so a process killed at any moment, even by SIGKILL,
// leaves nothing behind, and a failed write never costs the file that was there before.
//
// Where the file system cannot make unnamed files, a hidden ".NAME.velmora-XXXXXX.tmp" takes their
// place. It holds a lock for as long as its writer lives: the first write of a process into a
// folder removes every such file whose writer is gone, and the writer removes its own on failure,
// on SIGINT and on SIGTERM.
#include <filesystem>
#include <optional>
#include <string>

#include "audio/LoudnessError.h"

namespace velmora {

class PendingFile {
public:
    // Makes the file in the destination's folder. A name too long for that folder's file system
    // fails at once (nameTooLong), before anything is computed.
    static Expected<PendingFile> create(const std::filesystem::path& destination);
    PendingFile(PendingFile&& other) noexcept;
    PendingFile& operator=(PendingFile&&) = delete;
    PendingFile(const PendingFile&) = delete;
    ~PendingFile();  // removes the file unless it was committed

    int fd() const { return fd_; }
    // A path that opens this same file, for writers that want one: /proc/self/fd/N for an unnamed
    // file.
    const std::filesystem::path& path() const { return path_; }
    bool unnamed() const { return unnamed_; }
    // Starts writing back what has been written so far, so the final flush has little left.
    void startWriteback() const { startWriteback(fd_); }
    static void startWriteback(int fd);
    // Flushes, closes and puts the file in place of the destination; on failure nothing is left.
    std::optional<LoudnessError> commit();

private:
    PendingFile(int fd, std::filesystem::path path, std::filesystem::path destination, bool unnamed);
    void discard();

    int fd_ = -1;
    std::filesystem::path path_, destination_;
    bool unnamed_ = false;
};

// A file without a name for work files (the sound of a video master before it goes under the
// picture): it vanishes with its descriptor, even when the process is killed. Nothing when the
// folder's file system cannot make unnamed files.
class ScratchFile {
public:
    static std::optional<ScratchFile> create(const std::filesystem::path& folder);
    ScratchFile(ScratchFile&& other) noexcept;
    ScratchFile& operator=(ScratchFile&&) = delete;
    ~ScratchFile();
    int fd() const { return fd_; }
    // /proc/self/fd/N: opens this same file, for readers and writers that want a path.
    std::string path() const;

private:
    explicit ScratchFile(int fd) : fd_(fd) {}
    int fd_ = -1;
};

// Folder refused → diskAccess; a name too long → nameTooLong; anything else (missing folder,
// full disk, I/O error) → cannotWrite.
LoudnessError writeErrorFor(int errnoValue);

// Removes the hidden temporaries in `folder` whose writer no longer runs; returns how many.
int sweepStaleTemporaries(const std::filesystem::path& folder);

}  // namespace velmora
