#include "ui/window/FigureOrigin.h"

#include <QHBoxLayout>
#include <QLabel>

#include "model/Model.h"
#include "norms/Presets.h"
#include "ui/StudioPanel.h"
#include "ui/StudioSegmentButton.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"

namespace velmora::window {

QString originText(FigureOrigin origin) {
    switch (origin) {
    case FigureOrigin::source: return QStringLiteral("SOURCE");
    case FigureOrigin::master: return QStringLiteral("MASTER");
    case FigureOrigin::live: return QStringLiteral("LIVE");
    }
    return {};
}

bool hasMaster(const FileItem& item) {
    return item.status == ItemStatus::mastered && item.measured && item.originalMeasure;
}

FigureOrigin storedOrigin(const Model& model) {
    const FileItem* item = model.selectedItem();
    return item && model.showsMaster() && hasMaster(*item) ? FigureOrigin::master : FigureOrigin::source;
}

const LoudnessResult* shownMeasure(const Model& model) {
    const FileItem* item = model.selectedItem();
    if (!item) return nullptr;
    const auto& m = storedOrigin(model) == FigureOrigin::master ? item->measured : item->sourceMeasure();
    return m ? &*m : nullptr;
}

std::vector<NormCheck> shownDiagnosis(const Model& model) {
    const FileItem* item = model.selectedItem();
    if (!item) return {};
    if (storedOrigin(model) == FigureOrigin::source) return item->multiNormDiagnosis;
    return diagnose(presets(), item->measured->integratedLUFS, item->measured->truePeakDB);
}

OriginBadge::OriginBadge(Model& model, bool withSwitch, QWidget* parent) : QWidget(parent), model_(model) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(4);
    caption_ = makeCaption(QString(), this);
    caption_->setAccessibleName(QStringLiteral("Origine des mesures"));
    row->addWidget(caption_);
    if (withSwitch) {
        row->addSpacing(6);
        source_ = new StudioSegmentButton(QStringLiteral("SOURCE"), false, this);
        master_ = new StudioSegmentButton(QStringLiteral("MASTER"), true, this);
        for (auto* b : {source_, master_}) {
            row->addWidget(b);
            connect(b, &StudioSegmentButton::picked, this, [this](const QVariant& v) { model_.setShowsMaster(v.toBool()); });
        }
    }
    connect(&model, &Model::selectedIDChanged, this, &OriginBadge::refresh);
    connect(&model, &Model::showsMasterChanged, this, &OriginBadge::refresh);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refresh();
    });
    refresh();
}

void OriginBadge::setLive(bool live) {
    if (live == live_) return;
    live_ = live;
    refresh();
}

FigureOrigin OriginBadge::origin() const { return live_ ? FigureOrigin::live : storedOrigin(model_); }

void OriginBadge::refresh() {
    const FigureOrigin o = origin();
    caption_->setText(originText(o));
    setTextColour(caption_, o == FigureOrigin::live     ? theme::zoneRed
                            : o == FigureOrigin::master ? theme::accent
                                                        : theme::textSecondary);
    if (!source_) return;
    const FileItem* item = model_.selectedItem();
    const bool choice = !live_ && item && hasMaster(*item);
    for (auto* b : {source_, master_}) b->setSelection(model_.showsMaster());
    if (choice == source_->isVisibleTo(this)) return;
    source_->setVisible(choice);
    master_->setVisible(choice);
    // The panel places its header widget by its size, which has just changed.
    if (auto* panel = qobject_cast<StudioPanel*>(parentWidget())) panel->setHeaderWidget(this);
}

}  // namespace velmora::window
