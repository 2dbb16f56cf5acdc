#include "audio/SourceStamp.h"

#include <sys/stat.h>

namespace velmora {

std::optional<SourceStamp> stampOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    SourceStamp s;
    s.device = std::uint64_t(st.st_dev);
    s.inode = std::uint64_t(st.st_ino);
    s.size = std::int64_t(st.st_size);
    s.modifiedNS = std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return s;
}

bool changedSince(const std::optional<SourceStamp>& analysed, const std::string& path) {
    if (!analysed) return false;
    const auto now = stampOf(path);
    return !now || !(*now == *analysed);
}

}  // namespace velmora
