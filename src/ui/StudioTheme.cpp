#include "ui/StudioTheme.h"

#include <QFontMetricsF>
#include <QPaintEngine>
#include <QPainter>
#include <cmath>
#include <map>
#include <numbers>

namespace velmora::theme {

QColor withAlpha(const QColor& c, double alpha) {
    QColor out = c;
    out.setAlphaF(float(c.alphaF() * alpha));
    return out;
}

namespace {

QFont face(const char* family, int pixelSize, QFont::Weight weight) {
    QFont f(QString::fromLatin1(family));
    f.setPixelSize(pixelSize);
    f.setWeight(weight);
    f.setStyleHint(QFont::SansSerif);
    f.setHintingPreference(QFont::PreferNoHinting);  // same glyph positions at ratio 1 and 2
    return f;
}

}  // namespace

QFont captionFont() {
    static const QFont caption = [] {
        QFont f = face("DejaVu Sans", captionPx, QFont::Bold);
        f.setLetterSpacing(QFont::AbsoluteSpacing, 0.6);
        return f;
    }();
    return caption;
}

QFont bodyFont() {
    static const QFont body = face("DejaVu Sans", bodyPx, QFont::Normal);
    return body;
}

QFont monoFont(int pixelSize, bool bold) {
    // A handful of sizes in all; the main thread is the only caller.
    static std::map<std::pair<int, bool>, QFont> made;
    auto it = made.find({pixelSize, bold});
    if (it == made.end()) {
        QFont f = face("DejaVu Sans Mono", pixelSize, bold ? QFont::Bold : QFont::Normal);
        f.setStyleHint(QFont::Monospace);
        f.setFixedPitch(true);
        it = made.emplace(std::pair{pixelSize, bold}, f).first;
    }
    return it->second;
}

double scaleLabelWidth() {
    static const double width = QFontMetricsF(monoFont(scalePx)).horizontalAdvance(QStringLiteral("-60"));
    return width;
}

QPalette studioPalette() {
    QPalette p;
    p.setColor(QPalette::Window, chrome);
    p.setColor(QPalette::WindowText, textPrimary);
    p.setColor(QPalette::Base, well);
    p.setColor(QPalette::AlternateBase, panel);
    p.setColor(QPalette::Text, textPrimary);
    p.setColor(QPalette::PlaceholderText, textSecondary);
    p.setColor(QPalette::Button, panel);
    p.setColor(QPalette::ButtonText, textPrimary);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, chrome);
    p.setColor(QPalette::ToolTipBase, panel);
    p.setColor(QPalette::ToolTipText, textPrimary);
    p.setColor(QPalette::Mid, panelBorder);
    p.setColor(QPalette::Dark, chrome);
    p.setColor(QPalette::Light, knobRim);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, textDisabled);
    return p;
}

double devicePixelRatio(const QPainter& painter) {
    // QPainter::device() answers the widget even when QWidget::render redirects it into an
    // image; the engine's device is what the pixels land on.
    if (const QPaintEngine* engine = painter.paintEngine(); engine && engine->paintDevice())
        return engine->paintDevice()->devicePixelRatioF();
    return painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
}

QRectF snapped(const QRectF& r, double dpr) {
    const auto snap = [dpr](double v) { return std::round(v * dpr) / dpr; };
    const double left = snap(r.left()), top = snap(r.top());
    return QRectF(left, top, snap(r.right()) - left, snap(r.bottom()) - top);
}

QPointF onDial(QPointF centre, double radius, double degrees) {
    const double a = degrees * std::numbers::pi / 180.0;
    return {centre.x() + radius * std::sin(a), centre.y() - radius * std::cos(a)};
}

QPen hairline(const QColor& colour) {
    QPen pen(colour, 1);
    pen.setCosmetic(true);
    return pen;
}

void drawThickPolyline(QPainter& painter, const QPointF* points, int count, const QColor& colour, double width) {
    const double dpr = devicePixelRatio(painter);
    const int strokes = std::max(1, int(std::lround(width * dpr)));
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(hairline(colour));
    for (int k = 0; k < strokes; ++k) {
        const double offset = (k - (strokes - 1) / 2.0) / dpr;
        for (const QPointF shift : {QPointF(0, offset), QPointF(offset, 0)}) {
            painter.translate(shift);
            painter.drawPolyline(points, count);
            painter.translate(-shift);
        }
    }
    painter.restore();
}

void paintPanel(QPainter& painter, const QRectF& r, double radius, const QColor& fill) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(panelBorder, borderWidth));
    painter.setBrush(fill);
    // The border is centred on the path: half a pixel in keeps it on whole pixels at ratio 1.
    painter.drawRoundedRect(r.adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
    painter.restore();
}

}  // namespace velmora::theme
