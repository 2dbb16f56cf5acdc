#pragma once
// Command-line arguments of one sub-command: options are taken out by name, what is left
// must be files. Anything unknown is a usage error (exit status 2).
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velmora::cli {

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Args {
public:
    Args(int argc, char** argv, int first);
    bool flag(const std::string& name);
    std::optional<std::string> option(const std::string& name);
    // What is left once every option has been taken; an unknown "--x" throws.
    std::vector<std::string> positionals() const;

private:
    std::vector<std::string> args_;
    std::vector<bool> used_;
};

// Parses a whole decimal number, throwing UsageError naming the option otherwise.
int parseInt(const std::string& text, const std::string& option);
double parseDouble(const std::string& text, const std::string& option);
// "L,R" as the user counts device channels, from 1, to 0-based indices.
std::pair<int, int> parseChannelPair(const std::string& text, const std::string& option);

}  // namespace velmora::cli
