#pragma once
// The one-page A4 PDF report handed over with a master: facts, before/after measurements, a
// loudness graph, the verdict against the norm, the chain, and a QR code to the norm's publisher.
//
// Text is set in DejaVu Sans (fonts-dejavu-core), embedded so it can be searched and copied.
// A QGuiApplication must exist before the call, since Qt's font database lives in it; without a
// display, set QT_QPA_PLATFORM=offscreen (qputenv) before constructing it.
#include <string>

#include "reports/ReportInputs.h"

namespace velmora {

// The PDF file's bytes: one page of 595 × 842 points.
std::string makePDFReport(const ReportInputs& inputs, ReportLanguage language);

}  // namespace velmora
