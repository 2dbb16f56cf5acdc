#include "output/PendingFile.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <sys/file.h>
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

std::filesystem::path folderOf(const std::filesystem::path& destination) {
    return destination.has_parent_path() ? destination.parent_path() : std::filesystem::path(".");
}

constexpr std::string_view tempMarker = ".velmora-";
constexpr std::string_view tempSuffix = ".tmp";

bool isHiddenTemporary(std::string_view name) {
    return name.size() > tempMarker.size() + tempSuffix.size() + 1 && name.front() == '.' &&
           name.ends_with(tempSuffix) && name.find(tempMarker) != std::string_view::npos;
}

// Named temporaries live only while their writer does; SIGINT and SIGTERM end a writer through
// a handler that may call unlink() but not take locks, so the names sit in fixed slots.
constexpr int slotCount = 16;
constexpr std::size_t slotBytes = 4096;
char registeredNames[slotCount][slotBytes];
std::atomic<bool> slotUsed[slotCount];

int registerName(const std::string& path) {
    if (path.size() >= slotBytes) return -1;
    for (int i = 0; i < slotCount; ++i) {
        bool expected = false;
        if (slotUsed[i].compare_exchange_strong(expected, true)) {
            path.copy(registeredNames[i], path.size());
            registeredNames[i][path.size()] = '\0';
            std::atomic_signal_fence(std::memory_order_seq_cst);
            return i;
        }
    }
    return -1;
}

void unregisterName(int slot) {
    if (slot >= 0) slotUsed[slot].store(false);
}

struct sigaction previousInt {}, previousTerm {};

extern "C" void removeNamedTemporaries(int signal) {
    struct sigaction& previous = signal == SIGINT ? previousInt : previousTerm;
    if (previous.sa_handler == SIG_IGN) return;
    // A process that handles the signal itself (the command line's request to stop) ends its
    // writes through its own checks, and the writers remove their files.
    if (previous.sa_handler != SIG_DFL && !(previous.sa_flags & SA_SIGINFO) && previous.sa_handler) {
        previous.sa_handler(signal);
        if (previous.sa_flags & SA_RESETHAND) previous.sa_handler = SIG_DFL;
        return;
    }
    // The signal ends the process: its named temporaries go first.
    for (int i = 0; i < slotCount; ++i)
        if (slotUsed[i].load()) ::unlink(registeredNames[i]);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void watchSignalsOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction action {};
        action.sa_handler = removeNamedTemporaries;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &previousInt);
        sigaction(SIGTERM, &action, &previousTerm);
    });
}

// Once per folder and process: the debris of writers killed before they could clean up.
void sweepOnce(const std::filesystem::path& folder) {
    static std::mutex mutex;
    static std::set<std::string> swept;
    std::error_code ec;
    std::string key = std::filesystem::weakly_canonical(folder, ec).native();
    if (key.empty()) key = folder.native();
    {
        std::lock_guard lock(mutex);
        if (!swept.insert(key).second) return;
    }
    sweepStaleTemporaries(folder);
}

std::atomic<unsigned> linkCounter{0};

}  // namespace

LoudnessError writeErrorFor(int errnoValue) {
    if (errnoValue == ENAMETOOLONG) return {LoudnessError::Code::nameTooLong};
    const bool refused = errnoValue == EACCES || errnoValue == EPERM || errnoValue == EROFS;
    return {refused ? LoudnessError::Code::diskAccess : LoudnessError::Code::cannotWrite};
}

int sweepStaleTemporaries(const std::filesystem::path& folder) {
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return 0;
    int removed = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (!isHiddenTemporary(entry->d_name)) continue;
        const int fd = ::openat(::dirfd(dir), entry->d_name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) continue;
        struct stat st {};
        // A writer holds its lock until the file is renamed or removed: a free lock means it is gone.
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ::flock(fd, LOCK_EX | LOCK_NB) == 0)
            removed += ::unlinkat(::dirfd(dir), entry->d_name, 0) == 0;
        ::close(fd);
    }
    ::closedir(dir);
    return removed;
}

PendingFile::PendingFile(int fd, std::filesystem::path path, std::filesystem::path destination, bool unnamed)
    : fd_(fd), path_(std::move(path)), destination_(std::move(destination)), unnamed_(unnamed) {}

PendingFile::PendingFile(PendingFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), path_(std::move(other.path_)), destination_(std::move(other.destination_)),
      unnamed_(other.unnamed_) {
    other.path_.clear();
}

PendingFile::~PendingFile() { discard(); }

namespace {
// Slots of named temporaries by path, so discard and commit can free theirs.
std::mutex slotsMutex;
std::set<std::pair<std::string, int>> slotsByPath;

void track(const std::string& path) {
    watchSignalsOnce();
    const int slot = registerName(path);
    std::lock_guard lock(slotsMutex);
    slotsByPath.insert({path, slot});
}

void untrack(const std::string& path) {
    std::lock_guard lock(slotsMutex);
    for (auto it = slotsByPath.begin(); it != slotsByPath.end(); ++it)
        if (it->first == path) {
            unregisterName(it->second);
            slotsByPath.erase(it);
            return;
        }
}
}  // namespace

void PendingFile::discard() {
    if (!unnamed_ && !path_.empty()) {
        ::unlink(path_.c_str());
        untrack(path_.native());
    }
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    path_.clear();
}

Expected<PendingFile> PendingFile::create(const std::filesystem::path& destination) {
    const std::filesystem::path folder = folderOf(destination);
    const std::string name = destination.filename().native();
    const long nameMax = ::pathconf(folder.c_str(), _PC_NAME_MAX);
    if (nameMax > 0 && long(name.size()) > nameMax) return writeErrorFor(ENAMETOOLONG);
    sweepOnce(folder);

    // The master replaces a file the user owns: keep its permissions, else the usual ones
    // rather than mkstemp's owner-only 0600.
    struct stat existing {};
    const mode_t mode = ::stat(destination.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)
                            ? (existing.st_mode & 07777)
                            : (0666 & ~processUmask());

    int fd = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    if (fd >= 0) {
        ::fchmod(fd, mode);
        return PendingFile(fd, "/proc/self/fd/" + std::to_string(fd), destination, true);
    }
    // Only a file system without unnamed files falls back; a refused or missing folder is said.
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return writeErrorFor(errno);

    std::string pattern = (folder / ("." + name + ".velmora-XXXXXX.tmp")).native();
    fd = mkostemps(pattern.data(), 4, O_CLOEXEC);
    if (fd < 0 && errno == ENAMETOOLONG) {
        pattern = (folder / ".velmora-XXXXXX.tmp").native();
        fd = mkostemps(pattern.data(), 4, O_CLOEXEC);
    }
    if (fd < 0) return writeErrorFor(errno);
    ::flock(fd, LOCK_EX);  // held while this process lives: see sweepStaleTemporaries
    track(pattern);
    PendingFile file(fd, pattern, destination, false);
    ::fchmod(fd, mode);
    return file;
}

void PendingFile::startWriteback(int fd) {
    if (fd >= 0) ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

std::optional<ScratchFile> ScratchFile::create(const std::filesystem::path& folder) {
    const int fd = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) return std::nullopt;
    return ScratchFile(fd);
}

ScratchFile::ScratchFile(ScratchFile&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

ScratchFile::~ScratchFile() {
    if (fd_ >= 0) ::close(fd_);
}

std::string ScratchFile::path() const { return "/proc/self/fd/" + std::to_string(fd_); }

std::optional<LoudnessError> PendingFile::commit() {
    // Some file systems report a full disk only when the data reaches it.
    if (::fsync(fd_) != 0) {
        const int err = errno;
        discard();
        return writeErrorFor(err == ENAMETOOLONG ? EIO : err);
    }
    const std::filesystem::path folder = folderOf(destination_);
    if (unnamed_) {
        // linkat cannot replace a file: link under a hidden name, then rename that over the
        // destination. Only a kill between the two leaves a name, which the next run sweeps (the
        // lock dies with the process).
        ::flock(fd_, LOCK_EX);
        std::string linked;
        int err = EEXIST;
        for (int attempt = 0; attempt < 100 && err == EEXIST; ++attempt) {
            const std::string tag = "velmora-" + std::to_string(::getpid()) + "-" + std::to_string(linkCounter++);
            linked = (folder / ("." + destination_.filename().native() + "." + tag + ".tmp")).native();
            err = ::linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, linked.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
            if (err == ENAMETOOLONG) {
                linked = (folder / ("." + tag + ".tmp")).native();
                err = ::linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, linked.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
            }
        }
        if (err != 0) {
            discard();
            return writeErrorFor(err);
        }
        unnamed_ = false;
        path_ = linked;
        track(linked);
    }
    if (::rename(path_.c_str(), destination_.c_str()) != 0) {
        const int err = errno;
        discard();
        return writeErrorFor(err);
    }
    untrack(path_.native());
    path_.clear();
    ::close(std::exchange(fd_, -1));
    // The rename itself survives a crash only once the folder is on disk too.
    if (int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return std::nullopt;
}

}  // namespace velmora
