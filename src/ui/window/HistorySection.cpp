#include "ui/window/HistorySection.h"

#include <QHBoxLayout>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLocale>
#include <QVBoxLayout>

#include "audio/ChannelLabels.h"
#include "model/Model.h"
#include "norms/Presets.h"
#include "ui/ChannelBarsView.h"
#include "ui/LedToggle.h"
#include "ui/LoudnessHistoryView.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/EventsList.h"

namespace velmora::window {

HistorySection::HistorySection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    panel_ = new StudioPanel(QStringLiteral("HISTORIQUE DE SONIE"), this);
    outer->addWidget(panel_);
    badge_ = makeCaption(QStringLiteral("SOURCE"), panel_);
    badge_->setAccessibleName(QStringLiteral("Origine de l'historique"));
    panel_->setHeaderWidget(badge_);
    auto* layout = new QHBoxLayout(panel_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    history_ = new LoudnessHistoryView(panel_);
    history_->setAccessibleName(QStringLiteral("Historique de sonie"));
    layout->addWidget(history_, 5);
    // On a wide screen the history takes the width; the list keeps what its columns need.
    auto* sideBox = new QWidget(panel_);
    sideBox->setMaximumWidth(560);
    auto* side = new QVBoxLayout(sideBox);
    side->setContentsMargins(0, 0, 0, 0);
    side->setSpacing(6);
    bars_ = new ChannelBarsView(panel_);
    bars_->setVisible(false);
    bars_->setMinimumHeight(100);
    side->addWidget(bars_);
    events_ = new EventsList(panel_);
    events_->setMinimumWidth(250);
    side->addWidget(events_, 1);
    auto* limitRow = new QHBoxLayout;
    momentaryOn_ = new LedToggle(QStringLiteral("LIMITE M"), panel_);
    momentaryOn_->setAccessibleName(QStringLiteral("Limite de sonie momentanée"));
    momentaryLimit_ = new QDoubleSpinBox(panel_);
    momentaryLimit_->setLocale(QLocale::c());  // a decimal point, as every figure of the window
    momentaryLimit_->setRange(-60.0, 0.0);
    momentaryLimit_->setSingleStep(0.5);
    momentaryLimit_->setDecimals(1);
    momentaryLimit_->setValue(-10.0);
    momentaryLimit_->setSuffix(QStringLiteral(" LUFS"));
    momentaryLimit_->setEnabled(false);
    momentaryLimit_->setAccessibleName(QStringLiteral("Limite M"));
    wheelOnlyWithFocus(momentaryLimit_);
    limitRow->addWidget(momentaryOn_);
    limitRow->addWidget(momentaryLimit_);
    limitRow->addStretch(1);
    side->addLayout(limitRow);
    layout->addWidget(sideBox, 4);

    connect(history_, &LoudnessHistoryView::seekRequested, this, &HistorySection::seekTo);
    connect(events_, &EventsList::seekRequested, this, &HistorySection::seekTo);
    connect(momentaryOn_, &QAbstractButton::toggled, this, [this](bool on) {
        momentaryLimit_->setEnabled(on);
        refresh();
    });
    connect(momentaryLimit_, &QDoubleSpinBox::valueChanged, this, &HistorySection::refresh);
    connect(&model, &Model::selectedIDChanged, this, &HistorySection::refresh);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refresh();
    });
    for (auto signal : {&Model::presetIndexChanged, &Model::targetChanged, &Model::ceilingChanged,
                        &Model::layoutChanged, &Model::channelOrderChanged})
        connect(&model, signal, this, &HistorySection::refresh);
    connect(&model, &Model::isLiveMasteringChanged, this, &HistorySection::refreshLive);
    refresh();
    refreshLive();
}

void HistorySection::refresh() {
    const FileItem* item = model_.selectedItem();
    const auto detail = item ? item->detail : nullptr;
    history_->setHistory(detail);
    const Preset& norm = presetAt(model_.presetIndex());
    history_->setTargetBand(model_.target(), norm.toleranceLU);
    const bool multichannel = detail && detail->channels.size() > 2;
    bars_->setVisible(multichannel);
    if (!detail) {
        events_->setEvents({}, {});
        history_->setEvents({});
        return;
    }
    const auto momentary = momentaryOn_->isChecked() ? std::optional(momentaryLimit_->value()) : std::nullopt;
    auto list = detectEvents(*detail, {model_.ceiling(), norm.msLimitLUFS, momentary});
    const auto labels =
        channelLabels(int(detail->channels.size()), model_.layout(), model_.channelOrder(), item->declaredPositions);
    events_->setEvents(list.events, labels);
    if (multichannel) {
        std::vector<ChannelBarsView::Channel> channels;
        for (std::size_t c = 0; c < detail->channels.size(); ++c)
            channels.push_back({QString::fromStdString(labels[c]), detail->channels[c].loudnessLUFS,
                                detail->channels[c].truePeakDB});
        bars_->setChannels(std::move(channels));
    }
    history_->setEvents(std::move(list.events));
    showPosition();
}

void HistorySection::refreshLive() {
    const bool live = model_.isLiveMastering();
    badge_->setText(live ? QStringLiteral("SOURCE + LIVE") : QStringLiteral("SOURCE"));
    setTextColour(badge_, live ? theme::zoneRed : theme::textSecondary);
    badge_->adjustSize();
    panel_->setHeaderWidget(badge_);  // placed again at its new width
    if (live) history_->clearLive();
}

void HistorySection::showPosition() {
    const double seconds = model_.playPosition() * model_.selectedDuration();
    history_->setPlayhead(seconds);
    if (model_.isLiveMastering())
        if (const auto levels = model_.liveLevels()) history_->addLiveReading(seconds, levels->momentary, levels->shortTerm);
}

void HistorySection::seekTo(double seconds) {
    const double duration = model_.selectedDuration();
    if (duration <= 0 || model_.busy()) return;
    model_.seekPlayback(seconds / duration);
    showPosition();
}

}  // namespace velmora::window
