#pragma once
// Text helpers for aligned terminal output of French (UTF-8) labels.
#include <string>
#include <string_view>

namespace velmora::cli {

// Characters, not bytes: accented labels must line up with plain ones.
std::size_t displayWidth(std::string_view utf8);
std::string padRight(std::string_view utf8, std::size_t width);
std::string padLeft(std::string_view utf8, std::size_t width);

// "%.1f" with a decimal point, or "—" when the value cannot be measured.
std::string oneDecimalOrDash(double value);

}  // namespace velmora::cli
