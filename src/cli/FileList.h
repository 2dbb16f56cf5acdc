#pragma once
// The work of one task among many: a list of files shared by every task of a scheduler's job
// array, and the slice of it this task masters.
#include <cstddef>
#include <string>
#include <vector>

namespace velmora::cli {

// One path per line; blank lines and lines starting with '#' are skipped, surrounding spaces
// and a Windows line end are dropped. A list that cannot be read is a usage error.
std::vector<std::string> readFileList(const std::string& path);

// "I/N": task I of N, I counted from 0 as a Kubernetes completion index or a Slurm array
// started at 0 gives it.
struct Slice {
    std::size_t index = 0, count = 1;
};
Slice parseSlice(const std::string& text);

// Every N-th entry from the I-th: each entry lands in exactly one slice, and the slices of a
// list sorted by size stay balanced.
std::vector<std::string> sliceOf(const std::vector<std::string>& entries, Slice slice);

}  // namespace velmora::cli
