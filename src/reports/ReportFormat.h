#pragma once
// Number texts shared by the text and PDF reports. Internal to the reports library.
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "audio/NumberFormat.h"

namespace velmora::reportformat {

inline constexpr std::string_view dash = "—";

inline std::string orDash(double value) { return std::isfinite(value) ? formatOneDecimal(value) : std::string(dash); }
inline std::string orDash(const std::optional<double>& value) { return value ? orDash(*value) : std::string(dash); }

// An unmeasurable operand (silence reads -inf) must not turn into a huge but finite-looking result.
inline double difference(double a, double b) {
    return std::isfinite(a) && std::isfinite(b) ? a - b : std::numeric_limits<double>::quiet_NaN();
}

// A signed figure as typeset: "−21.5" with the minus sign, not the hyphen.
inline std::string typesetMinus(std::string figure) {
    if (!figure.empty() && figure.front() == '-') figure.replace(0, 1, "−");
    return figure;
}

// "Cible personnalisée : −21.5 LUFS (base : <norm>)", the line that stands for the norm when the
// master was made for another target or ceiling.
inline std::string customTargetLine(double targetLUFS, std::string_view unit, std::string_view baseNorm, bool english) {
    const std::string figure = typesetMinus(formatOneDecimal(targetLUFS)) + " " + std::string(unit);
    return english ? "Custom target: " + figure + " (base: " + std::string(baseNorm) + ")"
                   : "Cible personnalisée : " + figure + " (base : " + std::string(baseNorm) + ")";
}

// Characters, not bytes: the labels carry accents and must still line up in a monospaced viewer.
inline std::size_t displayWidth(std::string_view utf8) {
    std::size_t n = 0;
    for (unsigned char c : utf8)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

// Pads with spaces, or cuts on a character boundary, to exactly `width` characters.
inline std::string fitWidth(std::string_view utf8, std::size_t width) {
    std::string out;
    std::size_t n = 0;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(utf8[i]);
        if ((c & 0xC0) != 0x80 && n++ == width) break;
        out += utf8[i];
    }
    if (n < width) out.append(width - n, ' ');
    return out;
}

}  // namespace velmora::reportformat
