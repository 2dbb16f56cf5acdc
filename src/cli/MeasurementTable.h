#pragma once
// The measurement rows shown by analyse (one column) and master (before and after).
#include <ostream>
#include <string>
#include <vector>

#include "measurement/LoudnessEngine.h"

namespace velmora::cli {

void printMeasurementTable(std::ostream& out, const std::vector<const LoudnessResult*>& columns,
                           const std::string& loudnessUnit, const std::vector<std::string>& headings = {});

// PLR and PSR: NaN when either side cannot be measured.
double difference(double a, double b);

}  // namespace velmora::cli
