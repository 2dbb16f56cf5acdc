#include "ui/ChannelBarsView.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

#include "audio/NumberFormat.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr double topDB = 3.0, bottomDB = -60.0;  // one scale for both readings
constexpr double scaleWidth = 24, labelHeight = 14, valueHeight = 12;

// Digital silence reads -240 dBTP: a dash says it better.
QString reading(double v) {
    return std::isfinite(v) && v > -200 ? QString::fromStdString(formatOneDecimal(v)) : QStringLiteral("—");
}
}  // namespace

ChannelBarsView::ChannelBarsView(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Canaux"));
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ChannelBarsView::setChannels(std::vector<Channel> channels) {
    if (channels == channels_) return;
    channels_ = std::move(channels);
    QStringList lines;
    for (std::size_t i = 0; i < channels_.size(); ++i) lines << channelText(i);
    setAccessibleDescription(lines.join(QStringLiteral(" · ")));
    layer_.invalidate();
    updateGeometry();
    update();
}

QString ChannelBarsView::channelText(std::size_t i) const {
    const Channel& c = channels_.at(i);
    return c.label + ' ' + reading(c.loudnessLUFS) + QStringLiteral(" LUFS ") + reading(c.truePeakDB) +
           QStringLiteral(" dBTP");
}

void ChannelBarsView::resizeEvent(QResizeEvent*) { layer_.invalidate(); }

void ChannelBarsView::paintEvent(QPaintEvent*) {
    // Drawn whole only when the channels or the size change; nothing here moves.
    QPainter p(this);
    layer_.paint(p, size(), [this](QPainter& q) { draw(q); });
}

void ChannelBarsView::draw(QPainter& p) const {
    p.fillRect(rect(), theme::well);
    if (channels_.empty()) return;
    const QRectF bars(scaleWidth, valueHeight * 2 + 2, width() - scaleWidth - 4, height() - valueHeight * 2 - labelHeight - 4);
    const auto yOf = [&](double db) {
        return bars.top() + (topDB - std::clamp(db, bottomDB, topDB)) / (topDB - bottomDB) * bars.height();
    };
    p.setFont(theme::monoFont(theme::scalePx));
    for (double db : {0.0, -20.0, -40.0, -60.0}) {
        p.setPen(theme::grid);
        p.drawLine(QPointF(bars.left(), yOf(db)), QPointF(bars.right(), yOf(db)));
        p.setPen(theme::textSecondary);
        p.drawText(QRectF(0, yOf(db) - 6, scaleWidth - 3, 12), Qt::AlignRight | Qt::AlignVCenter, QString::number(int(db)));
    }
    const double slot = bars.width() / double(channels_.size());
    const double barWidth = std::min(9.0, slot / 3);
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const Channel& c = channels_[i];
        const double centre = bars.left() + slot * (double(i) + 0.5);
        const auto bar = [&](double x, double db, const QColor& colour) {
            if (!std::isfinite(db) || db < bottomDB) return;
            p.fillRect(QRectF(x, yOf(db), barWidth, bars.bottom() - yOf(db)), colour);
        };
        bar(centre - barWidth - 1, c.loudnessLUFS, theme::spectrum);
        bar(centre + 1, c.truePeakDB, c.truePeakDB > -1.0 ? theme::zoneRed : theme::accent);
        p.setPen(theme::spectrum);
        p.drawText(QRectF(centre - slot / 2, 0, slot, valueHeight), Qt::AlignCenter, reading(c.loudnessLUFS));
        p.setPen(theme::accent);
        p.drawText(QRectF(centre - slot / 2, valueHeight, slot, valueHeight), Qt::AlignCenter, reading(c.truePeakDB));
        p.setPen(theme::textPrimary);
        p.setFont(theme::captionFont());
        p.drawText(QRectF(centre - slot / 2, bars.bottom() + 2, slot, labelHeight), Qt::AlignCenter, c.label);
        p.setFont(theme::monoFont(theme::scalePx));
    }
}

}  // namespace velmora
