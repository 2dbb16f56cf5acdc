#pragma once
// The plain-text mastering report: French only, fixed-width columns that line up in any
// monospaced viewer, and a ready-to-air (PAD) check of the master. No Qt here.
#include <string>

#include "reports/ReportFile.h"  // writeReport, which puts the text beside its master
#include "reports/ReportInputs.h"

namespace velmora {

// Lines end with a single line feed; the last has none.
std::string makeTextReport(const ReportInputs& inputs);

// inputs.date, or the current local date and time as "dd/MM/yyyy HH:mm" when it is empty.
std::string reportDate(const ReportInputs& inputs);

}  // namespace velmora
