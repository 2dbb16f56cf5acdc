#include "model/MasterParamsJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <cmath>

namespace velmora {

namespace {

QString keyOf(const MasterParamsField& field) {
    return QString::fromLatin1(field.key.data(), qsizetype(field.key.size()));
}

// Qt's own writer formats the scalar, so the text matches what QJsonDocument writes for the
// same value (shortest round-trip digits, no locale); it only writes whole documents, hence the
// one-element array around it.
QByteArray scalarText(const QJsonValue& value) {
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.sliced(1, array.size() - 2);
}

}  // namespace

QJsonObject toJsonObject(const MasterParams& params) {
    QJsonObject object;
    for (const auto& field : masterParamsFields) {
        if (const auto* flag = std::get_if<bool MasterParams::*>(&field.member)) {
            object.insert(keyOf(field), params.*(*flag));
        } else {
            const double v = params.*std::get<double MasterParams::*>(field.member);
            object.insert(keyOf(field), std::isfinite(v) ? QJsonValue(v) : QJsonValue(QJsonValue::Null));
        }
    }
    return object;
}

// QJsonObject keeps its keys sorted, which would scatter a stage's settings through the text
// (b1Freq … compAttack … eqOn). People read and edit --params files, and in field order each
// stage's switch sits with its values; readers look keys up by name, so the order costs nothing.
QByteArray masterParamsToJson(const MasterParams& params) {
    const QJsonObject object = toJsonObject(params);
    QByteArray text = "{";
    for (const auto& field : masterParamsFields) {
        if (text.size() > 1) text += ',';
        // The keys are plain identifiers: nothing in them needs escaping.
        text += '"';
        text += QByteArrayView(field.key.data(), qsizetype(field.key.size()));
        text += "\":";
        text += scalarText(object.value(keyOf(field)));
    }
    text += '}';
    return text;
}

std::optional<MasterParams> masterParamsFromJson(const QJsonObject& object) {
    MasterParams params;
    for (const auto& field : masterParamsFields) {
        const QJsonValue value = object.value(keyOf(field));
        if (const auto* flag = std::get_if<bool MasterParams::*>(&field.member)) {
            if (!value.isBool()) return std::nullopt;
            params.*(*flag) = value.toBool();
        } else {
            if (!value.isDouble() || !std::isfinite(value.toDouble())) return std::nullopt;
            params.*std::get<double MasterParams::*>(field.member) = value.toDouble();
        }
    }
    return params;
}

std::optional<MasterParams> masterParamsFromJson(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) return std::nullopt;
    return masterParamsFromJson(document.object());
}

}  // namespace velmora
