#include "ui/window/ActionBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>

#include "model/Model.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/Icons.h"

namespace velmora::window {

ActionBar::ActionBar(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 10, 12, 10);
    row->setSpacing(10);
    analyse_ = new StudioPrimaryButton(QStringLiteral("ANALYSER"), this);
    analyse_->setColor(theme::spectrum);
    analyse_->setToolTip(QStringLiteral("Mesurer à nouveau le fichier sélectionné avec le format et l'ordre de canaux choisis"));
    export_ = new StudioPrimaryButton(QStringLiteral("EXPORTER"), this);
    export_->setColor(theme::accent);
    export_->setMinimumWidth(190);
    export_->setToolTip(QStringLiteral("Traiter tous les fichiers prêts dans un dossier"));
    saveAs_ = makeButton(QStringLiteral("Enregistrer sous…"), this);
    saveAs_->setMinimumHeight(34);
    saveAs_->setToolTip(QStringLiteral("Traiter le fichier sélectionné et l'enregistrer (Ctrl+S)"));
    row->addWidget(analyse_);
    row->addWidget(export_);
    row->addWidget(saveAs_);
    row->addSpacing(12);
    status_ = new TextLine(this);
    status_->setFont(theme::bodyFont());
    status_->setColor(theme::textPrimary);
    row->addWidget(status_, 1);

    connect(analyse_, &QAbstractButton::clicked, this, [this] { model_.remeasureSelected(); });
    connect(export_, &QAbstractButton::clicked, this, [this] { model_.exportBatch(); });
    connect(saveAs_, &QPushButton::clicked, this, [this] { model_.saveMaster(); });
    for (auto signal : {&Model::busyChanged, &Model::modeChanged, &Model::selectedIDChanged, &Model::queueChanged})
        connect(&model, signal, this, &ActionBar::refresh);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refresh();
    });
    connect(&model, &Model::globalStatusChanged, this, &ActionBar::refreshStatus);
    refresh();
    refreshStatus();
}

void ActionBar::refresh() {
    const bool busy = model_.busy();
    const FileItem* item = model_.selectedItem();
    const Icon face = busy ? Icon::hourglass : model_.mode() == ProcessMode::master ? Icon::exportArrow : Icon::seal;
    if (face != exportFace_) {
        exportFace_ = face;
        export_->setText(busy ? QStringLiteral("TRAITEMENT EN COURS…")
                              : face == Icon::exportArrow ? QStringLiteral("EXPORTER") : QStringLiteral("CONFORMER"));
        export_->setIcon(makeIcon(face, theme::chrome));
    }
    analyse_->setEnabled(!busy && item && item->hasAudio());
    export_->setEnabled(!busy && !model_.queue().empty());
    saveAs_->setEnabled(!busy && item && item->measured);
}

void ActionBar::refreshStatus() {
    status_->setText(model_.globalStatus());
}

void ActionBar::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), theme::panel);
    p.setPen(theme::panelBorder);
    p.drawLine(rect().topLeft(), rect().topRight());
}

}  // namespace velmora::window
