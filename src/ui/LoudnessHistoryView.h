#pragma once
// Loudness over time for one programme: the short-term and momentary curves, the running
// integrated line, the target band (target ± the norm's tolerance) and the overs and clipping
// marked along the time axis. The wheel zooms around the pointer, a drag pans, a click asks to
// seek there; the pointer's time and levels are read out in the corner. While live mastering
// runs, live readings are drawn over the source as they come.
//
// The curves are drawn once per view (size, zoom, pan, data) into a cached layer; a repaint
// for the play position or the pointer draws only the cursor lines and the readout over it.
#include <QWidget>
#include <memory>
#include <optional>
#include <vector>

#include "measurement/EventDetector.h"
#include "ui/LayerCache.h"

namespace velmora {

class LoudnessHistoryView : public QWidget {
    Q_OBJECT
public:
    explicit LoudnessHistoryView(QWidget* parent = nullptr);

    // The programme shown; the view returns to the whole of it.
    void setHistory(std::shared_ptr<const ProgrammeDetail> detail);
    void setEvents(std::vector<LoudnessEvent> events);
    void setTargetBand(double targetLUFS, double toleranceLU);
    void setPlayhead(double seconds);
    // One live reading at `seconds` of the programme (LUFS); readings closer than 100 ms to the
    // last are dropped.
    void addLiveReading(double seconds, double momentary, double shortTerm);
    void clearLive();

    // The visible stretch, seconds; clamped to the programme, at least 2 s wide.
    void setView(double startSeconds, double endSeconds);
    double viewStart() const { return viewStart_; }
    double viewEnd() const { return viewEnd_; }
    double duration() const;
    double secondsAtX(double x) const;
    double xAtSeconds(double seconds) const;

    // "00:01:12.40   M -14.2   S -15.1   I -16.0 LUFS" for the pointer; empty when it is away.
    QString readout() const;
    const std::vector<LoudnessEvent>& events() const { return events_; }
    std::size_t liveReadings() const { return live_.size(); }

    QSize sizeHint() const override { return QSize(640, 180); }
    QSize minimumSizeHint() const override { return QSize(200, 110); }

signals:
    void seekRequested(double seconds);

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;
    void wheelEvent(QWheelEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;
    void leaveEvent(QEvent*) override;

private:
    struct LivePoint {
        double seconds;
        float momentary, shortTerm;
    };
    QRectF plot() const;
    double yAt(double lufs) const;
    void chooseScale();
    void drawLayer(QPainter& p) const;
    void drawCurves(QPainter& p) const;
    void drawLive(QPainter& p) const;
    void repaintCursor(double oldX, double newX);
    void viewChanged();

    std::shared_ptr<const ProgrammeDetail> detail_;
    std::vector<LoudnessEvent> events_;
    std::vector<LivePoint> live_;
    double target_ = -23.0, tolerance_ = 1.0;
    double top_ = -8.0, bottom_ = -53.0;  // LUFS at the plot's edges
    double viewStart_ = 0.0, viewEnd_ = 1.0;
    double playhead_ = 0.0;
    std::optional<double> pointerX_;
    std::optional<QPointF> pressAt_;
    double pressViewStart_ = 0.0;
    bool dragging_ = false;
    LayerCache layer_;
};

}  // namespace velmora
