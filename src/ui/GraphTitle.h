#pragma once
// The title line of a graph: the name, then what the pointer can do, after " · ". On one line
// when the graph is wide enough, else the name above and the gestures under it, so nothing is
// cut. Its height decides where the plot starts, which geometry asks for at every point it
// places: the text is measured once per width.
#include <QString>

class QPainter;
class QRectF;

namespace velmora {

class GraphTitle {
public:
    explicit GraphTitle(QString text) : text_(std::move(text)) {}

    const QString& text() const { return text_; }
    double height(int width) const;
    // Dimmed: in the disabled grey, for a graph whose stage is bypassed.
    void paint(QPainter& painter, int width, bool dimmed = false) const;

private:
    bool fits(int width) const;

    QString text_;
    mutable int measuredFor_ = -1;
    mutable bool fits_ = true;
};

// The mark a graph carries at the top of its plot while its stage is bypassed: "HORS CIRCUIT".
inline const char* const bypassMark = "HORS CIRCUIT";
// At the top of the plot's middle, or in its bottom right corner where a transfer curve leaves room.
void paintBypassMark(QPainter& painter, const QRectF& plot, bool bottomRight = false);

}  // namespace velmora
