#include "model/StoredList.h"

namespace velmora {

StoreLock::StoreLock(const QSettings& store) {
    const QString file = store.fileName();
    if (file.isEmpty()) return;
    // QSettings keeps its own "<file>.lock" for the length of one sync: ours spans the whole
    // read-merge-write around it.
    lock_ = std::make_unique<QLockFile>(file + QStringLiteral(".save-lock"));
    lock_->setStaleLockTime(10000);
    if (!lock_->tryLock(5000)) lock_.reset();
}

QString backupKey(const QString& key) { return key + QStringLiteral("_backup"); }

QString skippedText(int count, const QString& singular) {
    if (count <= 0) return {};
    if (count == 1) return QStringLiteral("1 %1 endommagé ignoré").arg(singular);
    return QStringLiteral("%1 %2s endommagés ignorés").arg(count).arg(singular);
}

}  // namespace velmora
