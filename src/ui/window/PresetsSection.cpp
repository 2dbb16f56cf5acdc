#include "ui/window/PresetsSection.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QWidgetAction>

#include "model/Model.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioSegmentButton.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/UndoHistory.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

QString text(std::string_view raw) { return QString::fromUtf8(raw.data(), qsizetype(raw.size())); }

// One saved chain in the load menu: its name loads it, the bin deletes it.
QWidgetAction* presetRow(Model& model, const NamedPreset& preset, QMenu* menu) {
    auto* action = new QWidgetAction(menu);
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(6, 2, 6, 2);
    layout->setSpacing(6);
    QPushButton* load = makeButton(preset.name, row);
    load->setStyleSheet(QStringLiteral("text-align: left; border: none; background: transparent; padding: 4px 8px;"));
    auto* bin = new IconButton(Icon::bin, QStringLiteral("Supprimer « %1 »").arg(preset.name), row);
    bin->setSide(24);
    layout->addWidget(load, 1);
    layout->addWidget(bin);
    action->setDefaultWidget(row);
    const QUuid id = preset.id;
    const QString step = QStringLiteral("Préréglage « %1 »").arg(preset.name);
    // Queued: the menu is rebuilt when the presets change, and with it the button clicked.
    QObject::connect(load, &QPushButton::clicked, menu, [&model, id, menu, step] {
        menu->close();
        UndoHistory::of(model).record(QStringLiteral("preset"), step, false, [&] { model.loadUserPreset(id); });
    });
    QObject::connect(bin, &QAbstractButton::clicked, menu, [&model, id, menu] {
        menu->close();
        QMetaObject::invokeMethod(menu, [&model, id] { model.deleteUserPreset(id); }, Qt::QueuedConnection);
    });
    return action;
}

}  // namespace

PresetsSection::PresetsSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* panel = new StudioPanel(QString(), this);
    outer->addWidget(panel);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    auto* tabs = new QHBoxLayout;
    tabs->setSpacing(4);
    presetsTab_ = new StudioSegmentButton(QStringLiteral("PRESETS"), int(PresetTab::presets), panel);
    utilitiesTab_ = new StudioSegmentButton(QStringLiteral("UTILITAIRES"), int(PresetTab::utilitaires), panel);
    tabs->addWidget(presetsTab_);
    tabs->addWidget(utilitiesTab_);
    layout->addLayout(tabs);
    pages_ = new QStackedWidget(panel);
    pages_->addWidget(makePresetsPage());
    pages_->addWidget(makeUtilitiesPage());
    layout->addWidget(pages_, 1);
    for (auto* b : {presetsTab_, utilitiesTab_})
        connect(b, &StudioSegmentButton::picked, this, [this](const QVariant& v) { setTab(PresetTab(v.toInt())); });

    connect(&model, &Model::userPresetsChanged, this, &PresetsSection::refreshPresets);
    connect(&model, &Model::selectedIDChanged, this, &PresetsSection::refreshPad);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refreshPad();
    });
    connect(&model, &Model::busyChanged, this, &PresetsSection::refreshBusy);
    connect(&model, &Model::selectedIDChanged, this, &PresetsSection::refreshBusy);
    setTab(PresetTab::presets);
    refreshPresets();
    refreshPad();
    refreshBusy();
}

void PresetsSection::setTab(PresetTab tab) {
    tab_ = tab;
    presetsTab_->setSelection(int(tab));
    utilitiesTab_->setSelection(int(tab));
    pages_->setCurrentIndex(int(tab));
}

QWidget* PresetsSection::makePresetsPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(makeNote(QStringLiteral("Enregistre toute la chaîne (EQ, comp, EQ tonal, Mid/Side, LRA) sous un nom réutilisable."), page));
    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    presetName_ = new QLineEdit(page);
    presetName_->setPlaceholderText(QStringLiteral("Nom du preset"));
    presetName_->setAccessibleName(QStringLiteral("Nom du preset"));
    presetName_->setFont(theme::bodyFont());
    savePreset_ = makeButton(QStringLiteral("Enregistrer"), page);
    row->addWidget(presetName_, 1);
    row->addWidget(savePreset_);
    layout->addLayout(row);
    noPreset_ = makeNote(QStringLiteral("Aucun preset enregistré pour l'instant."), page);
    layout->addWidget(noPreset_);
    load_ = new StudioMenuPicker(page);
    load_->setAccessibleName(QStringLiteral("Charger un preset"));
    layout->addWidget(load_);
    layout->addStretch();
    auto save = [this] {
        model_.saveUserPreset(presetName_->text());
        if (!presetName_->text().trimmed().isEmpty()) presetName_->clear();
    };
    connect(savePreset_, &QPushButton::clicked, this, save);
    connect(presetName_, &QLineEdit::returnPressed, this, save);
    return page;
}

QWidget* PresetsSection::makeUtilitiesPage() {
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 8, 0);
    layout->setSpacing(6);

    layout->addWidget(makeCaption(QStringLiteral("GÉNÉRATEURS DE SIGNAL"), page));
    pinkNoise_ = makeButton(QStringLiteral("Générer un bruit rose RLL"), page);
    layout->addWidget(pinkNoise_);
    layout->addWidget(makeNote(QStringLiteral("Bruit rose 500-2000 Hz mono à -23 LUFS, 30 s · 48 kHz / 24-bit. Aligne chaque "
                                              "enceinte à 73 dBC SPL au point d'écoute (EBU Tech 3343 v4 §8.2)."),
                               page));
    layout->addSpacing(8);
    layout->addWidget(makeCaption(QStringLiteral("PRÉ-ÉCOUTE A/B"), page));
    ab_ = makeButton(QStringLiteral("Générer extraits Avant / Après (30 s)"), page);
    layout->addWidget(ab_);
    layout->addWidget(makeNote(QStringLiteral("Crée deux fichiers _AB_AVANT et _AB_APRES à côté du fichier source, ouverts dans "
                                              "le gestionnaire de fichiers. À écouter dans votre lecteur habituel."),
                               page));
    layout->addSpacing(8);
    layout->addWidget(makeCaption(QStringLiteral("VÉRIFICATION PAD · CST-RT-040"), page));
    auto* lengths = new QHBoxLayout;
    lengths->setSpacing(4);
    // The programme length decides which limits apply: the file's own, or a length chosen.
    const QString names[] = {QStringLiteral("AUTO"), QStringLiteral("COURT"), QStringLiteral("LONG")};
    const QString tips[] = {QStringLiteral("D'après la durée du fichier"), QStringLiteral("Programme court (≤ 2 min)"),
                            QStringLiteral("Programme long (> 2 min)")};
    for (int i = 0; i < 3; ++i) {
        padLengths_[i] = new StudioSegmentButton(names[i], i, page);
        padLengths_[i]->setToolTip(tips[i]);
        padLengths_[i]->setMinimumWidth(40);
        padLengths_[i]->setSelection(0);
        lengths->addWidget(padLengths_[i]);
        connect(padLengths_[i], &StudioSegmentButton::picked, this, [this](const QVariant& v) {
            const int choice = v.toInt();
            setPadLength(choice == 0 ? std::nullopt : std::optional<bool>(choice == 1));
        });
    }
    layout->addLayout(lengths);
    utilities_ = layout;
    padBox_ = new QWidget(page);
    padGrid_ = new QGridLayout(padBox_);
    layout->addWidget(padBox_);
    padVerdict_ = new QLabel(page);
    padVerdict_->setFont(theme::monoFont(14, true));
    layout->addWidget(padVerdict_);
    padNote_ = makeNote(text(velmora::padNote), page);
    layout->addWidget(padNote_);
    layout->addStretch();
    scroll->setWidget(page);  // which turns its background on: off again, the panel shows through
    page->setAutoFillBackground(false);
    scroll->viewport()->setAutoFillBackground(false);

    connect(pinkNoise_, &QPushButton::clicked, this, [this] { model_.saveRLLCalibration(); });
    connect(ab_, &QPushButton::clicked, this, [this] { model_.generateAB(); });
    return scroll;
}

void PresetsSection::refreshPresets() {
    const auto& presets = model_.userPresets();
    noPreset_->setVisible(presets.empty());
    load_->setVisible(!presets.empty());
    load_->setCurrentLabel(countedTitle(QStringLiteral("Charger un preset"), int(presets.size())));
    QMenu* menu = load_->menu();
    menu->clear();
    for (const auto& p : presets) menu->addAction(presetRow(model_, p, menu));
}

void PresetsSection::setPadLength(std::optional<bool> isShort) {
    padShort_ = isShort;
    const int choice = !isShort ? 0 : *isShort ? 1 : 2;
    for (auto* b : padLengths_) b->setSelection(choice);
    refreshPad();
}

void PresetsSection::refreshPad() {
    const auto check = model_.selectedPADCheck(padShort_);
    // Said checked only when the selected measurement heard speech.
    padNote_->setText(text(check ? padNoteFor(*check) : velmora::padNote));
    QString shown = QStringLiteral("-");
    if (check)
        for (const auto& line : check->lines)
            shown += QString::fromStdString(line.label + line.value + line.target) + (line.pass ? '1' : '0');
    if (shown == shownPad_) return;  // the same lines: nothing to lay out again
    shownPad_ = shown;
    // A new box each time: a grid keeps the rows it once had.
    const int at = utilities_->indexOf(padBox_);
    delete padBox_;
    padBox_ = new QWidget(padVerdict_->parentWidget());
    padGrid_ = new QGridLayout(padBox_);
    padGrid_->setContentsMargins(0, 0, 0, 0);
    padGrid_->setHorizontalSpacing(6);
    padGrid_->setVerticalSpacing(0);
    utilities_->insertWidget(at, padBox_);
    if (!check) {
        padVerdict_->setText(QStringLiteral("—"));
        setTextColour(padVerdict_, theme::textSecondary);
        return;
    }
    // Two lines a check: the mark, what is checked and the value; under them, the limit.
    QWidget* page = padBox_;
    QFont small = theme::bodyFont();
    small.setPixelSize(11);
    int row = 0;
    for (const auto& line : check->lines) {
        auto* mark = new QLabel(line.pass ? QStringLiteral("✓") : QStringLiteral("✗"), page);
        setTextColour(mark, line.pass ? theme::ledGreen : theme::zoneRed);
        auto* label = new QLabel(QString::fromStdString(line.label), page);
        auto* value = new QLabel(QString::fromStdString(line.value), page);
        auto* target = new QLabel(QString::fromStdString(line.target), page);
        label->setFont(small);
        target->setFont(small);
        setTextColour(target, theme::textSecondary);
        value->setFont(theme::monoFont(11, true));
        padGrid_->addWidget(mark, row, 0);
        padGrid_->addWidget(label, row, 1);
        padGrid_->addWidget(value, row, 2, Qt::AlignRight);
        padGrid_->addWidget(target, row + 1, 1, 1, 2);
        padGrid_->setRowMinimumHeight(row + 1, 18);
        row += 2;
    }
    padGrid_->setColumnStretch(1, 1);
    padVerdict_->setText(text(velmora::padVerdict(*check)));
    setTextColour(padVerdict_, check->conforms() ? theme::ledGreen : theme::zoneRed);
}

QStringList PresetsSection::padLines() const {
    QStringList lines;
    const auto cell = [this](int r, int c) {
        QLayoutItem* item = padGrid_->itemAtPosition(r, c);
        auto* label = item ? qobject_cast<QLabel*>(item->widget()) : nullptr;
        return label ? label->text() : QString();
    };
    for (int r = 0; r + 1 < padGrid_->rowCount(); r += 2)
        if (!cell(r, 1).isEmpty()) lines << QStringList{cell(r, 1), cell(r, 2), cell(r + 1, 1)}.join(QStringLiteral(" · "));
    return lines;
}

void PresetsSection::refreshBusy() {
    const bool idle = !model_.busy();
    pinkNoise_->setEnabled(idle);
    const FileItem* item = model_.selectedItem();
    ab_->setEnabled(idle && item && item->hasAudio());
}

}  // namespace velmora::window
