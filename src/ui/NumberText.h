#pragma once
// Numbers as the components show them: a decimal point whatever locale the application runs
// under, so a meter reads "-23.0" on a French desktop as in the reports.
#include <QString>

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

}  // namespace velmora
