#include "ui/window/EventsList.h"

#include <QHeaderView>

#include "audio/NumberFormat.h"
#include "ui/StudioTheme.h"

namespace velmora::window {

namespace {
// Past this many rows a list is no help to read; the history marks every one of them.
constexpr std::size_t maxRows = 2000;
}  // namespace

EventsList::EventsList(QWidget* parent) : QTreeWidget(parent) {
    setColumnCount(4);
    setHeaderLabels({QStringLiteral("TEMPS"), QStringLiteral("TYPE"), QStringLiteral("VALEUR"), QStringLiteral("CANAL")});
    setRootIsDecorated(false);
    setUniformRowHeights(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setFont(theme::monoFont(theme::readoutPx - 1));
    header()->setFont(theme::captionFont());
    header()->setStretchLastSection(false);
    header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    header()->setSectionResizeMode(1, QHeaderView::Stretch);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setAccessibleName(QStringLiteral("Événements"));
    connect(this, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* row) {
        const auto i = std::size_t(indexOfTopLevelItem(row));
        if (i < events_.size()) emit seekRequested(events_[i].startSeconds);
    });
    connect(this, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* row) {
        const auto i = std::size_t(indexOfTopLevelItem(row));
        if (i < events_.size()) emit seekRequested(events_[i].startSeconds);
    });
}

void EventsList::setEvents(const std::vector<LoudnessEvent>& events, const std::vector<std::string>& labels) {
    const auto same = [](const LoudnessEvent& a, const LoudnessEvent& b) {
        return a.kind == b.kind && a.startSeconds == b.startSeconds && a.valueDB == b.valueDB && a.channel == b.channel;
    };
    if (labels == labels_ && std::equal(events.begin(), events.end(), events_.begin(), events_.end(), same)) return;
    events_.assign(events.begin(), events.begin() + std::ptrdiff_t(std::min(events.size(), maxRows)));
    labels_ = labels;
    clear();
    QList<QTreeWidgetItem*> rows;
    for (const auto& e : events_) {
        auto* row = new QTreeWidgetItem;
        row->setText(0, QString::fromStdString(timecode(e.startSeconds)));
        row->setText(1, QString::fromUtf8(eventKindText(e.kind).data(), qsizetype(eventKindText(e.kind).size())));
        row->setText(2, QString::fromStdString(formatSignedOneDecimal(e.valueDB) + ' ' + std::string(eventUnit(e.kind))));
        row->setText(3, QString::fromStdString(eventChannelName(e, labels_)));
        row->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
        if (e.kind == EventKind::clipping) row->setForeground(1, theme::zoneRed);
        rows << row;
    }
    addTopLevelItems(rows);
}

}  // namespace velmora::window
