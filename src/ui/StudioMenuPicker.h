#pragma once
// A picker that shows the current choice and opens its menu under itself ("EBU R128 -23
// LUFS", a channel format, a preset). The caller fills menu() and sets the label when a choice
// is made; the picker only shows and opens.
#include <QAbstractButton>

#include "ui/StudioAccessible.h"

class QMenu;

namespace velmora {

class StudioMenuPicker : public QAbstractButton, public AccessibleComponent {
    Q_OBJECT
public:
    explicit StudioMenuPicker(QWidget* parent = nullptr);

    void setCurrentLabel(const QString& label);
    const QString& currentLabel() const { return currentLabel_; }
    QMenu* menu() const { return menu_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return QSize(80, 30); }
    AccessibleReading accessibleReading() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QString currentLabel_;
    QMenu* menu_;
};

}  // namespace velmora
