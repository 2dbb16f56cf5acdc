#include "ui/window/NormSection.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include "model/Model.h"
#include "norms/Presets.h"
#include "reports/NormReference.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioSegmentButton.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/UndoHistory.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

// The lock symbol beside the locked-ceiling line.
class LockGlyph : public QWidget {
public:
    explicit LockGlyph(QWidget* parent) : QWidget(parent) { setFixedSize(16, 16); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        paintIcon(p, Icon::lock, QRectF(rect()), theme::accent);
    }
};

}  // namespace

NormSection::NormSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* panel = new StudioPanel(QStringLiteral("NORME · CIBLE · PLAFOND"), this);
    outer->addWidget(panel);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    norm_ = new StudioMenuPicker(panel);
    norm_->setAccessibleName(QStringLiteral("Norme"));
    std::vector<PickerOption> norms;
    for (std::size_t i = 0; i < presets().size(); ++i)
        norms.push_back({QString::fromStdString(presets()[i].label), int(i)});
    UndoHistory* history = &UndoHistory::of(model);
    fillPicker(norm_, norms, [this, history](const QVariant& v) {
        history->record(QStringLiteral("norm"), QStringLiteral("Norme"), false, [&] {
            model_.applyPreset(v.toInt());
            model_.saveSettings();
        });
    });
    layout->addWidget(norm_);

    target_ = new LabeledSlider(QStringLiteral("Cible de sonie"), -36.0, -5.0, 0.5,
                                [this](double v) { return withUnit(v, unitText(model_.displayUnit())); }, panel);
    ceiling_ = new LabeledSlider(QStringLiteral("Plafond True Peak"), -9.0, 0.0, 0.1,
                                 [](double v) { return withUnit(v, QStringLiteral("dBTP")); }, panel);
    layout->addWidget(target_);
    layout->addWidget(ceiling_);

    lockRow_ = new QWidget(panel);
    auto* lockLayout = new QHBoxLayout(lockRow_);
    lockLayout->setContentsMargins(0, 0, 0, 0);
    lockLayout->setSpacing(6);
    lockLayout->addWidget(new LockGlyph(lockRow_), 0, Qt::AlignTop);
    lockText_ = new QLabel(lockRow_);
    lockText_->setWordWrap(true);
    lockText_->setFont(theme::bodyFont());
    setTextColour(lockText_, theme::accent);
    lockLayout->addWidget(lockText_, 1);
    layout->addWidget(lockRow_);
    lockHint_ = makeNote(ceilingLockHint, panel);
    layout->addWidget(lockHint_);

    auto* modeRow = new QHBoxLayout;
    modeRow->setSpacing(4);
    master_ = new StudioSegmentButton(QStringLiteral("TRANCHE MASTER"), int(ProcessMode::master), panel);
    conform_ = new StudioSegmentButton(QStringLiteral("CONFORMITÉ SEULE"), int(ProcessMode::conform), panel);
    modeRow->addWidget(master_);
    modeRow->addWidget(conform_);
    layout->addSpacing(4);
    layout->addWidget(makeCaption(QStringLiteral("MODE DE TRAITEMENT"), panel));
    layout->addLayout(modeRow);
    conformText_ = makeNote(QStringLiteral("Mise aux normes sans toucher au son : gain vers la cible + limiteur True Peak. "
                                           "Aucun EQ ni compression."),
                            panel);
    setTextColour(conformText_, theme::textPrimary);
    layout->addWidget(conformText_);

    connect(target_, &LabeledSlider::valueEdited, this, [this, history](double v) {
        history->record(QStringLiteral("target"), QStringLiteral("Cible de sonie"), true, [&] { model_.setTarget(v); });
    });
    connect(ceiling_, &LabeledSlider::valueEdited, this, [this, history](double v) {
        if (model_.ceilingLocked()) return;
        history->record(QStringLiteral("ceiling"), QStringLiteral("Plafond True Peak"), true, [&] { model_.setCeiling(v); });
    });
    for (auto* b : {master_, conform_})
        connect(b, &StudioSegmentButton::picked, this, [this, history](const QVariant& v) {
            history->record(QStringLiteral("mode"), QStringLiteral("Mode de traitement"), false,
                           [&] { model_.setMode(ProcessMode(v.toInt())); });
        });
    for (auto signal : {&Model::presetIndexChanged, &Model::targetChanged, &Model::ceilingChanged,
                        &Model::displayUnitChanged, &Model::modeChanged})
        connect(&model, signal, this, &NormSection::refresh);
    refresh();
}

void NormSection::refresh() {
    const Preset& norm = presetAt(model_.presetIndex());
    const QString label = QString::fromStdString(norm.label);
    // A target or ceiling moved off the norm's is no longer the norm: it only started from it.
    norm_->setCurrentLabel(isCustomTarget(norm, model_.target(), model_.ceiling())
                               ? QStringLiteral("Personnalisé (base : %1)").arg(label)
                               : label);
    target_->setValue(model_.target());
    ceiling_->setValue(model_.ceiling());
    const bool locked = model_.ceilingLocked();
    ceiling_->setEnabled(!locked);
    lockRow_->setVisible(locked);
    lockHint_->setVisible(locked);
    lockText_->setText(ceilingLockLine(model_.ceiling()));
    master_->setSelection(int(model_.mode()));
    conform_->setSelection(int(model_.mode()));
    conformText_->setVisible(model_.mode() == ProcessMode::conform);
}

}  // namespace velmora::window
