#pragma once
// Loudness over time for the selected file, with its events beside it: the history (curves,
// target band, overs marked) and the list of overs and clipping against the chosen ceiling.
// A click on either goes there in playback; while live mastering runs, the live readings are
// drawn over the source's curves.
#include <QWidget>
#include <memory>
#include <optional>

#include "mastering/LiveMeter.h"

class QDoubleSpinBox;
class QLabel;

namespace velmora {

class Model;
class StudioPanel;
class LoudnessHistoryView;
class ChannelBarsView;
class LedToggle;
struct ProgrammeDetail;

namespace window {

class EventsList;

class HistorySection : public QWidget {
    Q_OBJECT
public:
    explicit HistorySection(Model& model, QWidget* parent = nullptr);

    // The play position, and the live readings while live mastering runs; from the window's
    // 50 ms timer and after a seek.
    void showPosition();

    LoudnessHistoryView* history() const { return history_; }
    EventsList* eventsList() const { return events_; }
    QLabel* sourceBadge() const { return badge_; }
    // Each channel's loudness and true peak, shown for more than two channels.
    ChannelBarsView* channelBars() const { return bars_; }
    // The momentary limit the user sets for the list (off until switched on), LUFS.
    LedToggle* momentaryLimitSwitch() const { return momentaryOn_; }
    QDoubleSpinBox* momentaryLimit() const { return momentaryLimit_; }

private:
    void refresh();
    void refreshLive();
    void seekTo(double seconds);

    Model& model_;
    StudioPanel* panel_;
    QLabel* badge_;
    LoudnessHistoryView* history_;
    EventsList* events_;
    ChannelBarsView* bars_;
    LedToggle* momentaryOn_;
    QDoubleSpinBox* momentaryLimit_;
    std::shared_ptr<const ProgrammeDetail> shown_;
};

}  // namespace window
}  // namespace velmora
