#include "cli/MeasurementTable.h"

#include <cmath>
#include <functional>

#include "cli/Text.h"

namespace velmora::cli {

double difference(double a, double b) { return std::isfinite(a) && std::isfinite(b) ? a - b : NAN; }

void printMeasurementTable(std::ostream& out, const std::vector<const LoudnessResult*>& columns,
                           const std::string& unit, const std::vector<std::string>& headings) {
    constexpr std::size_t labelWidth = 21, columnWidth = 13;
    if (!headings.empty()) {
        out << std::string(labelWidth + 2, ' ');
        for (const auto& h : headings) out << padRight(h, columnWidth);
        out << '\n';
    }
    const bool dialogue = !columns.empty() && columns.front()->programmeLUFS.has_value();
    auto row = [&](const char* label, const std::function<double(const LoudnessResult&)>& value, const std::string& u) {
        out << padRight(label, labelWidth) << ": ";
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const double v = value(*columns[i]);
            std::string cell = oneDecimalOrDash(v) + (std::isfinite(v) ? " " + u : "");
            out << (i + 1 < columns.size() ? padRight(cell, columnWidth) : cell);
        }
        out << '\n';
    };
    if (dialogue) {
        row("Sonie dialogues (DL)", [](const LoudnessResult& r) { return r.integratedLUFS; }, unit);
        row("Sonie programme (PL)", [](const LoudnessResult& r) { return r.programmeLUFS.value_or(NAN); }, unit);
    } else {
        row("Sonie intégrée (I)", [](const LoudnessResult& r) { return r.integratedLUFS; }, unit);
    }
    row("Plage de sonie (LRA)", [](const LoudnessResult& r) { return r.loudnessRange.value_or(NAN); }, "LU");
    row("Momentanée max (M)", [](const LoudnessResult& r) { return r.momentaryMax; }, unit);
    row("Court-terme max (S)", [](const LoudnessResult& r) { return r.shortTermMax; }, unit);
    row("Crête vraie", [](const LoudnessResult& r) { return r.truePeakDB; }, "dBTP");
    row("PLR (TP - I)", [](const LoudnessResult& r) { return difference(r.truePeakDB, r.integratedLUFS); }, "LU");
    row("PSR (TP - S max)", [](const LoudnessResult& r) { return difference(r.truePeakDB, r.shortTermMax); }, "LU");
}

}  // namespace velmora::cli
