#include "cli/FileList.h"

#include <fstream>

#include "cli/Args.h"

namespace velmora::cli {

std::vector<std::string> readFileList(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw UsageError("--from-list: cannot read the list " + path);
    std::vector<std::string> entries;
    std::string line;
    while (std::getline(in, line)) {
        const auto first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        const auto last = line.find_last_not_of(" \t\r");
        entries.push_back(line.substr(first, last - first + 1));
    }
    return entries;
}

Slice parseSlice(const std::string& text) {
    const auto slash = text.find('/');
    if (slash == std::string::npos) throw UsageError("--slice: expected I/N (task I of N, from 0), not " + text);
    const int index = parseInt(text.substr(0, slash), "--slice");
    const int count = parseInt(text.substr(slash + 1), "--slice");
    if (count < 1 || index < 0 || index >= count)
        throw UsageError("--slice: I goes from 0 to N-1 and N is at least 1, not " + text);
    return {std::size_t(index), std::size_t(count)};
}

std::vector<std::string> sliceOf(const std::vector<std::string>& entries, Slice slice) {
    std::vector<std::string> mine;
    for (std::size_t i = slice.index; i < entries.size(); i += slice.count) mine.push_back(entries[i]);
    return mine;
}

}  // namespace velmora::cli
