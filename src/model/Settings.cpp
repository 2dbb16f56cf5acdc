// What the model remembers between runs, under the "Velmora_" keys of the per-user store, and
// the user's named presets and packs. A missing, unknown or damaged value never stops the start:
// the model keeps its initial value for it.
#include <QVariantList>
#include <algorithm>

#include "model/Model.h"
#include "norms/Presets.h"

namespace velmora {

namespace {

template <typename Enum, typename FromRaw>
void readEnum(QSettings& store, const char* key, FromRaw fromRaw, const std::function<void(Enum)>& apply) {
    const QVariant v = store.value(key);
    if (!v.isValid()) return;
    if (auto e = fromRaw(v.toString().toStdString())) apply(*e);
}

QString text(std::string_view raw) { return QString::fromUtf8(raw.data(), qsizetype(raw.size())); }

std::optional<int> readInt(QSettings& store, const char* key) {
    const QVariant v = store.value(key);
    bool ok = false;
    const int i = v.toInt(&ok);
    return v.isValid() && ok ? std::optional<int>(i) : std::nullopt;
}

std::optional<bool> readBool(QSettings& store, const char* key) {
    const QVariant v = store.value(key);
    if (!v.isValid()) return std::nullopt;
    const QString s = v.toString().toLower();
    if (v.typeId() == QMetaType::Bool || s == "true" || s == "false") return v.toBool();
    return std::nullopt;
}

}  // namespace

void Model::loadUserPresets() {
    if (!store_) return;
    if (auto presets = decodeNamedPresets(store_->value("Velmora_userPresets").toByteArray())) {
        userPresets_ = std::move(*presets);
        emit userPresetsChanged();
    }
}

void Model::loadSettings() {
    if (!store_) return;
    QSettings& s = *store_;
    if (auto v = readBool(s, "Velmora_exportLog")) setExportLog(*v);
    if (auto v = readBool(s, "Velmora_exportPDF")) setExportPDF(*v);
    if (auto v = readBool(s, "Velmora_liveMonitorEnabled")) setLiveMonitorEnabled(*v);
    if (s.contains("Velmora_liveMonitorDeviceUID")) setLiveMonitorDeviceUID(s.value("Velmora_liveMonitorDeviceUID").toString());
    if (auto v = readInt(s, "Velmora_liveMonitorChannelL")) setLiveMonitorChannelL(*v);
    if (auto v = readInt(s, "Velmora_liveMonitorChannelR")) setLiveMonitorChannelR(*v);
    readEnum<ReportLanguage>(s, "Velmora_reportLanguage", reportLanguageFromRaw, [this](auto e) { setReportLanguage(e); });
    if (auto v = readInt(s, "Velmora_presetIndex"); v && *v >= 0 && *v < int(presets().size())) applyPreset(*v);
    readEnum<BitDepth>(s, "Velmora_bitDepth", bitDepthFromRaw, [this](auto e) { setBitDepth(e); });
    readEnum<FileFormat>(s, "Velmora_fileFormat", fileFormatFromRaw, [this](auto e) { setFileFormat(e); });
    readEnum<ChannelLayout>(s, "Velmora_layout", channelLayoutFromRaw, [this](auto e) { setLayout(e); });
    readEnum<ChannelOrder>(s, "Velmora_channelOrder", channelOrderFromRaw, [this](auto e) { setChannelOrder(e); });
    // After the norm, whose choice resets the gating: an explicit stored gating wins.
    readEnum<GatingMode>(s, "Velmora_gatingMode", gatingModeFromRaw, [this](auto e) { setGatingMode(e); });
    if (s.contains("Velmora_lastMultiMasterSet")) {
        std::set<int> ticked;
        bool valid = true;
        for (const auto& v : s.value("Velmora_lastMultiMasterSet").toList()) {
            bool ok = false;
            const int i = v.toInt(&ok);
            valid = valid && ok;
            ticked.insert(i);
        }
        if (valid) setMultiMasterPresetIndices(ticked);
    }
    if (auto packs = decodePacks(s.value("Velmora_multiMasterPacks").toByteArray())) {
        multiMasterPacks_ = std::move(*packs);
        emit multiMasterPacksChanged();
    }
}

void Model::saveSettings() {
    if (!store_) return;
    QSettings& s = *store_;
    s.setValue("Velmora_reportLanguage", text(rawValue(reportLanguage_)));
    s.setValue("Velmora_exportLog", exportLog_);
    s.setValue("Velmora_exportPDF", exportPDF_);
    s.setValue("Velmora_presetIndex", presetIndex_);
    s.setValue("Velmora_bitDepth", text(rawValue(bitDepth_)));
    s.setValue("Velmora_fileFormat", text(rawValue(fileFormat_)));
    s.setValue("Velmora_layout", text(rawValue(layout_)));
    s.setValue("Velmora_channelOrder", text(rawValue(channelOrder_)));
    s.setValue("Velmora_gatingMode", text(rawValue(gatingMode_)));
    QVariantList ticked;
    for (int i : multiMasterPresetIndices_) ticked.append(i);
    s.setValue("Velmora_lastMultiMasterSet", ticked);
    s.setValue("Velmora_multiMasterPacks", encodePacks(multiMasterPacks_));
    s.setValue("Velmora_liveMonitorEnabled", liveMonitorEnabled_);
    s.setValue("Velmora_liveMonitorDeviceUID", liveMonitorDeviceUID_);
    s.setValue("Velmora_liveMonitorChannelL", liveMonitorChannelL_);
    s.setValue("Velmora_liveMonitorChannelR", liveMonitorChannelR_);
    s.sync();
}

void Model::saveUserPresets() {
    if (!store_) return;
    store_->setValue("Velmora_userPresets", encodeNamedPresets(userPresets_));
    store_->sync();
}

void Model::saveUserPreset(const QString& typed) {
    const QString name = typed.trimmed();
    if (name.isEmpty()) {
        setGlobalStatus(QStringLiteral("Donnez un nom au preset."));
        return;
    }
    auto it = std::find_if(userPresets_.begin(), userPresets_.end(), [&](const NamedPreset& p) { return p.name == name; });
    if (it != userPresets_.end()) it->params = mp_;
    else userPresets_.push_back({QUuid::createUuid(), name, mp_});
    emit userPresetsChanged();
    saveUserPresets();
    setGlobalStatus(QStringLiteral("Preset « %1 » enregistré ✓").arg(name));
}

void Model::loadUserPreset(const QUuid& id) {
    for (const auto& p : userPresets_)
        if (p.id == id) setMp(p.params);
}

void Model::deleteUserPreset(const QUuid& id) {
    if (std::erase_if(userPresets_, [&](const NamedPreset& p) { return p.id == id; }) == 0) return;
    emit userPresetsChanged();
    saveUserPresets();
}

// --- Multi-master selection and packs ----------------------------------------------------------

void Model::tickAllNorms() {
    std::set<int> all;
    for (int i = 0; i < int(presets().size()); ++i) all.insert(i);
    setMultiMasterPresetIndices(all);
}

void Model::untickAllNorms() { setMultiMasterPresetIndices({}); }

void Model::tickGroup(const std::vector<int>& indices) { setMultiMasterPresetIndices({indices.begin(), indices.end()}); }

void Model::savePack(const QString& typed) {
    const QString name = typed.trimmed();
    if (name.isEmpty()) {
        setGlobalStatus(QStringLiteral("Donnez un nom au pack."));
        return;
    }
    if (multiMasterPresetIndices_.empty()) {
        setGlobalStatus(QStringLiteral("Cochez au moins une norme avant de sauver."));
        return;
    }
    const std::vector<int> indices(multiMasterPresetIndices_.begin(), multiMasterPresetIndices_.end());  // ascending
    auto it = std::find_if(multiMasterPacks_.begin(), multiMasterPacks_.end(),
                           [&](const MultiMasterPack& p) { return p.name == name; });
    if (it != multiMasterPacks_.end()) it->indices = indices;
    else multiMasterPacks_.push_back({QUuid::createUuid(), name, indices});
    emit multiMasterPacksChanged();
    saveSettings();
    setGlobalStatus(QStringLiteral("Pack « %1 » sauvegardé (%2 normes) ✓").arg(name).arg(indices.size()));
}

void Model::deletePack(const QUuid& id) {
    if (std::erase_if(multiMasterPacks_, [&](const MultiMasterPack& p) { return p.id == id; }) == 0) return;
    emit multiMasterPacksChanged();
    saveSettings();
}

void Model::applyPack(const QUuid& id) {
    for (const auto& p : multiMasterPacks_)
        if (p.id == id) setMultiMasterPresetIndices({p.indices.begin(), p.indices.end()});
}

}  // namespace velmora
