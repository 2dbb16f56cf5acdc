#pragma once
// Numbers as the components show them: a decimal point whatever locale the application runs
// under, so a meter reads "-23.0" on a French desktop as in the reports.
#include <QString>
#include <cmath>

#include "audio/NumberFormat.h"

namespace velmora {

// "%.Nf" and "%+.Nf" in the "C" locale.
inline QString fixedText(double value, int decimals) { return QString::fromStdString(formatFixed(value, decimals)); }
inline QString signedFixedText(double value, int decimals) {
    return QString::fromStdString(formatSignedFixed(value, decimals));
}

// A printf-style "%.Nf" or "%+.Nf" a caller hands a control, read once: whether it signs and
// how many decimals it keeps (one when it does not say).
struct NumberStyle {
    int decimals = 1;
    bool sign = false;

    static NumberStyle of(const char* printfFormat) {
        NumberStyle style;
        for (const char* c = printfFormat; c && *c; ++c) {
            if (*c == '+') style.sign = true;
            if (*c == '.' && c[1] >= '0' && c[1] <= '9') style.decimals = c[1] - '0';
        }
        return style;
    }
    QString operator()(double value) const { return sign ? signedFixedText(value, decimals) : fixedText(value, decimals); }
};

// A number as a person reads it on a control: the typographic minus (U+2212) instead of the
// hyphen, and no "-0.0" for a value that rounds to zero.
inline QString readableNumber(double value, int decimals, bool sign) {
    const double scale = std::pow(10.0, decimals);
    if (std::round(std::fabs(value) * scale) == 0) value = 0;
    QString text = sign ? signedFixedText(value, decimals) : fixedText(value, decimals);
    if (text.startsWith(QLatin1Char('-'))) text[0] = QChar(0x2212);
    return text;
}

// The decimals a step needs to be read exactly: 0.2 → 1, 0.05 → 2, 5 → 0; at most 4.
inline int stepDecimals(double step) {
    step = std::fabs(step);
    for (int decimals = 0; decimals < 4; ++decimals) {
        const double scaled = step * std::pow(10.0, decimals);
        if (std::fabs(scaled - std::round(scaled)) < 1e-6 * std::max(1.0, scaled)) return decimals;
    }
    return 4;
}

// The 1-2-5 step at most a hundredth of `span`: 24 dB → 0.2, 40 dB → 0.2, 280 Hz → 2.
inline double niceStep(double span) {
    const double raw = std::fabs(span) / 100.0;
    if (!(raw > 0) || !std::isfinite(raw)) return 1;
    const int exponent = int(std::floor(std::log10(raw)));
    const double mantissa = raw / std::pow(10.0, exponent);
    const double nice = mantissa >= 5 ? 5 : mantissa >= 2 ? 2 : 1;
    // Divided rather than multiplied by a negative power, so that 0.2 is the double "0.2" reads as.
    return exponent >= 0 ? nice * std::pow(10.0, exponent) : nice / std::pow(10.0, -exponent);
}

// The multiple of `step` nearest to `value`, as the same double its text reads back to
// (3.4, not 3.4000000000000004).
inline double snapToStep(double value, double step) {
    if (!(step > 0)) return value;
    const double scale = std::pow(10.0, stepDecimals(step));
    return std::round(std::round(value / step) * step * scale) / scale;
}

}  // namespace velmora
