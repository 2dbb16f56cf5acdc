#include "ui/window/MeasuresSection.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <limits>

#include "measurement/DialogueAnalyzer.h"
#include "measurement/EventDetector.h"
#include "measurement/FileAnalysis.h"
#include "model/Model.h"
#include "ui/window/FigureOrigin.h"
#include "norms/Presets.h"
#include "output/MasterDelivery.h"
#include "ui/AnalogVUMeter.h"
#include "ui/BigMeter.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/VerticalMeter.h"
#include "ui/window/Controls.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

constexpr double minusInfinity = -std::numeric_limits<double>::infinity();
// Below this width the readings go under the meters, four to a row; above, beside them.
constexpr int besideFromWidth = 700;
// A dial reads best in a box about 1.3 times as wide as it is tall: the two needle meters stand
// side by side in a room wider than that, one above the other in a narrower one. The margin
// either side keeps them from flipping back and forth at the edge.
constexpr double sideBySideAbove = 1.4, stackedBelow = 1.2;

QLabel* warningLine(const QString& text, const QColor& colour, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setFont(theme::bodyFont());
    setTextColour(label, colour);
    return label;
}

// A reading and its unit; the unit goes when there is no reading.
void showReading(ValueBadge* badge, double value, const QString& unit) {
    badge->setValue(oneDecimal(value));
    badge->setUnit(std::isfinite(value) ? unit : QString());
}

// Green within the norm's tolerance, amber within twice it, red beyond; grey without a value.
QColor verdictColour(double integrated, double target, double tolerance) {
    if (!std::isfinite(integrated)) return theme::textSecondary;
    const double off = std::fabs(integrated - target);
    if (off <= tolerance + 0.05) return theme::ledGreen;
    if (off <= 2 * tolerance + 1.0) return theme::zoneAmber;
    return theme::zoneRed;
}

}  // namespace

namespace {
// "LRA  -33.0 … -23.0": the short-term levels the range lies between, beside it.
QString rangeLabelFor(const LoudnessResult* m) {
    if (!m || !m->loudnessRangeLow || !m->loudnessRangeHigh) return QStringLiteral("LRA");
    return QStringLiteral("LRA  %1 … %2").arg(oneDecimal(*m->loudnessRangeLow), oneDecimal(*m->loudnessRangeHigh));
}
}  // namespace

MeasuresSection::MeasuresSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    panel_ = new StudioPanel(QStringLiteral("MESURES"), this);
    outer->addWidget(panel_);
    origin_ = new OriginBadge(model, true, panel_);
    panel_->setHeaderWidget(origin_);
    auto* panelLayout = new QVBoxLayout(panel_);
    panelLayout->setContentsMargins(0, 0, 0, 0);
    stack_ = new QStackedWidget(panel_);
    panelLayout->addWidget(stack_);

    placeholder_ = new QLabel(QStringLiteral("Sélectionnez un fichier pour voir les mesures"), stack_);
    placeholder_->setAlignment(Qt::AlignCenter);
    placeholder_->setFont(theme::bodyFont());
    setTextColour(placeholder_, theme::textSecondary);
    placeholder_->setMinimumHeight(120);
    stack_->addWidget(placeholder_);

    auto* page = new QWidget(stack_);
    stack_->addWidget(page);
    body_ = new QVBoxLayout(page);
    body_->setContentsMargins(0, 0, 0, 0);
    body_->setSpacing(8);
    meterRow_ = new QHBoxLayout;
    meterRow_->setSpacing(10);
    body_->addLayout(meterRow_);

    integrated_ = new BigMeter(QStringLiteral("INTÉGRÉE"), QStringLiteral("LUFS"), false, page);
    shortTerm_ = new VerticalMeter(QStringLiteral("COURT TERME"), false, page);
    // The big meter asks for the width its type needs at its height; the needles take the rest.
    meterRow_->addWidget(integrated_);
    meterRow_->addWidget(shortTerm_);
    needles_ = new QBoxLayout(QBoxLayout::TopToBottom);
    needles_->setSpacing(6);
    loudnessVU_ = new AnalogVUMeter(page);
    loudnessVU_->setTitle(QStringLiteral("SONIE (VU · M)"));
    loudnessVU_->setDeltas(-24, 6);
    loudnessVU_->setAccent(theme::accent);
    peakVU_ = new AnalogVUMeter(page);
    peakVU_->setTitle(QStringLiteral("TRUE PEAK (VU)"));
    peakVU_->setDeltas(-24, 6);
    peakVU_->setUnit(QStringLiteral("dBTP"));
    peakVU_->setAccent(theme::zoneRed);
    for (auto* vu : {loudnessVU_, peakVU_}) {
        vu->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
        needles_->addWidget(vu);
    }
    meterRow_->addLayout(needles_, 1);
    loudnessVU_->installEventFilter(this);

    badgeBox_ = new QWidget(page);
    badgeGrid_ = new QGridLayout(badgeBox_);
    badgeGrid_->setContentsMargins(0, 0, 0, 0);
    badgeGrid_->setHorizontalSpacing(6);
    badgeGrid_->setVerticalSpacing(6);
    momentaryMax_ = new SeekBadge(QStringLiteral("M max"), badgeBox_);
    shortTermMax_ = new SeekBadge(QStringLiteral("S max"), badgeBox_);
    truePeak_ = new SeekBadge(QStringLiteral("TRUE PEAK"), badgeBox_);
    samplePeak_ = new SeekBadge(QStringLiteral("PEAK"), badgeBox_);
    range_ = new SeekBadge(QStringLiteral("LRA"), badgeBox_);
    target_ = new SeekBadge(QStringLiteral("CIBLE"), badgeBox_);
    ceiling_ = new SeekBadge(QStringLiteral("PLAFOND"), badgeBox_);
    target_->setColor(theme::accent);
    ceiling_->setColor(theme::accent);

    warningBox_ = new QWidget(page);
    warningLines_ = new QVBoxLayout(warningBox_);
    warningLines_->setContentsMargins(2, 0, 2, 0);
    warningLines_->setSpacing(2);
    body_->addWidget(warningBox_);
    arrangeBadges();

    connect(momentaryMax_, &SeekBadge::activated, this, [this] {
        if (const auto* m = shownMeasure(model_)) seekTo(m->momentaryMaxSeconds);
    });
    connect(shortTermMax_, &SeekBadge::activated, this, [this] {
        if (const auto* m = shownMeasure(model_)) seekTo(m->shortTermMaxSeconds);
    });
    connect(truePeak_, &SeekBadge::activated, this, [this] {
        if (const auto* m = shownMeasure(model_)) seekTo(m->truePeakSeconds);
    });

    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refresh();
    });
    for (auto signal : {&Model::selectedIDChanged, &Model::targetChanged, &Model::ceilingChanged,
                        &Model::displayUnitChanged, &Model::presetIndexChanged, &Model::layoutWarningChanged,
                        &Model::showsMasterChanged})
        connect(&model, signal, this, &MeasuresSection::refresh);
    refresh();
}

void MeasuresSection::seekTo(std::optional<double> seconds) {
    const double duration = model_.selectedDuration();
    if (!seconds || !(duration > 0)) return;
    model_.seekPlayback(*seconds / duration);
}

QSize MeasuresSection::minimumSizeHint() const {
    // As narrow as the narrowest arrangement allows (needles stacked, readings under them), so
    // a splitter can always take the section there: the arrangement follows the width it gets.
    QSize s = QWidget::minimumSizeHint();
    const int panelMargins = panel_->contentsMargins().left() + panel_->contentsMargins().right();
    const int meters = integrated_->minimumSizeHint().width() + shortTerm_->minimumSizeHint().width() +
                       loudnessVU_->minimumSizeHint().width() + 2 * meterRow_->spacing();
    int readings = 3 * badgeGrid_->horizontalSpacing();
    for (const QWidget* b : {momentaryMax_, shortTermMax_, truePeak_, samplePeak_})
        readings += b->minimumSizeHint().width();
    const int narrowest = panelMargins + std::max(meters, readings);
    s.setWidth(std::min(s.width(), narrowest));
    return s;
}

void MeasuresSection::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    arrangeBadges();
}

bool MeasuresSection::eventFilter(QObject* watched, QEvent* e) {
    // After the layout pass that resized the dial: turning the row round in the middle of it
    // would leave the panels above with the old arrangement's minimum height.
    if (watched == loudnessVU_ && e->type() == QEvent::Resize)
        QMetaObject::invokeMethod(this, &MeasuresSection::arrangeNeedles, Qt::QueuedConnection);
    return QWidget::eventFilter(watched, e);
}

void MeasuresSection::arrangeNeedles() {
    // The room both dials share, whichever way they stand now.
    const QSize one = loudnessVU_->size();
    const double room = needlesSideBySide_ ? (2.0 * one.width() + needles_->spacing()) / std::max(1, one.height())
                                           : double(one.width()) / std::max(1, 2 * one.height() + needles_->spacing());
    // Side by side and narrower than a dial can be: the row has not the room for two.
    const bool squeezed = one.width() < loudnessVU_->minimumSizeHint().width();
    const bool sideBySide = needlesSideBySide_ ? room > stackedBelow && !squeezed : room > sideBySideAbove;
    if (sideBySide == needlesSideBySide_) return;
    needlesSideBySide_ = sideBySide;
    needles_->setDirection(sideBySide ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    needles_->setSpacing(sideBySide ? 10 : 6);
    // The panels between here and the column keep their minimum heights cached: each is told.
    for (QWidget* w = loudnessVU_->parentWidget(); w; w = w->parentWidget()) {
        if (w->layout()) w->layout()->invalidate();
        w->updateGeometry();
        if (w == this) break;
    }
}

void MeasuresSection::arrangeBadges() {
    const bool beside = width() >= besideFromWidth;
    const int columns = beside ? 2 : 4;
    if (columns == badgeColumns_) return;
    badgeColumns_ = columns;
    const SeekBadge* order[] = {momentaryMax_, shortTermMax_, truePeak_, samplePeak_, range_, target_, ceiling_};
    for (auto* b : order) badgeGrid_->removeWidget(const_cast<SeekBadge*>(b));
    for (int i = 0; i < 7; ++i) badgeGrid_->addWidget(const_cast<SeekBadge*>(order[i]), i / columns, i % columns);
    meterRow_->removeWidget(badgeBox_);
    body_->removeWidget(badgeBox_);
    if (beside) {
        meterRow_->addWidget(badgeBox_, 0, Qt::AlignVCenter);
    } else {
        body_->insertWidget(1, badgeBox_);
    }
}

void MeasuresSection::refresh() {
    const FileItem* item = model_.selectedItem();
    stack_->setCurrentIndex(item ? 1 : 0);
    const QString unit = unitText(model_.displayUnit());
    const double target = model_.target();
    const double ceiling = model_.ceiling();
    // The scales are redrawn whole when they change: only when they do.
    if (unit != shownUnit_) {
        shownUnit_ = unit;
        integrated_->setUnit(unit);
        loudnessVU_->setUnit(unit);
    }
    if (target != shownTarget_) {
        shownTarget_ = target;
        integrated_->setTarget(target);
        shortTerm_->setTarget(target);
        loudnessVU_->setReference(target);
    }
    if (ceiling != shownCeiling_) {
        shownCeiling_ = ceiling;
        peakVU_->setReference(ceiling);
    }
    showReading(target_, target, unit);
    showReading(ceiling_, ceiling, QStringLiteral("dBTP"));

    const LoudnessResult* shown = shownMeasure(model_);
    const LoudnessResult m = shown ? *shown : LoudnessResult{};
    const bool measured = shown != nullptr;
    const double truePeak = measured ? m.truePeakDB : minusInfinity;
    showReading(momentaryMax_, m.momentaryMax, unit);
    momentaryMax_->setSeekable(m.momentaryMaxSeconds.has_value());
    showReading(shortTermMax_, m.shortTermMax, unit);
    shortTermMax_->setSeekable(m.shortTermMaxSeconds.has_value());
    showReading(truePeak_, truePeak, QStringLiteral("dBTP"));
    truePeak_->setSeekable(m.truePeakSeconds.has_value());
    const QColor peakColour = !std::isfinite(truePeak) ? theme::textPrimary
                              : truePeak <= ceiling + 0.05 ? theme::ledGreen
                                                           : theme::zoneRed;
    if (peakColour != truePeakColour_) {
        truePeakColour_ = peakColour;
        truePeak_->setColor(peakColour);
    }
    showReading(range_, m.loudnessRange.value_or(minusInfinity), QStringLiteral("LU"));
    const QString rangeLabel = rangeLabelFor(shown);
    if (rangeLabel != rangeLabel_) {
        range_->setLabel(rangeLabel_ = rangeLabel, QStringLiteral("LRA"));
        // A narrow badge shortens its label: the whole of it on hovering.
        range_->setToolTip(rangeLabel == QStringLiteral("LRA") ? QString() : rangeLabel + QStringLiteral(" LUFS"));
    }
    // A dialogue-gated measurement reads the speech alone; the programme goes beside it.
    const bool dialogue = m.programmeLUFS.has_value();
    if (dialogue != showsDialogue_) {
        showsDialogue_ = dialogue;
        integrated_->setTitle(dialogue ? QStringLiteral("DIALOGUES") : QStringLiteral("INTÉGRÉE"));
    }
    if (!live_) showLive(std::nullopt);
    refreshWarnings();
}

void MeasuresSection::showLive(const std::optional<LiveMeter::Readings>& readings) {
    // Twenty times a second while something plays: touch only what changes, so each meter
    // repaints its own rectangle and the panel under them stays as it is.
    const bool live = readings.has_value();
    if (live != live_) {
        live_ = live;
        panel_->setGlow(live ? std::optional<QColor>(theme::accent) : std::nullopt);
        origin_->setLive(live);
    }
    const LoudnessResult* shown = shownMeasure(model_);
    const LoudnessResult m = shown ? *shown : LoudnessResult{};
    const bool measured = shown != nullptr;
    const double integrated = readings ? readings->integrated : m.integratedLUFS;
    const double shortTerm = readings ? readings->shortTerm : m.shortTermMax;
    const double momentary = readings ? readings->momentary : m.integratedLUFS;
    const double peak = readings ? readings->peakDB : (measured ? m.truePeakDB : minusInfinity);
    const double samplePeak = readings ? readings->peakDB : m.samplePeakDB;
    integrated_->setValue(integrated);
    const QColor verdict = verdictColour(integrated, model_.target(), presetAt(model_.presetIndex()).toleranceLU);
    if (verdict != integratedColour_) {
        integratedColour_ = verdict;
        integrated_->setValueColor(verdict);
    }
    shortTerm_->setValue(shortTerm);
    loudnessVU_->setValue(momentary);
    peakVU_->setValue(peak);
    showReading(samplePeak_, samplePeak, QStringLiteral("dBFS"));
    const bool seekable = !readings && m.samplePeakSeconds.has_value();
    if (seekable != samplePeak_->seekable()) samplePeak_->setSeekable(seekable);
}

void MeasuresSection::refreshWarnings() {
    std::vector<std::pair<QString, QColor>> lines;
    const FileItem* item = model_.selectedItem();
    if (item && item->inversionWarning)
        lines.emplace_back(QStringLiteral("⚠ ") + QString::fromStdString(item->inversionWarning->text()), theme::zoneAmber);
    if (item && item->protectionAppliedDB > 0.05) {
        lines.emplace_back(protectionBadge(item->protectionAppliedDB), theme::accent);
        lines.emplace_back(QStringLiteral("Compression douce appliquée avant le limiteur pour préserver les transitoires."),
                           theme::textSecondary);
    }
    if (item && item->targetMissedLUFS)
        lines.emplace_back(QStringLiteral("⚠ ") + QString::fromStdString(targetMissedText(*item->targetMissedLUFS)),
                           theme::zoneAmber);
    if (!model_.layoutWarning().isEmpty()) lines.emplace_back(model_.layoutWarning(), theme::zoneAmber);
    if (item && item->detail)
        if (const std::size_t clipped = clippedPassages(*item->detail))
            lines.emplace_back(QStringLiteral("⚠ Source écrêtée : %1 passages").arg(clipped), theme::zoneRed);
    if (item && item->measured && item->measured->programmeLUFS) {
        const LoudnessResult& m = *item->measured;
        if (!std::isfinite(m.integratedLUFS) && std::isfinite(*m.programmeLUFS))
            lines.emplace_back(QString::fromUtf8(noDialogueText), theme::zoneAmber);
        lines.emplace_back(QStringLiteral("Sonie programme : ") + oneDecimal(*m.programmeLUFS) +
                               (std::isfinite(*m.programmeLUFS) ? " " + unitText(model_.displayUnit()) : QString()),
                           theme::textPrimary);
        if (m.dialogueShare)
            lines.emplace_back(QString::fromStdString(dialogueShareText(*m.dialogueShare)), theme::textSecondary);
    }
    // New labels lay the panel out again: only when the lines are not those shown.
    if (lines == shownWarnings_) return;
    shownWarnings_ = lines;
    while (QLayoutItem* line = warningLines_->takeAt(0)) {
        delete line->widget();
        delete line;
    }
    for (const auto& [text, colour] : lines) warningLines_->addWidget(warningLine(text, colour, warningBox_));
    warningBox_->setVisible(!lines.empty());
}

QStringList MeasuresSection::warnings() const {
    QStringList lines;
    for (int i = 0; i < warningLines_->count(); ++i)
        if (auto* label = qobject_cast<QLabel*>(warningLines_->itemAt(i)->widget())) lines << label->text();
    return lines;
}

}  // namespace velmora::window
