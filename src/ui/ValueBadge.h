#pragma once
// A small labelled reading ("S max", "TRUE PEAK", "CIBLE"): the label in capitals above, the
// value in tabular figures and its colour below, followed by its unit (when set) in small type.
// A badge narrower than it would like sets its value in smaller type rather than cut a digit,
// and a label too long for it gives way to its short form.
#include <QColor>
#include <QString>
#include <QWidget>

#include "ui/StudioAccessible.h"

namespace velmora {

class ValueBadge : public QWidget, public AccessibleComponent {
    Q_OBJECT
public:
    explicit ValueBadge(QWidget* parent = nullptr);
    ValueBadge(const QString& label, const QString& value, const QColor& color, QWidget* parent = nullptr);

    // `compact` is drawn instead of `label` when the badge is too narrow for it.
    void setLabel(const QString& label, const QString& compact = {});
    void setValue(const QString& value);
    void setUnit(const QString& unit);
    void setColor(const QColor& color);
    const QString& value() const { return value_; }
    const QString& unit() const { return unit_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    AccessibleReading accessibleReading() const override;

    // The value as drawn: the font fitted to this width, and the room it has (unit included).
    QFont valueFont() const;
    QRectF valueRect() const;
    double valueAdvance() const;  // the value and its unit in the fitted font
    QString shownLabel() const;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    static constexpr double unitGap = 4;
    double unitRoom() const;  // the unit and the gap before it; 0 without a unit

    QString label_, compactLabel_, value_, unit_;
    QColor color_;
};

}  // namespace velmora
