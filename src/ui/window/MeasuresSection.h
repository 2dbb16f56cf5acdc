#pragma once
// Sections 4 and 5 of the window: the selected file's loudness (a big integrated meter, the
// short-term column, two needle meters and the readings), then the warnings under them. While
// anything plays the live meter's four readings replace the stored ones in the meter block.
#include <QColor>
#include <QWidget>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "mastering/LiveMeter.h"

class QBoxLayout;
class QGridLayout;
class QHBoxLayout;
class QLabel;
class QStackedWidget;
class QVBoxLayout;

namespace velmora {

class AnalogVUMeter;
class BigMeter;
class Model;
class StudioPanel;
class VerticalMeter;

namespace window {

class SeekBadge;
class OriginBadge;

class MeasuresSection : public QWidget {
    Q_OBJECT
public:
    explicit MeasuresSection(Model& model, QWidget* parent = nullptr);

    // The meter block from live readings (nothing: the stored measurement again). Cheap when
    // nothing visible changes; called by the window's 50 ms timer.
    void showLive(const std::optional<LiveMeter::Readings>& readings);
    // Everything from the model's stored fields.
    void refresh();

    StudioPanel* panel() const { return panel_; }
    BigMeter* integratedMeter() const { return integrated_; }
    VerticalMeter* shortTermMeter() const { return shortTerm_; }
    AnalogVUMeter* loudnessNeedle() const { return loudnessVU_; }
    AnalogVUMeter* peakNeedle() const { return peakVU_; }
    bool needlesSideBySide() const { return needlesSideBySide_; }
    SeekBadge* momentaryMaxBadge() const { return momentaryMax_; }
    SeekBadge* shortTermMaxBadge() const { return shortTermMax_; }
    SeekBadge* truePeakBadge() const { return truePeak_; }
    SeekBadge* samplePeakBadge() const { return samplePeak_; }
    SeekBadge* rangeBadge() const { return range_; }
    const QString& rangeLabel() const { return rangeLabel_; }
    SeekBadge* targetBadge() const { return target_; }
    SeekBadge* ceilingBadge() const { return ceiling_; }
    QLabel* placeholder() const { return placeholder_; }
    OriginBadge* origin() const { return origin_; }
    // The warning lines shown now, in order.
    QStringList warnings() const;
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent*) override;
    bool eventFilter(QObject* watched, QEvent* e) override;

private:
    void arrangeBadges();
    void arrangeNeedles();
    void refreshWarnings();
    void seekTo(std::optional<double> seconds);

    Model& model_;
    StudioPanel* panel_;
    QStackedWidget* stack_;
    QLabel* placeholder_;
    QHBoxLayout* meterRow_;
    QBoxLayout* needles_;
    bool needlesSideBySide_ = false;
    QVBoxLayout* body_;
    QWidget* badgeBox_;
    QGridLayout* badgeGrid_;
    int badgeColumns_ = 0;
    BigMeter* integrated_;
    VerticalMeter* shortTerm_;
    AnalogVUMeter* loudnessVU_;
    AnalogVUMeter* peakVU_;
    SeekBadge *momentaryMax_, *shortTermMax_, *truePeak_, *samplePeak_, *range_, *target_, *ceiling_;
    QWidget* warningBox_;
    QVBoxLayout* warningLines_;
    bool live_ = false;
    OriginBadge* origin_;
    QString rangeLabel_ = QStringLiteral("LRA");
    QColor integratedColour_, truePeakColour_;
    bool showsDialogue_ = false;  // the big meter reads the dialogue loudness
    std::vector<std::pair<QString, QColor>> shownWarnings_;
    QString shownUnit_;
    double shownTarget_ = std::numeric_limits<double>::quiet_NaN();
    double shownCeiling_ = std::numeric_limits<double>::quiet_NaN();
};

}  // namespace window
}  // namespace velmora
