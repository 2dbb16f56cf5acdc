#pragma once
// The overview of the selected file (peaks 0 … 1 across the width) with the play position; it
// doubles as the seek bar. A press, and every move while pressed, asks to seek to x / width,
// clamped to [0, 1], so a click counts as well as a drag.
#include <QWidget>
#include <vector>

#include "ui/LayerCache.h"

namespace velmora {

class WaveformView : public QWidget {
    Q_OBJECT
public:
    explicit WaveformView(QWidget* parent = nullptr);

    void setPeaks(std::vector<float> peaks);
    void setProgress(double fraction);  // 0 … 1
    void setPlaying(bool playing);

    const std::vector<float>& peaks() const { return peaks_; }
    double progress() const { return progress_; }
    bool isPlaying() const { return playing_; }

    QSize sizeHint() const override { return QSize(600, 96); }
    QSize minimumSizeHint() const override { return QSize(120, 48); }

signals:
    void seekRequested(double fraction);

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;

private:
    void seekTo(double x);
    double cursorX() const;
    void paintPeaks(QPainter& p, const QColor& colour) const;

    std::vector<float> peaks_;
    double progress_ = 0;
    bool playing_ = false;
    LayerCache well_;
    LayerCache played_, ahead_;  // the same waveform in the two colours, split at the cursor
};

}  // namespace velmora
