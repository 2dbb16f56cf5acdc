#include "model/FileItem.h"

namespace velmora {

QString statusText(ItemStatus status, ReportLanguage language) {
    const bool fr = language == ReportLanguage::fr;
    switch (status) {
    case ItemStatus::pending: return fr ? QStringLiteral("En attente") : QStringLiteral("Waiting");
    case ItemStatus::analysing: return fr ? QStringLiteral("Analyse…") : QStringLiteral("Analysing…");
    case ItemStatus::ready: return fr ? QStringLiteral("Prêt") : QStringLiteral("Ready");
    case ItemStatus::unmeasurable: return fr ? QStringLiteral("Non mesurable") : QStringLiteral("Not measurable");
    case ItemStatus::readFailed: return fr ? QStringLiteral("Échec lecture") : QStringLiteral("Read failed");
    case ItemStatus::mastering: return QStringLiteral("Mastering…");
    case ItemStatus::mastered: return fr ? QStringLiteral("Masterisé ✓") : QStringLiteral("Mastered ✓");
    case ItemStatus::failed: return fr ? QStringLiteral("Échec") : QStringLiteral("Failed");
    }
    return {};
}

StatusColor statusColor(ItemStatus status) {
    switch (status) {
    case ItemStatus::pending: return {1.0, 1.0, 1.0, 0.64};
    case ItemStatus::analysing:
    case ItemStatus::mastering: return {0.12, 0.47, 0.95, 1.0};
    case ItemStatus::ready:
    case ItemStatus::mastered: return {0.24, 0.82, 0.34, 1.0};
    case ItemStatus::unmeasurable: return {1.0, 0.72, 0.26, 1.0};
    case ItemStatus::readFailed:
    case ItemStatus::failed: return {0.96, 0.28, 0.22, 1.0};
    }
    return {};
}

}  // namespace velmora
