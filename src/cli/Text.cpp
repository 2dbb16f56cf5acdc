#include "cli/Text.h"

#include <cmath>

#include "audio/NumberFormat.h"

namespace velmora::cli {

std::size_t displayWidth(std::string_view s) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const auto c = static_cast<unsigned char>(s[i]);
        if ((c & 0xC0) == 0x80) continue;  // continuation byte
        // The variation selector after "⚠" takes no column.
        if (c == 0xEF && i + 2 < s.size() && static_cast<unsigned char>(s[i + 1]) == 0xB8 &&
            static_cast<unsigned char>(s[i + 2]) == 0x8E)
            continue;
        ++n;
    }
    return n;
}

std::string padRight(std::string_view s, std::size_t width) {
    std::string out(s);
    for (std::size_t w = displayWidth(s); w < width; ++w) out += ' ';
    return out;
}

std::string padLeft(std::string_view s, std::size_t width) {
    std::string out;
    for (std::size_t w = displayWidth(s); w < width; ++w) out += ' ';
    return out + std::string(s);
}

std::string oneDecimalOrDash(double value) {
    return std::isfinite(value) ? formatOneDecimal(value) : std::string("—");
}

}  // namespace velmora::cli
