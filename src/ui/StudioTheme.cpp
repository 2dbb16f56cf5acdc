#include "ui/StudioTheme.h"

#include <QPaintEngine>
#include <QPainter>
#include <cmath>

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
    QFont f = face("DejaVu Sans", captionPx, QFont::Bold);
    f.setLetterSpacing(QFont::AbsoluteSpacing, 0.6);
    return f;
}

QFont bodyFont() { return face("DejaVu Sans", bodyPx, QFont::Normal); }

QFont monoFont(int pixelSize, bool bold) {
    QFont f = face("DejaVu Sans Mono", pixelSize, bold ? QFont::Bold : QFont::Normal);
    f.setStyleHint(QFont::Monospace);
    f.setFixedPitch(true);
    return f;
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
