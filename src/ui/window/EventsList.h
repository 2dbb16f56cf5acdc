#pragma once
// The selected file's events, one row each: timecode (hh:mm:ss.cc), kind, value and channel.
// A click on a row asks to go there.
#include <QTreeWidget>
#include <string>
#include <vector>

#include "measurement/EventDetector.h"

namespace velmora::window {

class EventsList : public QTreeWidget {
    Q_OBJECT
public:
    explicit EventsList(QWidget* parent = nullptr);
    void setEvents(const std::vector<LoudnessEvent>& events, const std::vector<std::string>& channelLabels);
    const std::vector<LoudnessEvent>& events() const { return events_; }

signals:
    void seekRequested(double seconds);

private:
    std::vector<LoudnessEvent> events_;
    std::vector<std::string> labels_;
};

}  // namespace velmora::window
