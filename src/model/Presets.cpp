#include "model/Presets.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

#include "model/MasterParamsJson.h"

namespace velmora {

namespace {

std::optional<QUuid> uuidOf(const QJsonValue& v) {
    if (!v.isString()) return std::nullopt;
    const QUuid id = QUuid::fromString(v.toString());
    if (id.isNull()) return std::nullopt;
    return id;
}

std::optional<QJsonArray> arrayOf(const QByteArray& json) {
    QJsonParseError error;
    const auto doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray()) return std::nullopt;
    return doc.array();
}

}  // namespace

QByteArray encodeNamedPresets(const std::vector<NamedPreset>& presets) {
    QJsonArray array;
    for (const auto& p : presets) {
        QJsonObject o;
        o["id"] = p.id.toString(QUuid::WithoutBraces);
        o["name"] = p.name;
        o["params"] = toJsonObject(p.params);
        array.append(o);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

namespace {

std::optional<NamedPreset> presetOf(const QJsonValue& v) {
    if (!v.isObject()) return std::nullopt;
    const auto o = v.toObject();
    const auto id = uuidOf(o["id"]);
    if (!id || !o["name"].isString() || !o["params"].isObject()) return std::nullopt;
    const auto params = masterParamsFromJson(o["params"].toObject());
    if (!params) return std::nullopt;
    return NamedPreset{*id, o["name"].toString(), *params};
}

std::optional<MultiMasterPack> packOf(const QJsonValue& v) {
    if (!v.isObject()) return std::nullopt;
    const auto o = v.toObject();
    const auto id = uuidOf(o["id"]);
    if (!id || !o["name"].isString() || !o["indices"].isArray()) return std::nullopt;
    MultiMasterPack pack{*id, o["name"].toString(), {}};
    for (const auto& i : o["indices"].toArray()) {
        if (!i.isDouble() || i.toDouble() != double(i.toInt())) return std::nullopt;
        pack.indices.push_back(i.toInt());
    }
    return pack;
}

template <typename T, typename Decode>
std::optional<DecodedList<T>> decodeEach(const QByteArray& json, Decode decode) {
    const auto array = arrayOf(json);
    if (!array) return std::nullopt;
    DecodedList<T> out;
    for (const auto& v : *array) {
        if (auto item = decode(v)) out.items.push_back(std::move(*item));
        else ++out.skipped;
    }
    return out;
}

}  // namespace

std::optional<DecodedList<NamedPreset>> decodeNamedPresets(const QByteArray& json) {
    return decodeEach<NamedPreset>(json, presetOf);
}

QByteArray encodePacks(const std::vector<MultiMasterPack>& packs) {
    QJsonArray array;
    for (const auto& p : packs) {
        QJsonObject o;
        o["id"] = p.id.toString(QUuid::WithoutBraces);
        o["name"] = p.name;
        QJsonArray indices;
        for (int i : p.indices) indices.append(i);
        o["indices"] = indices;
        array.append(o);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

std::optional<DecodedList<MultiMasterPack>> decodePacks(const QByteArray& json) {
    return decodeEach<MultiMasterPack>(json, packOf);
}

}  // namespace velmora
