#pragma once
// Saves that re-read the store before they write, so two windows, a second session or a script of
// the same user never erase each other's presets, packs or settings: each save changes only what
// this model changed since it last read or wrote, under a lock file beside the store.
#include <QLockFile>
#include <QSettings>
#include <QVariantMap>
#include <algorithm>
#include <memory>
#include <vector>

#include "model/Presets.h"

namespace velmora {

// Held for the length of one read-merge-write of the store. A lock left by a process that died is
// taken over; one that stays held longer than a few seconds is waited out no longer than that.
class StoreLock {
public:
    explicit StoreLock(const QSettings& store);

private:
    std::unique_ptr<QLockFile> lock_;
};

// What this model last read from or wrote to the store: the ground its own changes are measured
// against.
struct StoreBase {
    std::vector<NamedPreset> presets;
    std::vector<MultiMasterPack> packs;
    QVariantMap values;  // the plain settings, key by key
};

// The stored list with this side's changes since `base` applied by id: what it added or edited
// replaces or joins the stored entry, what it deleted leaves; everything else stays as stored.
template <typename T>
std::vector<T> mergeById(std::vector<T> stored, const std::vector<T>& base, const std::vector<T>& mine) {
    auto byId = [](const std::vector<T>& list, const auto& id) {
        return std::find_if(list.begin(), list.end(), [&](const T& x) { return x.id == id; });
    };
    for (const T& m : mine) {
        const auto before = byId(base, m.id);
        if (before != base.end() && *before == m) continue;
        auto at = std::find_if(stored.begin(), stored.end(), [&](const T& x) { return x.id == m.id; });
        if (at != stored.end()) *at = m;
        else stored.push_back(m);
    }
    for (const T& b : base)
        if (byId(mine, b.id) == mine.end())
            std::erase_if(stored, [&](const T& x) { return x.id == b.id; });
    return stored;
}

// The key under which a stored list that could not be read whole is kept as it was, before any
// save puts a list in its place: "Velmora_userPresets" → "Velmora_userPresets_backup".
QString backupKey(const QString& key);

// Keeps the raw value of `key` under its backup key when it is damaged (not a list, or a list with
// entries that cannot be read) and that copy is not there yet. Call under the StoreLock.
template <typename Decode>
void keepDamagedOriginal(QSettings& store, const QString& key, Decode decode) {
    if (!store.contains(key)) return;
    const QByteArray raw = store.value(key).toByteArray();
    const auto decoded = decode(raw);
    if (decoded && decoded->skipped == 0) return;
    if (store.value(backupKey(key)).toByteArray() != raw) store.setValue(backupKey(key), raw);
}

// "1 preset endommagé ignoré", "2 packs endommagés ignorés"; empty for none.
QString skippedText(int count, const QString& singular);

}  // namespace velmora
