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

// JSON arrays of objects; decoding refuses the whole list on any malformed entry, so a damaged
// store never yields half a list.
QByteArray encodeNamedPresets(const std::vector<NamedPreset>& presets);
std::optional<std::vector<NamedPreset>> decodeNamedPresets(const QByteArray& json);
QByteArray encodePacks(const std::vector<MultiMasterPack>& packs);
std::optional<std::vector<MultiMasterPack>> decodePacks(const QByteArray& json);

}  // namespace velmora
