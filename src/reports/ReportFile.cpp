#include "reports/ReportFile.h"

#include <cerrno>
#include <string>
#include <unistd.h>

#include "output/PendingFile.h"

namespace velmora {

std::filesystem::path reportPath(const std::filesystem::path& masterPath, std::string_view extension) {
    std::filesystem::path path = masterPath;
    path.replace_extension(std::string(extension));
    return path;
}

std::optional<LoudnessError> writeReport(const std::filesystem::path& masterPath, std::string_view extension,
                                         std::string_view bytes) {
    Expected<PendingFile> file = PendingFile::create(reportPath(masterPath, extension));
    if (!file) return file.error();
    while (!bytes.empty()) {
        const ssize_t written = ::write(file->fd(), bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return writeErrorFor(errno);  // the pending file removes itself
        }
        bytes.remove_prefix(std::size_t(written));
    }
    return file->commit();
}

}  // namespace velmora
