#pragma once
// The user's saved things: named chain settings and packs of norms, with their stored JSON.
#include <QByteArray>
#include <QString>
#include <QUuid>
#include <optional>
#include <vector>

#include "mastering/MasterParams.h"

namespace velmora {

struct NamedPreset {
    QUuid id;
    QString name;
    MasterParams params;
    bool operator==(const NamedPreset&) const = default;
};

struct MultiMasterPack {
    QUuid id;
    QString name;
    std::vector<int> indices;  // ascending
    bool operator==(const MultiMasterPack&) const = default;
};

// A stored list read entry by entry: one damaged entry (a wrong type, a missing key) costs only
// itself, and says so.
template <typename T>
struct DecodedList {
    std::vector<T> items;
    int skipped = 0;  // entries that could not be read
    bool operator==(const DecodedList&) const = default;
};

// JSON arrays of objects. Decoding gives nothing when the text is not a JSON array at all (an
// absent value included).
QByteArray encodeNamedPresets(const std::vector<NamedPreset>& presets);
std::optional<DecodedList<NamedPreset>> decodeNamedPresets(const QByteArray& json);
QByteArray encodePacks(const std::vector<MultiMasterPack>& packs);
std::optional<DecodedList<MultiMasterPack>> decodePacks(const QByteArray& json);

}  // namespace velmora
