#pragma once
// What identifies the contents of a source file between its analysis and its master: a file
// rewritten in place keeps its size but not its modification time; one replaced by another
// (a rename over it) gets another inode.
#include <cstdint>
#include <optional>
#include <string>

namespace velmora {

struct SourceStamp {
    std::uint64_t device = 0, inode = 0;
    std::int64_t size = 0;
    std::int64_t modifiedNS = 0;  // nanoseconds since the epoch
    bool operator==(const SourceStamp&) const = default;
};

// Nothing when the file cannot be examined.
std::optional<SourceStamp> stampOf(const std::string& path);

// True when the file no longer is what `analysed` saw (or cannot be examined any more). A file
// with no stamp of its analysis is taken as unchanged.
bool changedSince(const std::optional<SourceStamp>& analysed, const std::string& path);

}  // namespace velmora
