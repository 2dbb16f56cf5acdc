#pragma once
// Sections 7 and 8 of the window: how many of the 21 norms the untouched file already meets,
// and the multi-norm diagnosis, one line per norm with its verdict marks and deltas.
#include <QWidget>
#include <vector>

#include "norms/Diagnosis.h"

class QLabel;
class QScrollArea;

namespace velmora {

class Model;
class StudioPanel;

namespace window {
class OriginBadge;

// The 21 lines in two columns (three on a wide screen): mark, norm, loudness delta, true-peak
// mark and delta ("%+.1f"). The chosen norm's line is highlighted. A line is never wider than
// its longest norm name and its values need: on a wide screen the values stay beside the names.
class NormListView : public QWidget {
    Q_OBJECT
public:
    static constexpr int lineHeight = 19;
    explicit NormListView(QWidget* parent = nullptr);
    void setChecks(std::vector<NormCheck> checks, int chosen);
    const std::vector<NormCheck>& checks() const { return checks_; }
    // The text of line `index` as drawn, for tests and screen readers: "✓ label  +0.4 LU  ✓ TP -0.3".
    QString lineText(int index) const;
    // Where line `index` and its parts are drawn, in widget coordinates.
    struct LineGeometry {
        QRectF line, mark, label, delta, peak;
    };
    LineGeometry lineGeometry(int index) const;
    int columns() const { return columnsFor(width()); }
    QSize sizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    int columnsFor(int width) const;
    double naturalLineWidth() const;  // the mark, the longest name and the values

    std::vector<NormCheck> checks_;
    int chosen_ = -1;
};

class DiagnosisSection : public QWidget {
    Q_OBJECT
public:
    explicit DiagnosisSection(Model& model, QWidget* parent = nullptr);
    QLabel* conformityLine() const { return summary_; }
    NormListView* normList() const { return list_; }
    StudioPanel* diagnosisPanel() const { return diagnosisPanel_; }
    OriginBadge* conformityOrigin() const { return conformityOrigin_; }
    OriginBadge* diagnosisOrigin() const { return diagnosisOrigin_; }

private:
    void refresh();

    Model& model_;
    StudioPanel* conformityPanel_;
    QLabel* summary_;
    QLabel* count_;
    StudioPanel* diagnosisPanel_;
    NormListView* list_;
    QLabel* empty_;
    OriginBadge* conformityOrigin_;
    OriginBadge* diagnosisOrigin_;
};

}  // namespace window
}  // namespace velmora
