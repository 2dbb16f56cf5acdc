// What the model remembers between runs, under the "Velmora_" keys of the per-user store, and
// the user's named presets and packs. A missing, unknown or damaged value never stops the start:
// the model keeps its initial value for it.
#include <QVariantList>
#include <QVariantMap>
#include <algorithm>

#include "mastering/ParamRanges.h"
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

// The plain settings as they are stored, key by key.
QVariantMap storedForm(const Model& m) {
    QVariantMap v;
    v["Velmora_reportLanguage"] = text(rawValue(m.reportLanguage()));
    v["Velmora_exportLog"] = m.exportLog();
    v["Velmora_exportPDF"] = m.exportPDF();
    v["Velmora_presetIndex"] = m.presetIndex();
    v["Velmora_bitDepth"] = text(rawValue(m.bitDepth()));
    v["Velmora_fileFormat"] = text(rawValue(m.fileFormat()));
    v["Velmora_layout"] = text(rawValue(m.layout()));
    v["Velmora_channelOrder"] = text(rawValue(m.channelOrder()));
    v["Velmora_gatingMode"] = text(rawValue(m.gatingMode()));
    QVariantList ticked;
    for (int i : m.multiMasterPresetIndices()) ticked.append(i);
    v["Velmora_lastMultiMasterSet"] = ticked;
    v["Velmora_liveMonitorEnabled"] = m.liveMonitorEnabled();
    v["Velmora_liveMonitorDeviceUID"] = m.liveMonitorDeviceUID();
    v["Velmora_liveMonitorChannelL"] = m.liveMonitorChannelL();
    v["Velmora_liveMonitorChannelR"] = m.liveMonitorChannelR();
    return v;
}

const QString presetsKey = QStringLiteral("Velmora_userPresets");
const QString packsKey = QStringLiteral("Velmora_multiMasterPacks");

// Stored presets come back within the knobs' ranges; the names of those that had to be brought
// back, with what changed, for the status line.
std::vector<NamedPreset> withinRanges(std::vector<NamedPreset> presets, QStringList* notes = nullptr) {
    for (auto& p : presets) {
        const auto wrong = outOfRange(p.params);
        if (wrong.empty()) continue;
        p.params = clampedToRanges(p.params);
        if (!notes) continue;
        QStringList what;
        for (const auto& w : wrong) what << QString::fromStdString(describe(w));
        *notes << QStringLiteral("preset « %1 » ramené dans ses plages : %2").arg(p.name, what.join(QStringLiteral(", ")));
    }
    return presets;
}

std::vector<NamedPreset> storedPresets(QSettings& store, int* skipped = nullptr) {
    auto decoded = decodeNamedPresets(store.value(presetsKey).toByteArray());
    if (skipped) *skipped = decoded ? decoded->skipped : (store.contains(presetsKey) ? 1 : 0);
    return decoded ? withinRanges(std::move(decoded->items)) : std::vector<NamedPreset>{};
}

std::vector<MultiMasterPack> storedPacks(QSettings& store, int* skipped = nullptr) {
    auto decoded = decodePacks(store.value(packsKey).toByteArray());
    if (skipped) *skipped = decoded ? decoded->skipped : (store.contains(packsKey) ? 1 : 0);
    return decoded ? std::move(decoded->items) : std::vector<MultiMasterPack>{};
}

}  // namespace

void Model::loadUserPresets() {
    if (!store_) return;
    int skipped = 0;
    auto decoded = decodeNamedPresets(store_->value(presetsKey).toByteArray());
    if (store_->contains(presetsKey)) skipped = decoded ? decoded->skipped : 1;
    QStringList notes;
    if (decoded) {
        userPresets_ = withinRanges(std::move(decoded->items), &notes);
        emit userPresetsChanged();
    }
    storeBase_.presets = userPresets_;
    if (skipped > 0) notes.prepend(skippedText(skipped, QStringLiteral("preset")) + QStringLiteral(" (l'original reste gardé)"));
    if (!notes.isEmpty()) setGlobalStatus(notes.join(QStringLiteral(" · ")));
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
    int skipped = 0;
    if (s.contains(packsKey)) {
        multiMasterPacks_ = storedPacks(s, &skipped);
        emit multiMasterPacksChanged();
    }
    storeBase_.packs = multiMasterPacks_;
    storeBase_.values = storedForm(*this);
    if (skipped > 0) {
        const QString note = skippedText(skipped, QStringLiteral("pack")) + QStringLiteral(" (l'original reste gardé)");
        setGlobalStatus(globalStatus_.isEmpty() ? note : globalStatus_ + QStringLiteral(" · ") + note);
    }
}

void Model::saveSettings() {
    if (!store_) return;
    QSettings& s = *store_;
    StoreLock lock(s);
    s.sync();  // what other windows and sessions saved since
    // Only what changed here: a setting another session changed meanwhile keeps its value.
    const QVariantMap mine = storedForm(*this);
    for (auto it = mine.begin(); it != mine.end(); ++it)
        if (!s.contains(it.key()) || storeBase_.values.value(it.key()) != it.value()) s.setValue(it.key(), it.value());
    storeBase_.values = mine;
    if (multiMasterPacks_ != storeBase_.packs || !s.contains(packsKey)) {
        keepDamagedOriginal(s, packsKey, decodePacks);
        auto merged = mergeById(storedPacks(s), storeBase_.packs, multiMasterPacks_);
        s.setValue(packsKey, encodePacks(merged));
        storeBase_.packs = merged;
        if (merged != multiMasterPacks_) {
            multiMasterPacks_ = std::move(merged);
            emit multiMasterPacksChanged();
        }
    }
    s.sync();
}

void Model::saveUserPresets() {
    if (!store_) return;
    QSettings& s = *store_;
    StoreLock lock(s);
    s.sync();
    keepDamagedOriginal(s, presetsKey, decodeNamedPresets);
    auto merged = mergeById(storedPresets(s), storeBase_.presets, userPresets_);
    s.setValue(presetsKey, encodeNamedPresets(merged));
    s.sync();
    storeBase_.presets = merged;
    if (merged != userPresets_) {
        userPresets_ = std::move(merged);
        emit userPresetsChanged();
    }
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
