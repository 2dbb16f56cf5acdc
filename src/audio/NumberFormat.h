#pragma once
// Fixed-decimal number texts that keep a decimal point whatever locale the app later installs:
// reports and file names built from them must read the same on every machine.
#include <charconv>
#include <string>

namespace velmora {

// Same text as printf "%.Nf" (N = decimals, 0 … 9) in the "C" locale.
inline std::string formatFixed(double value, int decimals) {
    char buffer[400];  // room for the widest finite double printed in full
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    return std::string(buffer, result.ptr);
}

// Same text as printf "%+.Nf" in the "C" locale.
inline std::string formatSignedFixed(double value, int decimals) {
    std::string text = formatFixed(value, decimals);
    if (text.front() != '-') text.insert(text.begin(), '+');
    return text;
}

// Same text as printf "%.1f" in the "C" locale, including "-0.0" for small negatives.
inline std::string formatOneDecimal(double value) { return formatFixed(value, 1); }

// Same text as printf "%+.1f" in the "C" locale.
inline std::string formatSignedOneDecimal(double value) { return formatSignedFixed(value, 1); }

// The shortest text that reads back to the same double ("-40", "0.3", "1e-05"), in the "C" locale.
inline std::string formatShortest(double value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

}  // namespace velmora
