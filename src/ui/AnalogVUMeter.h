#pragma once
// The needle meter: `value` read against `reference`, the needle swinging over `sweep` degrees
// from reference + lowDelta (left) to reference + highDelta (right). The scale is labelled in
// signed whole decibels relative to the reference ("%+.0f"), with the stretch above the
// reference in red. A value out of range pins the needle at that end; one that cannot be
// measured rests it on the left. The dial and its type grow with the widget; under it, the title
// and the reading share one line, in smaller type when the meter is narrow, never overlapping.
#include <QColor>
#include <QString>
#include <QWidget>
#include <limits>

#include "ui/LayerCache.h"
#include "ui/StudioAccessible.h"

namespace velmora {

class AnalogVUMeter : public QWidget, public AccessibleComponent {
    Q_OBJECT
public:
    explicit AnalogVUMeter(QWidget* parent = nullptr);

    void setTitle(const QString& title);
    void setValue(double value);
    void setReference(double reference);
    void setDeltas(double lowDelta, double highDelta);
    void setUnit(const QString& unit);
    void setAccent(const QColor& accent);
    void setSweep(double degrees);

    double value() const { return value_; }
    // Degrees from straight up where the needle points for `value`.
    double needleAngle(double value) const;
    QPointF pivot() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return QSize(170, 110); }
    AccessibleReading accessibleReading() const override;

    // The line under the dial: its box, and the fonts the title and the reading are drawn in.
    QRectF footerRect() const;
    QFont titleFont() const;
    QFont readoutFont() const;

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;

private:
    double radius() const;
    double lowestPivot() const;  // just above the footer
    double footerHeight() const;
    int readoutPx() const;  // before fitting: larger on a large dial
    int footerPx() const;   // fitted so the title and the reading share the line
    int scalePx() const;
    double labelStep() const;
    void paintFace(QPainter& p) const;
    void changed();

    QString title_;
    double value_ = -std::numeric_limits<double>::infinity();
    double reference_ = 0;
    double lowDelta_ = -24, highDelta_ = 6;
    QString unit_;
    QColor accent_;
    double sweep_ = 90;
    LayerCache face_;
};

}  // namespace velmora
