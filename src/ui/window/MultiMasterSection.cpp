#include "ui/window/MultiMasterSection.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "model/Model.h"
#include "norms/Presets.h"
#include "ui/LedToggle.h"
#include "ui/StudioPanel.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

struct NormGroup {
    QString title;
    std::vector<int> indices;
};

// The table's norms by use: broadcast and streaming as the quick selections name them, and the rest.
std::vector<NormGroup> normGroups() {
    std::vector<NormGroup> groups{
        {QString::fromStdString(broadcastGroup().title), broadcastGroup().indices},
        {QStringLiteral("Cinéma"), {}},
        {QString::fromStdString(streamingGroup().title), streamingGroup().indices},
        {QStringLiteral("Club"), {}},
    };
    for (int i = 0; i < int(presets().size()); ++i) {
        const bool grouped = std::count(broadcastGroup().indices.begin(), broadcastGroup().indices.end(), i) ||
                             std::count(streamingGroup().indices.begin(), streamingGroup().indices.end(), i);
        if (!grouped) groups[i < streamingGroup().indices.front() ? 1 : 3].indices.push_back(i);
    }
    return groups;
}

QPushButton* smallButton(const QString& text, QWidget* parent) {
    QPushButton* b = makeButton(text, parent);
    b->setStyleSheet(QStringLiteral("padding: 3px 8px;"));
    return b;
}

}  // namespace

MultiMasterSection::MultiMasterSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    panel_ = new StudioPanel(QStringLiteral("MULTI-MASTER"), this);
    outer->addWidget(panel_);
    disclosure_ = smallButton(QStringLiteral("Masquer ▴"), nullptr);
    disclosure_->setFixedWidth(std::max(disclosure_->sizeHint().width(),
                                        disclosure_->fontMetrics().horizontalAdvance(QStringLiteral("Afficher ▾")) + 20));
    panel_->setHeaderWidget(disclosure_);
    auto* panelLayout = new QVBoxLayout(panel_);
    panelLayout->setContentsMargins(0, 0, 0, 0);
    panelLayout->setSpacing(6);
    panelLayout->addWidget(makeNote(QStringLiteral("Génère un master par norme cochée, à côté du fichier source."), panel_));
    body_ = new QWidget(panel_);
    panelLayout->addWidget(body_);
    auto* layout = new QVBoxLayout(body_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    auto* quick = new QHBoxLayout;
    quick->setSpacing(4);
    tickAll_ = smallButton(QStringLiteral("Tout cocher"), body_);
    QPushButton* untick = smallButton(QStringLiteral("Tout décocher"), body_);
    quick->addWidget(tickAll_);
    quick->addWidget(untick);
    quick->addStretch();
    layout->addLayout(quick);
    connect(tickAll_, &QPushButton::clicked, this, [this] { model_.tickAllNorms(); });
    connect(untick, &QPushButton::clicked, this, [this] { model_.untickAllNorms(); });

    for (const auto& group : normGroups()) {
        if (group.indices.empty()) continue;
        auto* heading = new QHBoxLayout;
        heading->addWidget(makeCaption(group.title.toUpper(), body_));
        heading->addStretch();
        // A group heading ticks that group alone, as the quick selections do.
        QPushButton* only = smallButton(QStringLiteral("Cocher « %1 »").arg(group.title), body_);
        only->setAccessibleName(group.title);
        heading->addWidget(only);
        layout->addSpacing(2);
        layout->addLayout(heading);
        connect(only, &QPushButton::clicked, this, [this, indices = group.indices] { model_.tickGroup(indices); });
        auto* grid = new QGridLayout;
        grid->setHorizontalSpacing(6);
        grid->setVerticalSpacing(0);
        int n = 0;
        for (int index : group.indices) {
            auto* toggle = new LedToggle(QString::fromStdString(presets()[std::size_t(index)].label), body_);
            toggle->setLedSize(8);
            toggles_[index] = toggle;
            grid->addWidget(toggle, n, 0, Qt::AlignLeft);
            ++n;
            connect(toggle, &QAbstractButton::clicked, this, [this, index](bool on) {
                auto ticked = model_.multiMasterPresetIndices();
                if (on) ticked.insert(index);
                else ticked.erase(index);
                model_.setMultiMasterPresetIndices(ticked);
                model_.saveSettings();
            });
        }
        layout->addLayout(grid);
    }

    layout->addSpacing(6);
    packsTitle_ = makeCaption(QString(), body_);
    layout->addWidget(packsTitle_);
    packList_ = new QWidget(body_);
    packRows_ = new QVBoxLayout(packList_);
    packRows_->setContentsMargins(0, 0, 0, 0);
    packRows_->setSpacing(2);
    layout->addWidget(packList_);
    auto* naming = new QHBoxLayout;
    naming->setSpacing(4);
    packName_ = new QLineEdit(body_);
    packName_->setPlaceholderText(QStringLiteral("Nom du pack"));
    packName_->setAccessibleName(QStringLiteral("Nom du pack"));
    packName_->setFont(theme::bodyFont());
    savePack_ = smallButton(QStringLiteral("Sauver le pack"), body_);
    QPushButton* cancel = smallButton(QStringLiteral("Annuler"), body_);
    naming->addWidget(packName_, 1);
    naming->addWidget(savePack_);
    naming->addWidget(cancel);
    layout->addLayout(naming);
    auto save = [this] {
        model_.savePack(packName_->text());
        if (!packName_->text().trimmed().isEmpty() && !model_.multiMasterPresetIndices().empty()) packName_->clear();
    };
    connect(savePack_, &QPushButton::clicked, this, save);
    connect(packName_, &QLineEdit::returnPressed, this, save);
    connect(cancel, &QPushButton::clicked, packName_, &QLineEdit::clear);

    layout->addSpacing(6);
    export_ = new StudioPrimaryButton(multiMasterButtonText(0), body_);
    export_->setColor(theme::accent);
    layout->addWidget(export_);
    connect(export_, &QAbstractButton::clicked, this, [this] { model_.startMultiMaster(); });
    progress_ = new TextLine(body_);
    progress_->setFont(theme::captionFont());
    progress_->setColor(theme::accent);
    progressBar_ = new QProgressBar(body_);
    progressBar_->setTextVisible(false);
    progressBar_->setRange(0, 1000);
    progressBar_->setFixedHeight(6);
    layout->addWidget(progress_);
    layout->addWidget(progressBar_);

    connect(disclosure_, &QPushButton::clicked, this, [this] { model_.setShowMultiMaster(!model_.showMultiMaster()); });
    connect(&model, &Model::showMultiMasterChanged, this, &MultiMasterSection::refreshOpen);
    connect(&model, &Model::multiMasterPresetIndicesChanged, this, &MultiMasterSection::refreshTicks);
    connect(&model, &Model::multiMasterPacksChanged, this, &MultiMasterSection::refreshPacks);
    for (auto signal : {&Model::busyChanged, &Model::multiMasterCurrentChanged, &Model::multiMasterTotalChanged,
                        &Model::multiMasterCurrentLabelChanged, &Model::selectedIDChanged})
        connect(&model, signal, this, &MultiMasterSection::refreshProgress);
    connect(&model, &Model::batchCurrentChanged, this, [this] {
        if (model_.multiMasterTotal() > 0 && model_.busy()) refreshProgress();
    });
    refreshOpen();
    refreshTicks();
    refreshPacks();
    refreshProgress();
}

void MultiMasterSection::refreshOpen() {
    const bool open = model_.showMultiMaster();
    body_->setVisible(open);
    disclosure_->setText(open ? QStringLiteral("Masquer ▴") : QStringLiteral("Afficher ▾"));
}

void MultiMasterSection::refreshTicks() {
    const auto& ticked = model_.multiMasterPresetIndices();
    for (auto& [index, toggle] : toggles_) toggle->setChecked(ticked.count(index) > 0);
    export_->setText(multiMasterButtonText(int(ticked.size())));
    refreshProgress();
}

void MultiMasterSection::refreshPacks() {
    while (QLayoutItem* item = packRows_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto& packs = model_.multiMasterPacks();
    packsTitle_->setText(packs.empty() ? QStringLiteral("Aucun pack sauvegardé.")
                                       : countedTitle(QStringLiteral("Mes packs"), int(packs.size())).toUpper());
    for (const auto& pack : packs) {
        auto* row = new QWidget(packList_);
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(4);
        QPushButton* apply = smallButton(QStringLiteral("%1 · %2 norme%3").arg(pack.name).arg(pack.indices.size())
                                             .arg(pack.indices.size() > 1 ? "s" : ""),
                                         row);
        apply->setStyleSheet(QStringLiteral("text-align: left; padding: 3px 8px;"));
        auto* bin = new IconButton(Icon::bin, QStringLiteral("Supprimer le pack « %1 »").arg(pack.name), row);
        bin->setSide(24);
        layout->addWidget(apply, 1);
        layout->addWidget(bin);
        packRows_->addWidget(row);
        connect(apply, &QPushButton::clicked, this, [this, id = pack.id] {
            model_.applyPack(id);
            model_.saveSettings();
        });
        // Queued: the rows are rebuilt when the packs change, the clicked bin with them.
        connect(bin, &QAbstractButton::clicked, this, [this, id = pack.id] {
            QMetaObject::invokeMethod(this, [this, id] { model_.deletePack(id); }, Qt::QueuedConnection);
        });
    }
}

void MultiMasterSection::refreshProgress() {
    const bool running = model_.busy() && model_.multiMasterTotal() > 0 && model_.multiMasterCurrent() > 0;
    progress_->setVisible(running);
    progressBar_->setVisible(running);
    if (running) {
        progress_->setText(QStringLiteral("%1 · %2/%3")
                               .arg(model_.multiMasterCurrentLabel())
                               .arg(model_.multiMasterCurrent())
                               .arg(model_.multiMasterTotal()));
        const double done = model_.multiMasterCurrent() - 1 + model_.batchCurrent();
        progressBar_->setValue(int(std::clamp(done / model_.multiMasterTotal(), 0.0, 1.0) * 1000));
    }
    // Enabled whenever nothing runs: the model says why it cannot start (no file, no norm).
    export_->setEnabled(!model_.busy());
}

}  // namespace velmora::window
