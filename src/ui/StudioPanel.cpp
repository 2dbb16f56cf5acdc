#include "ui/StudioPanel.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr int inset = 3;  // room for the glow, kept whether it shows or not so nothing moves
constexpr int pad = 12;
constexpr int headerHeight = 30;
}  // namespace

StudioPanel::StudioPanel(const QString& title, QWidget* parent) : QWidget(parent), radius_(theme::panelRadius) {
    setTitle(title);
}

void StudioPanel::setTitle(const QString& title) {
    title_ = title;
    setAccessibleName(title);
    relayout();
    face_.invalidate();
    update();
}

void StudioPanel::setRadius(double radius) {
    radius_ = radius;
    face_.invalidate();
    update();
}

void StudioPanel::setGlow(std::optional<QColor> glow) {
    glow_ = glow;
    face_.invalidate();
    update();
}

void StudioPanel::setHeaderWidget(QWidget* widget) {
    if (header_ && header_ != widget) header_->deleteLater();
    header_ = widget;
    if (widget) {
        widget->setParent(this);
        widget->show();
    }
    relayout();
    face_.invalidate();  // the title's room depends on the header
    update();
}

void StudioPanel::relayout() {
    const bool header = !title_.isEmpty() || header_;
    setContentsMargins(inset + pad, inset + (header ? headerHeight : pad), inset + pad, inset + pad);
    if (header_) {
        const QSize s = header_->sizeHint();
        header_->setGeometry(width() - inset - pad + 4 - s.width(), inset + (headerHeight - s.height()) / 2 + 2,
                             s.width(), s.height());
    }
}

void StudioPanel::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    face_.invalidate();
    relayout();
}

QSize StudioPanel::minimumSizeHint() const {
    QSize s = QWidget::minimumSizeHint();
    double header = QFontMetricsF(theme::captionFont()).horizontalAdvance(title_) + 2 * (inset + pad);
    if (header_) header += header_->sizeHint().width() + pad;
    return s.expandedTo(QSize(int(std::ceil(header)), 0));
}

void StudioPanel::paintEvent(QPaintEvent*) {
    QPainter p(this);
    face_.paint(p, size(), [this](QPainter& layer) { paintFace(layer); });
}

void StudioPanel::paintFace(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF face = QRectF(rect()).adjusted(inset, inset, -inset, -inset);
    if (glow_) {
        for (int ring = 3; ring >= 1; --ring) {
            p.setPen(QPen(theme::withAlpha(*glow_, 0.10 * (4 - ring)), 1));
            p.setBrush(Qt::NoBrush);
            const QRectF r = face.adjusted(-ring + 0.5, -ring + 0.5, ring - 0.5, ring - 0.5);
            p.drawRoundedRect(r, radius_ + ring, radius_ + ring);
        }
    }
    theme::paintPanel(p, face, radius_);
    if (glow_) {
        p.setPen(QPen(theme::withAlpha(*glow_, 0.55), 1));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(face.adjusted(0.5, 0.5, -0.5, -0.5), radius_, radius_);
    }
    if (!title_.isEmpty()) {
        p.setFont(theme::captionFont());
        p.setPen(theme::textPrimary);
        const double right = header_ ? header_->geometry().left() - 8 : face.right() - pad;
        const QRectF titleRect(face.left() + pad, face.top() + 2, right - face.left() - pad, headerHeight - 2);
        p.drawText(titleRect, Qt::AlignLeft | Qt::AlignVCenter,
                   QFontMetricsF(p.font()).elidedText(title_, Qt::ElideRight, titleRect.width()));
    }
}

}  // namespace velmora
