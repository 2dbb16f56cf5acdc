#pragma once
// The LED switch of every chain panel and option: a lamp that glows in its colour when on, and
// its label. A click (or Space with focus) flips it and reports clicked(checked); setChecked()
// shows a state and reports only through QAbstractButton::toggled, which callers binding it to
// a setting leave alone. A dimmed switch (inside a bypassed stage) keeps working but glows no
// more: its lamp is lit faintly, so that it does not read as acting on the sound.
#include <QAbstractButton>
#include <QColor>

#include "ui/StudioAccessible.h"

namespace velmora {

class LedToggle : public QAbstractButton, public AccessibleComponent {
    Q_OBJECT
public:
    explicit LedToggle(const QString& label = {}, QWidget* parent = nullptr);

    void setColor(const QColor& color);
    void setLedSize(int diameter);
    void setDimmed(bool dimmed);
    bool isDimmed() const { return dimmed_; }
    int ledSize() const { return ledSize_; }
    QPointF ledCentre() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }
    AccessibleReading accessibleReading() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QColor color_;
    int ledSize_ = 10;
    bool dimmed_ = false;
};

}  // namespace velmora
