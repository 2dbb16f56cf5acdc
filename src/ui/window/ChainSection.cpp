#include "ui/window/ChainSection.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "model/Model.h"
#include "ui/CompCurveGraphView.h"
#include "ui/EQCurveGraphView.h"
#include "ui/GainReductionMeter.h"
#include "ui/LedToggle.h"
#include "ui/SSLKnob.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/window/ChainBinding.h"
#include "ui/window/Controls.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

constexpr int bigKnob = 52, smallKnob = 42;

// A panel whose stage switch sits in its header and lights the panel's edge while on.
StudioPanel* stagePanel(const QString& title, LedToggle* stage, QWidget* parent) {
    auto* panel = new StudioPanel(title, parent);
    if (stage) panel->setHeaderWidget(stage);
    return panel;
}

QLabel* bandTitle(const QString& text, const QColor& colour, QWidget* parent) {
    auto* label = makeCaption(text, parent);
    label->setAlignment(Qt::AlignHCenter);
    setTextColour(label, colour);
    return label;
}

// A bypassed stage: its knobs, switches and captions in grey, its own LED left as it is, so that
// nothing in the panel reads as acting on the sound. Each caption keeps the colour it goes back to.
void showBypassed(StudioPanel* panel, LedToggle* stage, bool bypassed) {
    for (auto* knob : panel->findChildren<SSLKnob*>()) knob->setDimmed(bypassed);
    for (auto* toggle : panel->findChildren<LedToggle*>())
        if (toggle != stage) toggle->setDimmed(bypassed);
    for (auto* label : panel->findChildren<QLabel*>()) {
        QVariant active = label->property("activeColour");
        if (!active.isValid()) {
            active = label->palette().color(QPalette::WindowText);
            label->setProperty("activeColour", active);
        }
        setTextColour(label, bypassed ? theme::textDisabled : active.value<QColor>());
    }
}

QLabel* subtitle(const QString& text, QWidget* parent) {
    auto* label = makeCaption(text, parent);
    setTextColour(label, theme::accent);
    return label;
}

}  // namespace

ChainSection::ChainSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    binding_ = new ChainBinding(model, this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(eqPanel_ = makeEqualiser());
    layout->addWidget(compPanel_ = makeCompressor());
    layout->addWidget(dynamicsPanel_ = makeDynamics());
    layout->addWidget(tonalPanel_ = makeTonal());
    layout->addWidget(stereoPanel_ = makeStereo());
    connect(&model, &Model::selectedIDChanged, this, &ChainSection::refreshItem);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refreshItem();
    });
    refreshItem();
}

StudioPanel* ChainSection::makeEqualiser() {
    LedToggle* on = binding_->toggle(&MasterParams::eqOn, QString(), nullptr);
    on->setAccessibleName(QStringLiteral("5 BANDES — RBJ"));
    auto* panel = stagePanel(QStringLiteral("5 BANDES — RBJ"), on, this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    eqGraph_ = new EQCurveGraphView(panel);
    eqGraph_->setMinimumHeight(200);
    eqGraph_->setAccessibleName(QStringLiteral("Réponse de l'égaliseur"));
    layout->addWidget(eqGraph_);
    connect(eqGraph_, &EQCurveGraphView::paramsEdited, &model_, [this](const MasterParams& p) { model_.setMp(p); });
    binding_->onChange([this, panel](const MasterParams& p) {
        eqGraph_->setParams(p);
        panel->setGlow(p.eqOn ? std::optional<QColor>(theme::ledGreen) : std::nullopt);
    });

    auto* bands = new QGridLayout;
    bands->setHorizontalSpacing(4);
    bands->setVerticalSpacing(2);
    struct Band {
        QString name;
        QColor colour;
        double MasterParams::*freq;
        double MasterParams::*gain;
        double MasterParams::*q;
    };
    const Band table[] = {
        {QStringLiteral("PASSE-HAUT"), theme::bandHighPass, &MasterParams::hpfFreq, nullptr, nullptr},
        {QStringLiteral("GRAVES"), theme::bandLow, &MasterParams::lsFreq, &MasterParams::lsGain, nullptr},
        {QStringLiteral("BAS-MÉD"), theme::bandLowMid, &MasterParams::b1Freq, &MasterParams::b1Gain, &MasterParams::b1Q},
        {QStringLiteral("HAUT-MÉD"), theme::bandHighMid, &MasterParams::b2Freq, &MasterParams::b2Gain, &MasterParams::b2Q},
        {QStringLiteral("AIGUS"), theme::bandHigh, &MasterParams::hsFreq, &MasterParams::hsGain, nullptr},
    };
    int column = 0;
    for (const Band& b : table) {
        bands->addWidget(bandTitle(b.name, b.colour, panel), 0, column, Qt::AlignHCenter);
        bands->addWidget(binding_->knob(b.freq, QStringLiteral("FREQ"), "%.0f", QStringLiteral("Hz"), b.colour,
                                        bigKnob, panel, b.name + QStringLiteral(" · FREQ")),
                         1, column, Qt::AlignHCenter);
        if (b.gain)
            bands->addWidget(binding_->knob(b.gain, QStringLiteral("GAIN"), "%+.0f", QStringLiteral("dB"), b.colour,
                                            bigKnob, panel, b.name + QStringLiteral(" · GAIN")),
                             2, column, Qt::AlignHCenter);
        else {
            LedToggle* hpf = binding_->toggle(&MasterParams::hpfOn, QStringLiteral("HPF"), panel);
            hpf->setAccessibleName(QStringLiteral("PASSE-HAUT"));
            bands->addWidget(hpf, 2, column, Qt::AlignHCenter | Qt::AlignTop);
        }
        if (b.q)
            bands->addWidget(binding_->knob(b.q, QStringLiteral("Q"), "%.2f", QString(), b.colour, smallKnob, panel,
                                            b.name + QStringLiteral(" · Q")),
                             3, column, Qt::AlignHCenter);
        ++column;
    }
    layout->addLayout(bands);
    binding_->onChange([panel, on](const MasterParams& p) { showBypassed(panel, on, !p.eqOn); });
    return panel;
}

StudioPanel* ChainSection::makeCompressor() {
    LedToggle* on = binding_->toggle(&MasterParams::compOn, QString(), nullptr);
    on->setAccessibleName(QStringLiteral("BUS COMPRESSEUR"));
    auto* panel = stagePanel(QStringLiteral("BUS COMPRESSEUR"), on, this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(subtitle(QStringLiteral("DÉTECTION LIÉE"), panel));
    auto* top = new QHBoxLayout;
    compGraph_ = new CompCurveGraphView(panel);
    compGraph_->setMinimumHeight(190);
    compGraph_->setAccessibleName(QStringLiteral("Courbe de transfert"));
    reduction_ = new GainReductionMeter(panel);
    reduction_->setMaximum(12);
    reduction_->setAccessibleName(QStringLiteral("Réduction de gain"));
    reduction_->setToolTip(QStringLiteral("Réduction de gain maximale du dernier traitement"));
    top->addWidget(compGraph_, 1);
    top->addWidget(reduction_);
    layout->addLayout(top);
    connect(compGraph_, &CompCurveGraphView::thresholdEdited, this,
            [this](double v) { binding_->edit([&](MasterParams& p) { p.compThreshold = v; }); });
    connect(compGraph_, &CompCurveGraphView::ratioEdited, this,
            [this](double v) { binding_->edit([&](MasterParams& p) { p.compRatio = v; }); });
    binding_->onChange([this, panel](const MasterParams& p) {
        compGraph_->setThreshold(p.compThreshold);
        compGraph_->setRatio(p.compRatio);
        compGraph_->setMakeup(p.compMakeup);
        compGraph_->setBypassed(!p.compOn);
        panel->setGlow(p.compOn ? std::optional<QColor>(theme::ledGreen) : std::nullopt);
    });

    auto* knobs = new QHBoxLayout;
    knobs->setSpacing(4);
    const QColor c = theme::accent;
    knobs->addWidget(binding_->knob(&MasterParams::compThreshold, QStringLiteral("SEUIL"), "%.0f", QStringLiteral("dB"), c, bigKnob, panel));
    // A tenth for the ratio and the attack: a hundredth of their ranges would read 2.05:1 and skip
    // the fast attacks under a millisecond.
    SSLKnob* ratio = binding_->knob(&MasterParams::compRatio, QStringLiteral("RATIO"), "%.1f", QStringLiteral(":1"), c, bigKnob, panel);
    ratio->setStep(0.1);
    knobs->addWidget(ratio);
    SSLKnob* attack = binding_->knob(&MasterParams::compAttack, QStringLiteral("ATTAQUE"), "%.0f", QStringLiteral("ms"), c, bigKnob, panel);
    attack->setStep(0.1);
    knobs->addWidget(attack);
    knobs->addWidget(binding_->knob(&MasterParams::compRelease, QStringLiteral("RELÂCHE"), "%.0f", QStringLiteral("ms"), c, bigKnob, panel));
    knobs->addWidget(binding_->knob(&MasterParams::compMakeup, QStringLiteral("GAIN"), "%+.0f", QStringLiteral("dB"), c, bigKnob, panel,
                                    QStringLiteral("GAIN DE COMPENSATION")));
    layout->addLayout(knobs);
    binding_->onChange([panel, on](const MasterParams& p) { showBypassed(panel, on, !p.compOn); });
    return panel;
}

StudioPanel* ChainSection::makeDynamics() {
    auto* panel = stagePanel(QStringLiteral("DYNAMIQUE & CIBLE"), nullptr, this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    layout->addWidget(binding_->toggle(&MasterParams::autoProtectComp, QStringLiteral("PROTECTION AUTO"), panel));
    QLabel* protection = makeNote(QString(), panel);
    layout->addWidget(protection);
    layout->addWidget(binding_->slider(&MasterParams::autoProtectThresholdDB, QStringLiteral("Seuil de déclenchement"),
                                       0.5, [](double v) { return withUnit(v, QStringLiteral("dB")); }, panel));
    binding_->onChange([protection](const MasterParams& p) { protection->setText(protectionLine(p.autoProtectThresholdDB)); });

    layout->addSpacing(6);
    layout->addWidget(binding_->toggle(&MasterParams::lraOn, QStringLiteral("RÉDUCTION DE PLAGE (LRA)"), panel));
    layout->addWidget(makeNote(QStringLiteral("Compression douce sur l'enveloppe pour resserrer la dynamique vers la cible."), panel));
    layout->addWidget(binding_->slider(&MasterParams::lraTarget, QStringLiteral("LRA cible"), 0.5,
                                       [](double v) { return withUnit(v, QStringLiteral("LU")); }, panel));

    layout->addSpacing(6);
    layout->addWidget(binding_->toggle(&MasterParams::lraIterative, QStringLiteral("RAFFINAGE ITÉRATIF (PRÉCISION ±0,5 LU)"), panel));
    layout->addWidget(makeNote(
        QStringLiteral("Boucle de convergence post-compression : préserve l'intégrée à ±0,1 LU. Max 4 itérations."), panel));
    return panel;
}

StudioPanel* ChainSection::makeTonal() {
    LedToggle* on = binding_->toggle(&MasterParams::teqOn, QString(), nullptr);
    on->setAccessibleName(QStringLiteral("EQ TONAL"));
    auto* panel = stagePanel(QStringLiteral("EQ TONAL (mise en forme finale)"), on, this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(subtitle(QStringLiteral("MISE EN FORME MUSICALE"), panel));
    layout->addWidget(makeNote(QStringLiteral("Égaliseur musical placé après le compresseur : courbes larges pour donner la "
                                              "couleur finale (graves, médiums, aigus)."),
                               panel));
    binding_->onChange([panel](const MasterParams& p) {
        panel->setGlow(p.teqOn ? std::optional<QColor>(theme::ledGreen) : std::nullopt);
    });
    auto* bands = new QGridLayout;
    bands->setHorizontalSpacing(14);
    bands->setVerticalSpacing(2);
    struct Band {
        QString name;
        QColor colour;
        double MasterParams::*gain;
        double MasterParams::*freq;
    };
    const Band table[] = {
        {QStringLiteral("GRAVES"), theme::bandLow, &MasterParams::tLsGain, &MasterParams::tLsFreq},
        {QStringLiteral("MÉDIUMS"), theme::bandLowMid, &MasterParams::tMidGain, &MasterParams::tMidFreq},
        {QStringLiteral("AIGUS"), theme::bandHigh, &MasterParams::tHsGain, &MasterParams::tHsFreq},
    };
    int column = 0;
    for (const Band& b : table) {
        bands->addWidget(bandTitle(b.name, b.colour, panel), 0, column * 2, 1, 2, Qt::AlignHCenter);
        bands->addWidget(binding_->knob(b.gain, QStringLiteral("GAIN"), "%+.1f", QStringLiteral("dB"), b.colour, bigKnob,
                                        panel, b.name + QStringLiteral(" · GAIN")),
                         1, column * 2, Qt::AlignHCenter | Qt::AlignBottom);
        bands->addWidget(binding_->knob(b.freq, QStringLiteral("FREQ"), "%.0f", QStringLiteral("Hz"), b.colour,
                                        smallKnob, panel, b.name + QStringLiteral(" · FREQ")),
                         1, column * 2 + 1, Qt::AlignHCenter | Qt::AlignBottom);
        ++column;
    }
    bands->addWidget(binding_->knob(&MasterParams::tMidQ, QStringLiteral("Largeur"), "%.1f", QString(), theme::bandLowMid,
                                    smallKnob, panel, QStringLiteral("MÉDIUMS · Largeur")),
                     2, 2, 1, 2, Qt::AlignHCenter);
    layout->addLayout(bands);
    binding_->onChange([panel, on](const MasterParams& p) { showBypassed(panel, on, !p.teqOn); });
    return panel;
}

StudioPanel* ChainSection::makeStereo() {
    LedToggle* on = binding_->toggle(&MasterParams::msOn, QString(), nullptr);
    on->setAccessibleName(QStringLiteral("STÉRÉO (MID / SIDE)"));
    auto* panel = stagePanel(QStringLiteral("STÉRÉO (MID / SIDE)"), on, this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(subtitle(QStringLiteral("LARGEUR STÉRÉO"), panel));
    auto* knobs = new QHBoxLayout;
    knobs->setSpacing(10);
    knobs->addWidget(binding_->knob(&MasterParams::midGain, QStringLiteral("MID"), "%+.1f", QStringLiteral("dB"),
                                    theme::bandHigh, bigKnob, panel));
    knobs->addWidget(binding_->knob(&MasterParams::sideGain, QStringLiteral("SIDE"), "%+.1f", QStringLiteral("dB"),
                                    theme::bandHighMid, bigKnob, panel));
    QLabel* note = makeNote(QStringLiteral("MID = centre (voix, basse) · SIDE = largeur. Monter SIDE élargit, baisser resserre "
                                           "vers le mono."),
                            panel);
    knobs->addWidget(note, 1);
    layout->addLayout(knobs);
    binding_->onChange([panel, on](const MasterParams& p) {
        panel->setGlow(p.msOn ? std::optional<QColor>(theme::ledGreen) : std::nullopt);
        showBypassed(panel, on, !p.msOn);
    });
    return panel;
}

void ChainSection::refreshItem() {
    const FileItem* item = model_.selectedItem();
    eqGraph_->setSampleRate(item ? item->sampleRate : 0.0);
    // While something plays the window's timer feeds the live spectrum instead.
    const std::vector<float> stored = item ? item->spectrumBins : std::vector<float>{};
    if (!model_.isPlaybackPlaying() && !model_.isLiveMastering() && stored != eqGraph_->spectrum()) eqGraph_->setSpectrum(stored);
    reduction_->setReduction(item ? item->maxGR : 0.0);
}

SSLKnob* ChainSection::knobNamed(const QString& name) const {
    for (auto* k : findChildren<SSLKnob*>())
        if (k->accessibleName() == name) return k;
    return nullptr;
}

LedToggle* ChainSection::toggleNamed(const QString& name) const {
    for (auto* t : findChildren<LedToggle*>())
        if (t->accessibleName() == name) return t;
    return nullptr;
}

}  // namespace velmora::window
