#pragma once
// A small labelled reading ("S max", "TRUE PEAK", "CIBLE"): the label in capitals above, the
// value in tabular figures and its colour below, followed by its unit (when set) in small type.
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

    void setLabel(const QString& label);
    void setValue(const QString& value);
    void setUnit(const QString& unit);
    void setColor(const QColor& color);
    const QString& value() const { return value_; }
    const QString& unit() const { return unit_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }
    AccessibleReading accessibleReading() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    static constexpr double unitGap = 4;
    double unitRoom() const;  // the unit and the gap before it; 0 without a unit

    QString label_, value_, unit_;
    QColor color_;
};

}  // namespace velmora
