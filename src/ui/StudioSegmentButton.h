#pragma once
// One option of a segmented selector ("TRANCHE MASTER" | "CONFORMITÉ SEULE"): it stands for
// `value`, is drawn in its active colour while the selection equals that value, and a click (or
// Space with focus) reports picked(value). Setting the selection says nothing.
#include <QAbstractButton>
#include <QColor>
#include <QVariant>

#include "ui/StudioAccessible.h"

namespace velmora {

class StudioSegmentButton : public QAbstractButton, public AccessibleComponent {
    Q_OBJECT
public:
    StudioSegmentButton(const QString& label, const QVariant& value, QWidget* parent = nullptr);

    void setSelection(const QVariant& selection);
    void setActiveColor(const QColor& color);
    const QVariant& value() const { return value_; }
    bool isActive() const { return selection_ == value_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }
    AccessibleReading accessibleReading() const override;

signals:
    void picked(const QVariant& value);

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QVariant value_, selection_;
    QColor activeColor_;
};

}  // namespace velmora
