#include "output/PendingFile.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace velmora {
namespace {

// umask() can only be read by changing it, which races with other threads creating files.
mode_t processUmask() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Umask:", 0) == 0) return mode_t(std::strtoul(line.c_str() + 6, nullptr, 8));
    return 022;
}

}  // namespace

LoudnessError writeErrorFor(int errnoValue) {
    const bool refused = errnoValue == EACCES || errnoValue == EPERM || errnoValue == EROFS;
    return {refused ? LoudnessError::Code::diskAccess : LoudnessError::Code::cannotWrite};
}

PendingFile::PendingFile(int fd, std::filesystem::path temp, std::filesystem::path destination)
    : fd_(fd), temp_(std::move(temp)), destination_(std::move(destination)) {}

PendingFile::PendingFile(PendingFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), temp_(std::move(other.temp_)), destination_(std::move(other.destination_)) {
    other.temp_.clear();
}

PendingFile::~PendingFile() { discard(); }

void PendingFile::discard() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    if (!temp_.empty()) ::unlink(temp_.c_str());
    temp_.clear();
}

Expected<PendingFile> PendingFile::create(const std::filesystem::path& destination) {
    const std::filesystem::path folder = destination.has_parent_path() ? destination.parent_path() : ".";
    const std::string name = destination.filename().string();
    std::string pattern = (folder / ("." + name + ".velmora-XXXXXX.tmp")).string();
    int fd = mkostemps(pattern.data(), 4, O_CLOEXEC);
    if (fd < 0 && errno == ENAMETOOLONG) {
        pattern = (folder / ".velmora-XXXXXX.tmp").string();
        fd = mkostemps(pattern.data(), 4, O_CLOEXEC);
    }
    if (fd < 0) return writeErrorFor(errno);
    PendingFile file(fd, pattern, destination);
    // The master replaces a file the user owns: keep its permissions, else the usual ones
    // rather than mkstemp's owner-only 0600.
    struct stat existing {};
    const mode_t mode = ::stat(destination.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)
                            ? (existing.st_mode & 07777)
                            : (0666 & ~processUmask());
    ::fchmod(fd, mode);
    return file;
}

void PendingFile::startWriteback() const {
    if (fd_ >= 0) ::sync_file_range(fd_, 0, 0, SYNC_FILE_RANGE_WRITE);
}

std::optional<LoudnessError> PendingFile::commit() {
    // Some file systems report a full disk only when the data reaches it.
    if (::fsync(fd_) != 0 || ::close(std::exchange(fd_, -1)) != 0) {
        discard();
        return LoudnessError{LoudnessError::Code::cannotWrite};
    }
    if (::rename(temp_.c_str(), destination_.c_str()) != 0) {
        const int err = errno;
        discard();
        return writeErrorFor(err);
    }
    temp_.clear();
    // The rename itself survives a crash only once the folder is on disk too.
    const std::filesystem::path folder = destination_.has_parent_path() ? destination_.parent_path() : ".";
    if (int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return std::nullopt;
}

}  // namespace velmora
