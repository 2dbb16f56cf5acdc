#include "ui/window/HistorySection.h"

#include <QHBoxLayout>
#include <QLabel>

#include "audio/ChannelLabels.h"
#include "model/Model.h"
#include "norms/Presets.h"
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
    layout->addWidget(history_, 3);
    events_ = new EventsList(panel_);
    events_->setMinimumWidth(250);
    layout->addWidget(events_, 2);

    connect(history_, &LoudnessHistoryView::seekRequested, this, &HistorySection::seekTo);
    connect(events_, &EventsList::seekRequested, this, &HistorySection::seekTo);
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
    if (!detail) {
        events_->setEvents({}, {});
        history_->setEvents({});
        return;
    }
    auto list = detectEvents(*detail, {model_.ceiling(), norm.msLimitLUFS, std::nullopt});
    events_->setEvents(list.events, channelLabels(int(item->channelCount()), model_.layout(), model_.channelOrder(),
                                                  item->declaredPositions));
    history_->setEvents(std::move(list.events));
    showPosition();
}

void HistorySection::refreshLive() {
    const bool live = model_.isLiveMastering();
    badge_->setText(live ? QStringLiteral("SOURCE + LIVE") : QStringLiteral("SOURCE"));
    setTextColour(badge_, live ? theme::zoneRed : theme::textSecondary);
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
