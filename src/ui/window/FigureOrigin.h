#pragma once
// What the figures of the selected file are of: its source, its last master, or the live
// readings while something plays. The measures, the conformity and the diagnosis say it and
// follow the same choice (Model::showsMaster), so they never disagree silently.
#include <QString>
#include <QWidget>
#include <vector>

class QLabel;

#include "measurement/LoudnessEngine.h"
#include "norms/Diagnosis.h"

namespace velmora {

class Model;
class StudioSegmentButton;
struct FileItem;

namespace window {

enum class FigureOrigin { source, master, live };

// "SOURCE", "MASTER", "LIVE".
QString originText(FigureOrigin origin);

// Whether `item` has a master measured since its analysis.
bool hasMaster(const FileItem& item);
// The master when the model asks for it and there is one, else the source.
FigureOrigin storedOrigin(const Model& model);
// The stored measurement of that origin; null when the selected file has none.
const LoudnessResult* shownMeasure(const Model& model);
// The 21 norms checked against that measurement.
std::vector<NormCheck> shownDiagnosis(const Model& model);

// A panel's "SOURCE", "MASTER" or "LIVE" caption; with `withSwitch`, beside it the SOURCE |
// MASTER switch, shown while the selected file has a master.
class OriginBadge : public QWidget {
    Q_OBJECT
public:
    OriginBadge(Model& model, bool withSwitch, QWidget* parent = nullptr);
    // While live readings replace the stored ones.
    void setLive(bool live);
    FigureOrigin origin() const;
    QString text() const { return originText(origin()); }
    StudioSegmentButton* sourceButton() const { return source_; }
    StudioSegmentButton* masterButton() const { return master_; }

private:
    void refresh();

    Model& model_;
    bool live_ = false;
    QLabel* caption_;
    StudioSegmentButton* source_ = nullptr;
    StudioSegmentButton* master_ = nullptr;
};

}  // namespace window
}  // namespace velmora
