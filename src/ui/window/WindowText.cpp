#include "ui/window/WindowText.h"

#include <cmath>

#include "ui/NumberText.h"

namespace velmora::window {

namespace {
QString q(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }
}  // namespace

QString oneDecimal(double value) { return std::isfinite(value) ? fixedText(value, 1) : QStringLiteral("—"); }

QString signedOneDecimal(double value) {
    return std::isfinite(value) ? signedFixedText(value, 1) : QStringLiteral("—");
}

QString withUnit(double value, const QString& unit) {
    return std::isfinite(value) ? oneDecimal(value) + ' ' + unit : QStringLiteral("—");
}

QString unitText(LoudnessUnit unit) { return q(rawValue(unit)); }

QString sessionTitle(int fileCount) {
    return QStringLiteral("Session (%1 fichier%2)").arg(fileCount).arg(fileCount > 1 ? "s" : "");
}

QString elapsedText(double seconds) {
    // Whole tenths, so the clock never shows a tenth that has not been reached yet.
    const long tenths = std::isfinite(seconds) && seconds > 0 ? long(std::floor(seconds * 10.0 + 1e-9)) : 0;
    return QString::asprintf("%02ld:%02ld.%ld", tenths / 600, (tenths / 10) % 60, tenths % 10);
}

QString ceilingLockLine(double ceilingDBTP) {
    return QStringLiteral("Plafond verrouillé par la norme du preset (%1).").arg(withUnit(ceilingDBTP, "dBTP"));
}

QString autoGatingLabel(GatingMode recommended) {
    const char* name = recommended == GatingMode::global   ? "ITU global"
                       : recommended == GatingMode::dialog ? "Dialogues"
                                                           : "EBU R128";
    return QStringLiteral("Auto · suit le preset (%1)").arg(QString::fromUtf8(name));
}

QString protectionLine(double thresholdDB) {
    return QStringLiteral("Insertion d'un compresseur doux avant le limiteur si la réduction prévue dépasse %1 dB.")
        .arg(oneDecimal(thresholdDB));
}

QString protectionBadge(double appliedDB) {
    return QStringLiteral("comp. auto \u2212%1 dB").arg(oneDecimal(std::fabs(appliedDB)));
}

QString countedTitle(const QString& title, int count) { return QStringLiteral("%1 (%2)").arg(title).arg(count); }

QString multiMasterButtonText(int count) {
    return QStringLiteral("Exporter %1 master%2").arg(count).arg(count > 1 ? "s" : "");
}

}  // namespace velmora::window
