#pragma once
// The bus compressor's static transfer curve without knee, input -60 … 0 dB left to right and
// output -60 … 0 dB bottom to top: output = input + makeup below the threshold, threshold +
// (input - threshold) / ratio + makeup above it. Dragging the knee sideways sets the threshold
// (-40 … 0 dB); dragging the top of the curve (its point at 0 dB input) up and down sets the
// ratio (1 … 10), and the top dragged to or below the knee gives 10. The view keeps what it
// shows; edits go out through thresholdEdited() and ratioEdited().
//
// Bypassed, the graph draws what the sound gets, the unity line, in grey, the settings' curve
// only as a faint dashed ghost, and marks the plot "HORS CIRCUIT"; the handles still drag.
#include <QWidget>
#include <optional>

#include "ui/GraphTitle.h"
#include "ui/LayerCache.h"

namespace velmora {

class CompCurveGraphView : public QWidget {
    Q_OBJECT
public:
    enum class Handle { knee, top };

    explicit CompCurveGraphView(QWidget* parent = nullptr);

    void setThreshold(double dB);
    void setRatio(double ratio);
    void setMakeup(double dB);
    void setBypassed(bool bypassed);
    bool bypassed() const { return bypassed_; }
    double threshold() const { return threshold_; }
    double ratio() const { return ratio_; }
    double makeup() const { return makeup_; }
    QString readout() const;  // "-18.0 dB · 2.0:1"

    // Output level in dB for an input level, as drawn.
    double outputFor(double inputDB) const;
    // Geometry in widget coordinates; handles are kept inside the plot.
    QRectF plotRect() const;
    QPointF handlePoint(Handle handle) const;
    QPointF pointFor(double inputDB, double outputDB) const;

    QSize sizeHint() const override { return QSize(300, 220); }
    QSize minimumSizeHint() const override { return QSize(200, 160); }

signals:
    void thresholdEdited(double dB);
    void ratioEdited(double ratio);

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;
    void leaveEvent(QEvent*) override;

private:
    std::optional<Handle> handleNear(QPointF pos) const;
    void drag(QPointF pos);
    void paintStatic(QPainter& p) const;

    GraphTitle title_{QStringLiteral("COURBE DE TRANSFERT (ENTRÉE → SORTIE) · glissez le coude / le haut")};
    double threshold_ = -18, ratio_ = 2, makeup_ = 0;
    bool bypassed_ = false;
    std::optional<Handle> dragged_, hovered_;
    LayerCache static_;
};

}  // namespace velmora
