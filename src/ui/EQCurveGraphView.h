#pragma once
// The five-band equaliser's combined response over the live spectrum, with one draggable point
// per band. Frequencies run logarithmically from 20 Hz to 20 kHz across the plot; gains ±15 dB
// with 0 dB on the centre line and +15 dB six points below the top.
//
// Dragging a point sets its band's frequency from the pointer's x and its gain from its y, each
// clamped to the band's range; with Shift held only the Q of a peaking band follows the
// pointer's height (bottom 0.3, top 3.0), and the other bands stay as they are. Shift is what
// the title says because most window managers take Alt-drag for moving the window; Ctrl and
// Alt work too where they reach the view. Once the view has focus (a click), the wheel over a
// peaking band's point moves its Q by 1/100 of the range a notch; otherwise the wheel scrolls
// the column the graph sits in. The view keeps what it shows; edits go out through
// paramsEdited().
//
// With the equaliser off the sound goes through flat: the graph draws that flat line in grey,
// the settings' response only as a faint dashed ghost, and marks the plot "HORS CIRCUIT", so
// that a bypassed bell can never pass for an active one.
#include <QRectF>
#include <QString>
#include <QWidget>
#include <optional>
#include <vector>

#include "mastering/MasterParams.h"
#include "measurement/Biquad.h"
#include "ui/GraphTitle.h"
#include "ui/LayerCache.h"

namespace velmora {

enum class EQBand { highPass, lowShelf, lowMid, highMid, highShelf };

class EQCurveGraphView : public QWidget {
    Q_OBJECT
public:
    static constexpr double rangeDB = 15;  // the plot's half height
    static constexpr double topMargin = 6;  // +15 dB sits this far below the plot's top

    explicit EQCurveGraphView(QWidget* parent = nullptr);

    void setParams(const MasterParams& params);
    void setSampleRate(double sampleRateHz);  // 48 kHz when not positive
    // 0 … 1 per band, 20 Hz to 20 kHz. The peak line follows: replaced when the number of
    // bands changes, else each band keeps the larger of the new value and 0.92 of its peak.
    void setSpectrum(std::vector<float> spectrum);

    const MasterParams& params() const { return params_; }
    const std::vector<float>& spectrum() const { return spectrum_; }
    const std::vector<float>& peakHold() const { return peakHold_; }
    // The text shown while a point is dragged; empty otherwise.
    const QString& readout() const { return readout_; }
    const QString& title() const { return title_.text(); }
    bool bypassed() const { return !params_.eqOn; }

    // Geometry in widget coordinates.
    QRectF plotRect() const;
    QPointF bandPoint(EQBand band) const;
    double xForFrequency(double hz) const;  // from the plot's left edge
    double frequencyAt(double x) const;     // x from the plot's left edge
    double yForGain(double dB) const;       // from the plot's top edge
    // The drawn curve's value at x (from the plot's left edge), in dB within ±15.
    double curveDB(double x) const;

    QSize sizeHint() const override { return QSize(480, 220); }
    QSize minimumSizeHint() const override { return QSize(300, 160); }

signals:
    void paramsEdited(const velmora::MasterParams& params);

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;
    void wheelEvent(QWheelEvent*) override;
    void leaveEvent(QEvent*) override;

private:
    std::optional<EQBand> bandNear(QPointF pos) const;
    void drag(QPointF pos, Qt::KeyboardModifiers modifiers);
    void curveChanged();
    void paintStatic(QPainter& p) const;
    void paintScale(QPainter& p) const;
    void paintFrequencyAxis(QPainter& p) const;
    void paintSpectrum(QPainter& p) const;
    void paintCurve(QPainter& p) const;
    void computeCurve();
    void paintPoints(QPainter& p) const;

    GraphTitle title_{QStringLiteral("RÉPONSE EN FRÉQUENCE DE L'ÉGALISEUR · glissez les points · ⇧ = Q")};
    MasterParams params_;
    double sampleRate_ = 48000;
    std::vector<float> spectrum_, peakHold_;
    std::vector<Biquad> sections_;
    std::vector<QPointF> curve_;  // widget coordinates, every 2 points of width; empty when stale
    QRectF curvePlot_;            // the plot curve_ was laid out in
    bool curveMoving_ = true;     // changed since the last paint: not worth keeping as a layer yet
    QString readout_;
    std::optional<EQBand> dragged_, hovered_;
    LayerCache static_;      // title, well and grid, under everything
    LayerCache curveLayer_;  // the response, redrawn only when the settings or the rate change
    LayerCache scale_;       // the dB labels
};

}  // namespace velmora
