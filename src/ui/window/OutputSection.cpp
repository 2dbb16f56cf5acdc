#include "ui/window/OutputSection.h"

#include <QGridLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "model/Model.h"
#include "norms/Presets.h"
#include "ui/LedToggle.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/UndoHistory.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

QString text(std::string_view raw) { return QString::fromUtf8(raw.data(), qsizetype(raw.size())); }

QString layoutLabel(ChannelLayout l) { return text(rawValue(l)); }

// A choice of this section as one undo step named after its control, kept where it is stored.
std::function<void(const QVariant&)> undoable(Model& model, const QString& name,
                                              std::function<void(const QVariant&)> change) {
    UndoHistory* history = &UndoHistory::of(model);
    return [history, name, change = std::move(change)](const QVariant& v) {
        history->record(name, name, false, [&] { change(v); });
    };
}

}  // namespace

OutputSection::OutputSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* panel = new StudioPanel(QStringLiteral("ANALYSE ET SORTIE"), this);
    outer->addWidget(panel);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);

    auto picker = [&](const QString& caption) {
        layout->addSpacing(2);
        layout->addWidget(makeCaption(caption.toUpper(), panel));
        auto* p = new StudioMenuPicker(panel);
        p->setAccessibleName(caption);
        layout->addWidget(p);
        return p;
    };
    gating_ = picker(QStringLiteral("Méthode d'analyse (gating)"));
    dialogueNote_ = makeNote(QStringLiteral("Mode Dialogues actif : intégrée calculée uniquement sur les segments où "
                                            "la parole est détectée (détecteur de parole : modulation syllabique, voisement, "
                                            "timbre ; la musique, les effets et le bruit sont écartés). La sonie du "
                                            "programme entier reste affichée à côté."),
                             panel);
    layout->addWidget(dialogueNote_);

    layout_ = picker(QStringLiteral("Format de canaux"));
    std::vector<PickerOption> layouts;
    for (ChannelLayout l : allChannelLayouts) layouts.push_back({layoutLabel(l), int(l)});
    fillPicker(layout_, layouts, undoable(model, QStringLiteral("Format de canaux"), [this](const QVariant& v) {
                   model_.setLayout(ChannelLayout(v.toInt()));
                   model_.saveSettings();
               }));

    order_ = picker(QStringLiteral("Ordre des canaux (5.1)"));
    std::vector<PickerOption> orders;
    for (ChannelOrder o : {ChannelOrder::smpte, ChannelOrder::itu, ChannelOrder::film, ChannelOrder::aac})
        orders.push_back({text(rawValue(o)), int(o)});
    fillPicker(order_, orders, undoable(model, QStringLiteral("Ordre des canaux"), [this](const QVariant& v) {
                   model_.setChannelOrder(ChannelOrder(v.toInt()));
                   model_.saveSettings();
               }));
    layout->addWidget(makeNote(QStringLiteral("Indiquez l'ordre utilisé par votre système : la mesure pondère le bon canal "
                                              "(LFE exclu, surrounds +1,5 dB)."),
                               panel));

    rate_ = picker(QStringLiteral("Fréquence de sortie"));
    std::vector<PickerOption> rates;
    for (const auto& r : outputRateChoices) rates.push_back({text(r.label), r.hz});
    fillPicker(rate_, rates, undoable(model, QStringLiteral("Fréquence de sortie"),
                                      [this](const QVariant& v) { model_.setOutputRate(v.toDouble()); }));

    depth_ = picker(QStringLiteral("Profondeur"));
    std::vector<PickerOption> depths;
    for (BitDepth d : allBitDepths) depths.push_back({text(rawValue(d)), int(d)});
    fillPicker(depth_, depths, undoable(model, QStringLiteral("Profondeur"), [this](const QVariant& v) {
                   model_.setBitDepth(BitDepth(v.toInt()));
                   model_.saveSettings();
               }));

    format_ = picker(QStringLiteral("Format de fichier"));
    std::vector<PickerOption> formats;
    for (FileFormat f : allFileFormats) formats.push_back({text(rawValue(f)), int(f)});
    fillPicker(format_, formats, undoable(model, QStringLiteral("Format de fichier"), [this](const QVariant& v) {
                   model_.setFileFormat(FileFormat(v.toInt()));
                   model_.saveSettings();
               }));

    layout->addSpacing(6);
    textReport_ = new LedToggle(QStringLiteral("Rapport texte (.txt)"), panel);
    pdfReport_ = new LedToggle(QStringLiteral("Rapport PDF (avec verdict)"), panel);
    // The batch brings the files to the target together, keeping the balance between tracks.
    album_ = new LedToggle(QStringLiteral("Album"), panel);
    album_->setToolTip(QStringLiteral("Un seul gain pour tous les fichiers du lot, mesurés comme un seul programme : "
                                      "l'équilibre entre les titres est conservé."));
    layout->addWidget(textReport_);
    layout->addWidget(pdfReport_);
    layout->addWidget(album_);
    connect(album_, &QAbstractButton::clicked, this,
            undoable(model, QStringLiteral("Album"), [this](const QVariant& on) { model_.setAlbum(on.toBool()); }));
    connect(textReport_, &QAbstractButton::clicked, this,
            undoable(model, QStringLiteral("Rapport texte"), [this](const QVariant& on) {
                model_.setExportLog(on.toBool());
                model_.saveSettings();
            }));
    connect(pdfReport_, &QAbstractButton::clicked, this,
            undoable(model, QStringLiteral("Rapport PDF"), [this](const QVariant& on) {
                model_.setExportPDF(on.toBool());
                model_.saveSettings();
            }));
    layout->addSpacing(4);
    layout->addWidget(makeNote(QStringLiteral("Langue des rapports et routage du monitoring : menu Réglages… (Ctrl+,)."), panel));

    for (auto signal : {&Model::gatingModeChanged, &Model::presetIndexChanged, &Model::layoutChanged,
                        &Model::channelOrderChanged, &Model::outputRateChanged, &Model::bitDepthChanged,
                        &Model::fileFormatChanged, &Model::exportLogChanged, &Model::exportPDFChanged, &Model::albumChanged})
        connect(&model, signal, this, &OutputSection::refresh);
    connect(&model, &Model::presetIndexChanged, this, &OutputSection::refillGating);
    refillGating();
    refresh();
}

void OutputSection::refillGating() {
    const GatingMode recommended = presetAt(model_.presetIndex()).recommendedGating;
    std::vector<PickerOption> modes;
    for (GatingMode g : allGatingModes)
        modes.push_back({g == GatingMode::autoMode ? autoGatingLabel(recommended) : text(rawValue(g)), int(g)});
    fillPicker(gating_, modes, undoable(model_, QStringLiteral("Méthode d'analyse"), [this](const QVariant& v) {
                   model_.setGatingMode(GatingMode(v.toInt()));
                   model_.saveSettings();
               }));
}

void OutputSection::refresh() {
    const GatingMode g = model_.gatingMode();
    gating_->setCurrentLabel(g == GatingMode::autoMode ? autoGatingLabel(presetAt(model_.presetIndex()).recommendedGating)
                                                       : text(rawValue(g)));
    dialogueNote_->setVisible(model_.effectiveGating() == GatingMode::dialog);
    layout_->setCurrentLabel(layoutLabel(model_.layout()));
    order_->setCurrentLabel(text(rawValue(model_.channelOrder())));
    QString rate = text(outputRateChoices.front().label);
    for (const auto& r : outputRateChoices)
        if (r.hz == model_.outputRate()) rate = text(r.label);
    rate_->setCurrentLabel(rate);
    depth_->setCurrentLabel(text(rawValue(model_.bitDepth())));
    format_->setCurrentLabel(text(rawValue(model_.fileFormat())));
    textReport_->setChecked(model_.exportLog());
    pdfReport_->setChecked(model_.exportPDF());
    album_->setChecked(model_.album());
}

}  // namespace velmora::window
