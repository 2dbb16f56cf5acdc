#pragma once
// Velmora's look in one place: the palette, the metrics and the faces every studio component
// draws with. The chrome, panel and accent colours match the PDF report; the four meter zones
// are the ones the meters are read by and must not be retuned for looks.
//
// Sizes are logical pixels (device-independent), fonts included: a face set in points would be
// drawn at the resolution of whatever it lands on (a window, a QImage, a PDF) and change size
// between them.
#include <QColor>
#include <QFont>
#include <QPalette>
#include <QRectF>

class QApplication;
class QPainter;

namespace velmora::theme {

// --- Palette -------------------------------------------------------------------------------
inline const QColor chrome{0x0b, 0x0d, 0x10};
inline const QColor panel{0x15, 0x18, 0x1d};
inline const QColor panelBorder{0x26, 0x2b, 0x33};
inline const QColor well{0x0e, 0x10, 0x14};  // recessed areas: meter wells, graph plots
inline const QColor grid{0x23, 0x28, 0x30};
inline const QColor textPrimary{0xe8, 0xea, 0xed};
inline const QColor textSecondary{0x9a, 0xa3, 0xad};
inline const QColor textDisabled{0x5a, 0x61, 0x6a};
inline const QColor accent{0xff, 0x9e, 0x29};
inline const QColor ledGreen{0x3a, 0xd1, 0x57};
inline const QColor spectrum{0x4f, 0x8f, 0xd8};
inline const QColor knobBody{0x2a, 0x2e, 0x35};
inline const QColor knobRim{0x3a, 0x40, 0x49};

// Loudness zones of the segmented meters, by the level a segment stands for.
inline const QColor zoneRed = QColor::fromRgbF(0.93f, 0.27f, 0.27f);
inline const QColor zoneAmber = QColor::fromRgbF(0.98f, 0.78f, 0.18f);
inline const QColor zoneYellow = QColor::fromRgbF(0.85f, 0.82f, 0.18f);
inline const QColor zoneGreen = QColor::fromRgbF(0.22f, 0.78f, 0.30f);

// Band colours of the chain's controls, as on a console strip: high-pass, low shelf, low mid,
// high mid, high shelf.
inline const QColor bandHighPass{0x9a, 0xa3, 0xad};
inline const QColor bandLow{0xe0, 0x5a, 0x4f};
inline const QColor bandLowMid{0xff, 0x9e, 0x29};
inline const QColor bandHighMid{0x3a, 0xd1, 0x57};
inline const QColor bandHigh{0x4f, 0x8f, 0xd8};

// `c` at opacity `alpha` (0 … 1).
QColor withAlpha(const QColor& c, double alpha);

// --- Metrics -------------------------------------------------------------------------------
inline constexpr double panelRadius = 8;
inline constexpr double controlRadius = 4;
inline constexpr double borderWidth = 1;
inline constexpr double spacing = 8;

// Pixel sizes of the faces. The meter scale is the small monospaced face; 9 px is about what
// a 7-point face is on a 96-dpi screen.
inline constexpr int captionPx = 10;   // panel titles, control labels (upper case)
inline constexpr int bodyPx = 12;      // button and picker text
inline constexpr int scalePx = 9;      // meter and graph scales
inline constexpr int readoutPx = 11;   // values under knobs, small meter readouts
inline constexpr int bigReadoutPx = 40;

// The faces are made once and shared: components ask for them on every paint.
QFont captionFont();                      // sans, bold, slightly spaced
QFont bodyFont();                         // sans
QFont monoFont(int pixelSize, bool bold = false);  // tabular figures for every number
// Width of the widest meter scale label ("-60") in the scale face, measured once: geometry that
// depends on it is asked for per segment.
double scaleLabelWidth();

// The dark palette for QApplication::setPalette, so stock widgets placed between the studio
// components (menus, scroll bars, text fields) match them.
QPalette studioPalette();

// --- Drawing helpers -----------------------------------------------------------------------
// The ratio of device pixels to logical ones of what `painter` really draws on: also right
// when a widget is rendered into a high-density image through QWidget::render.
double devicePixelRatio(const QPainter& painter);

// `r` with its edges moved onto whole device pixels, so fills stay sharp at any ratio.
QRectF snapped(const QRectF& r, double dpr);

// The point `radius` from `centre` at `degrees` clockwise from straight up: how dials, knobs and
// needles are read.
QPointF onDial(QPointF centre, double radius, double degrees);

// A polyline `width` logical pixels thick, drawn as antialiased hairlines side by side (offset
// across and along). Qt's raster engine strokes hairlines on a fast path and anything wider
// through a general stroker some twenty times slower: too slow for a response curve redrawn
// while one of its points is dragged.
void drawThickPolyline(QPainter& painter, const QPointF* points, int count, const QColor& colour, double width);
// A hairline of one device pixel, the cheap stroke at any ratio.
QPen hairline(const QColor& colour);

// The recessed panel every component sits on: fill, 1 px border, rounded corners.
void paintPanel(QPainter& painter, const QRectF& r, double radius = panelRadius,
                const QColor& fill = panel);

}  // namespace velmora::theme
