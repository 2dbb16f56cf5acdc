#pragma once
// The persisted JSON form of MasterParams, as stored in user presets and read by
// `velmora-cli --params`: one object with the 35 keys of masterParamsFields, booleans as JSON
// booleans and every other value as a finite JSON number.
#include <QByteArray>
#include <QJsonObject>
#include <optional>

#include "mastering/MasterParams.h"

namespace velmora {

// A non-finite value has no JSON form: it is stored as null, which masterParamsFromJson refuses.
// Allocates.
QJsonObject toJsonObject(const MasterParams& params);

// Compact text with the keys in field order and each number in its shortest form that reads back
// to the same double. Allocates.
QByteArray masterParamsToJson(const MasterParams& params);

// Every one of the 35 keys is required with its own type: a missing key, a wrong type, null, a
// non-finite number, a nested value or broken text refuses the whole record. Keys it does not
// know are skipped, whatever their value. A repeated key is not refused: the parser keeps its last
// value. Allocates.
std::optional<MasterParams> masterParamsFromJson(const QJsonObject& object);
std::optional<MasterParams> masterParamsFromJson(const QByteArray& json);

}  // namespace velmora
