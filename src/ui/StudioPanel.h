#pragma once
// The rack panel every group of controls sits in: a rounded face with a hairline border, an
// optional title in capitals and an optional glow in a colour (a panel whose stage is on). A
// header widget, typically the stage's LED switch, sits at the top right beside the title.
// Children go in the panel's own layout, inside the contents margins it keeps for itself.
#include <QColor>
#include <QPointer>
#include <QWidget>
#include <optional>

#include "ui/LayerCache.h"

namespace velmora {

class StudioPanel : public QWidget {
    Q_OBJECT
public:
    explicit StudioPanel(const QString& title = {}, QWidget* parent = nullptr);

    void setTitle(const QString& title);
    void setRadius(double radius);
    void setGlow(std::optional<QColor> glow);
    // The panel takes `widget` as its child and keeps it at the top right.
    void setHeaderWidget(QWidget* widget);

    const QString& title() const { return title_; }

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;

private:
    void relayout();
    void paintFace(QPainter& p) const;

    QString title_;
    double radius_;
    std::optional<QColor> glow_;
    QPointer<QWidget> header_;
    // Children without a background of their own (every live meter) make Qt repaint the panel
    // under them at each of their frames: the face is drawn once and copied.
    LayerCache face_;
};

}  // namespace velmora
