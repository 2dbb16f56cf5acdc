#include "ui/window/TransportSection.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "model/Model.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/WaveformView.h"
#include "ui/window/ABSwitch.h"
#include "ui/window/Controls.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

TransportSection::TransportSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    panel_ = new StudioPanel(QStringLiteral("FORME D'ONDE"), this);
    outer->addWidget(panel_);
    auto* layout = new QVBoxLayout(panel_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    waveform_ = new WaveformView(panel_);
    waveform_->setMinimumHeight(84);
    waveform_->setAccessibleName(QStringLiteral("Forme d'onde"));
    layout->addWidget(waveform_, 1);

    auto* row = new QHBoxLayout;
    row->setSpacing(6);
    toStart_ = new IconButton(Icon::toStart, QStringLiteral("Au début"), panel_);
    stop_ = new IconButton(Icon::stop, QStringLiteral("Stop"), panel_);
    play_ = new IconButton(Icon::play, QStringLiteral("Lecture / pause"), panel_);
    toEnd_ = new IconButton(Icon::toEnd, QStringLiteral("À la fin"), panel_);
    for (auto* b : {toStart_, stop_, play_, toEnd_}) row->addWidget(b);
    row->addSpacing(10);
    clock_ = new QLabel(elapsedText(0), panel_);
    clock_->setFont(theme::monoFont(18, true));
    setTextColour(clock_, theme::textPrimary);
    clock_->setAccessibleName(QStringLiteral("Temps écoulé"));
    // A fixed size: a new text then repaints the clock alone instead of laying the window out.
    clock_->setFixedSize(clock_->fontMetrics().horizontalAdvance(QStringLiteral("000:00.0")), clock_->sizeHint().height());
    row->addWidget(clock_);
    // The playback state and what plays now read in the panel's title line, beside the
    // waveform: the row under it stays narrow enough for a laptop's screen with A/B and LIVE.
    auto* header = new QWidget(panel_);
    auto* headerRow = new QHBoxLayout(header);
    headerRow->setContentsMargins(0, 0, 0, 0);
    headerRow->setSpacing(10);
    lecture_ = makeCaption(QStringLiteral("LECTURE"), header);
    headerRow->addWidget(lecture_);
    loudness_ = new QLabel(header);
    loudness_->setFont(theme::monoFont(11, false));
    setTextColour(loudness_, theme::textSecondary);
    loudness_->setAccessibleName(QStringLiteral("Sonie à la tête de lecture"));
    // Fixed, as the clock: the readings change every tick.
    loudness_->setFixedSize(loudness_->fontMetrics().horizontalAdvance(QStringLiteral("M -000.0  S -000.0 LUFS")),
                            loudness_->fontMetrics().height());
    headerRow->addWidget(loudness_);
    panel_->setHeaderWidget(header);
    row->addStretch(1);
    ab_ = new ABSwitch(panel_);
    row->addWidget(ab_);
    row->addSpacing(6);
    live_ = new LiveSwitch(panel_);
    row->addWidget(live_);
    layout->addLayout(row);

    connect(toStart_, &QAbstractButton::clicked, this, [this] { model_.seekPlayback(0.0); });
    connect(toEnd_, &QAbstractButton::clicked, this, [this] { model_.seekPlayback(1.0); });
    connect(stop_, &QAbstractButton::clicked, this, [this] {
        if (model_.isLiveMastering()) model_.stopLiveMastering();
        model_.stopPlayback();
    });
    connect(play_, &QAbstractButton::clicked, this, [this] { model_.togglePlayback(); });
    connect(live_, &QAbstractButton::clicked, this, [this] {
        if (model_.isLiveMastering()) model_.stopLiveMastering();
        else model_.startLiveMastering();
    });
    connect(ab_, &QAbstractButton::clicked, this, [this] { model_.toggleAB(); });
    connect(&model, &Model::abSourceHeardChanged, this, [this] { ab_->setSourceHeard(model_.abSourceHeard()); });
    ab_->setSourceHeard(model_.abSourceHeard());
    // Plain playback or, while live mastering runs, the streamer: the model knows which.
    connect(waveform_, &WaveformView::seekRequested, this, [this](double fraction) { model_.seekPlayback(fraction); });

    connect(&model, &Model::selectedIDChanged, this, &TransportSection::refreshFile);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refreshFile();
    });
    for (auto signal : {&Model::isPlaybackPlayingChanged, &Model::isLiveMasteringChanged, &Model::busyChanged})
        connect(&model, signal, this, &TransportSection::refreshState);
    refreshFile();
    refreshState();
}

void TransportSection::refreshFile() {
    const FileItem* item = model_.selectedItem();
    if (!item) waveform_->setPeaks({});
    else if (item->waveformPeaks != waveform_->peaks()) waveform_->setPeaks(item->waveformPeaks);
    refreshState();
    showPosition();
}

void TransportSection::refreshState() {
    const bool playing = model_.isPlaybackPlaying();
    const bool live = model_.isLiveMastering();
    const bool file = model_.selectedItem() && model_.selectedItem()->hasAudio();
    const bool idle = !model_.busy();
    // Asked once a file is there to play: a window that never gets one touches no device.
    const bool output = !file || playing || model_.hasAudioOutput();
    play_->setIcon(playing ? Icon::pause : Icon::play);
    play_->setLit(playing);
    live_->setLive(live);
    waveform_->setPlaying(playing || live);
    lecture_->setText(output ? QStringLiteral("LECTURE") : QStringLiteral("Aucune sortie audio"));
    setTextColour(lecture_, playing ? theme::ledGreen : output ? theme::textSecondary : theme::zoneRed);
    // Listening waits while a job runs, as the space bar does.
    for (auto* b : {toStart_, play_, toEnd_}) b->setEnabled(file && (idle || playing || live));
    play_->setEnabled(play_->isEnabled() && output);
    stop_->setEnabled(playing || live || (file && idle));
    live_->setEnabled(live || (file && idle));
}

void TransportSection::showPosition() {
    const double position = model_.playPosition();
    waveform_->setProgress(position);
    const QString clock = elapsedText(position * model_.selectedDuration());
    if (clock != clock_->text()) clock_->setText(clock);
    // The meter block keeps the file's measurement; what plays now reads here.
    QString loudness;
    if (const auto levels = model_.playbackLevels()) {
        const QString unit = unitText(model_.displayUnit());
        loudness = QStringLiteral("M ") + oneDecimal(levels->momentary) + QStringLiteral("  S ") +
                   oneDecimal(levels->shortTerm) + QStringLiteral(" ") + unit;
    }
    if (loudness != loudness_->text()) loudness_->setText(loudness);
}

}  // namespace velmora::window
