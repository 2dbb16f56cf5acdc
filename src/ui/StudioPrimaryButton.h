#pragma once
// The rack's action button ("ANALYSER", "EXPORTER"): a solid face in its colour, lighter under
// the pointer (in `lightColor` when given), with dark text, and the button's icon (when set)
// before the text. Clicks are QAbstractButton::clicked.
#include <QAbstractButton>
#include <QColor>
#include <optional>

namespace velmora {

class StudioPrimaryButton : public QAbstractButton {
    Q_OBJECT
public:
    explicit StudioPrimaryButton(const QString& text = {}, QWidget* parent = nullptr);

    void setColor(const QColor& color);
    void setLightColor(std::optional<QColor> color);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    static constexpr double iconGap = 6;
    double iconRoom() const;  // the icon and the gap after it; 0 without an icon

    QColor color_;
    std::optional<QColor> lightColor_;
};

}  // namespace velmora
