#include "cli/Args.h"

#include <charconv>

namespace velmora::cli {

Args::Args(int argc, char** argv, int first) {
    for (int i = first; i < argc; ++i) args_.emplace_back(argv[i]);
    used_.assign(args_.size(), false);
}

bool Args::flag(const std::string& name) {
    bool found = false;
    for (std::size_t i = 0; i < args_.size(); ++i)
        if (!used_[i] && args_[i] == name) used_[i] = found = true;
    return found;
}

std::optional<std::string> Args::option(const std::string& name) {
    std::optional<std::string> value;
    for (std::size_t i = 0; i < args_.size(); ++i) {
        if (used_[i]) continue;
        if (args_[i] == name) {
            if (i + 1 >= args_.size()) throw UsageError("option " + name + " needs a value");
            used_[i] = used_[i + 1] = true;
            value = args_[i + 1];
            ++i;
        } else if (args_[i].rfind(name + "=", 0) == 0) {
            used_[i] = true;
            value = args_[i].substr(name.size() + 1);
        }
    }
    return value;
}

std::vector<std::string> Args::positionals() const {
    std::vector<std::string> out;
    bool onlyFiles = false;
    for (std::size_t i = 0; i < args_.size(); ++i) {
        if (used_[i]) continue;
        if (!onlyFiles && args_[i] == "--") {
            onlyFiles = true;
            continue;
        }
        if (!onlyFiles && args_[i].size() > 1 && args_[i][0] == '-') throw UsageError("unknown option " + args_[i]);
        out.push_back(args_[i]);
    }
    return out;
}

int parseInt(const std::string& text, const std::string& option) {
    int v = 0;
    auto r = std::from_chars(text.data(), text.data() + text.size(), v);
    if (r.ec != std::errc() || r.ptr != text.data() + text.size()) throw UsageError(option + ": not a whole number: " + text);
    return v;
}

double parseDouble(const std::string& text, const std::string& option) {
    double v = 0;
    auto r = std::from_chars(text.data(), text.data() + text.size(), v);
    if (r.ec != std::errc() || r.ptr != text.data() + text.size()) throw UsageError(option + ": not a number: " + text);
    return v;
}

std::pair<int, int> parseChannelPair(const std::string& text, const std::string& option) {
    const auto comma = text.find(',');
    if (comma == std::string::npos) throw UsageError(option + ": two channel numbers, as 3,4");
    const int left = parseInt(text.substr(0, comma), option), right = parseInt(text.substr(comma + 1), option);
    if (left < 1 || right < 1) throw UsageError(option + ": channels are counted from 1");
    return {left - 1, right - 1};
}

}  // namespace velmora::cli
