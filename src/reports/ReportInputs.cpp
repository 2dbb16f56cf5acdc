#include "reports/ReportInputs.h"

namespace velmora {

std::string_view rawValue(ReportLanguage language) {
    switch (language) {
    case ReportLanguage::fr: return "Français";
    case ReportLanguage::en: return "English";
    }
    return "Français";
}

std::optional<ReportLanguage> reportLanguageFromRaw(std::string_view raw) {
    if (raw == "Français") return ReportLanguage::fr;
    if (raw == "English") return ReportLanguage::en;
    return std::nullopt;
}

}  // namespace velmora
