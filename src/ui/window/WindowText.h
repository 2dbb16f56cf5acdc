#pragma once
// The window's texts that carry numbers: one decimal with a decimal point whatever the locale,
// "—" for what cannot be measured, the counters and the clock. Pure functions, so the exact
// French texts can be tested without a window.
#include <QString>

#include "audio/ChannelLayout.h"

namespace velmora::window {

QString oneDecimal(double value);                       // "%.1f", "—" when not finite
QString signedOneDecimal(double value);                 // "%+.1f", "—" when not finite
QString withUnit(double value, const QString& unit);    // "-23.0 LUFS", "—" when not finite
QString unitText(LoudnessUnit unit);                    // "LUFS" or "LKFS"

// "Session (1 fichier)", "Session (3 fichiers)".
QString sessionTitle(int fileCount);
// Elapsed play time as "%02d:%02d.%d" (minutes, seconds, tenths); "00:00.0" for 0 or less.
QString elapsedText(double seconds);

// "Plafond verrouillé par la norme du preset (-3.0 dBTP)."
QString ceilingLockLine(double ceilingDBTP);
inline const QString ceilingLockHint = QStringLiteral("Plafond imposé par la norme du preset (non modifiable).");
// "Auto · suit le preset (EBU R128)": the automatic gating names the norm's own choice.
QString autoGatingLabel(GatingMode recommended);
// "Insertion d'un compresseur doux avant le limiteur si la réduction prévue dépasse 1.5 dB."
QString protectionLine(double thresholdDB);
// "comp. auto −2.3 dB" (with a minus sign, U+2212).
QString protectionBadge(double appliedDB);

// "Charger un preset (2)", "Mes packs (1)".
QString countedTitle(const QString& title, int count);
// "Exporter 3 masters", "Exporter 1 master".
QString multiMasterButtonText(int count);

}  // namespace velmora::window
