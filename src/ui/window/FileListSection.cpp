#include "ui/window/FileListSection.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "model/Model.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/Icons.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

QColor toQColor(const StatusColor& c) { return QColor::fromRgbF(float(c.red), float(c.green), float(c.blue), float(c.alpha)); }

QFont nameFont() {
    QFont f = theme::bodyFont();
    f.setBold(true);
    return f;
}

QFont infoFont() {
    QFont f = theme::bodyFont();
    f.setPixelSize(11);
    return f;
}

}  // namespace

// --- FileRowsView -------------------------------------------------------------------------------

FileRowsView::FileRowsView(Model& model, QWidget* parent) : QAbstractScrollArea(parent), model_(model) {
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(QStringLiteral("Fichiers de la session"));
    viewport()->setMouseTracking(true);
    viewport()->setAutoFillBackground(false);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    verticalScrollBar()->setSingleStep(rowHeight / 2);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, viewport(), qOverload<>(&QWidget::update));
}

QRect FileRowsView::rowRect(int index) const {
    return QRect(0, index * rowHeight - verticalScrollBar()->value(), viewport()->width(), rowHeight);
}

int FileRowsView::rowAt(int y) const {
    const int row = (y + verticalScrollBar()->value()) / rowHeight;
    return y >= 0 && row < int(model_.queue().size()) ? row : -1;
}

int FileRowsView::selectedRow() const {
    const auto id = model_.selectedID();
    const auto& queue = model_.queue();
    for (std::size_t i = 0; i < queue.size(); ++i)
        if (id && queue[i].id == *id) return int(i);
    return -1;
}

void FileRowsView::updateScrollRange() {
    const int content = int(model_.queue().size()) * rowHeight;
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setRange(0, std::max(0, content - viewport()->height()));
}

void FileRowsView::queueChanged() {
    updateScrollRange();
    viewport()->update();
}

void FileRowsView::selectionChanged() {
    const int row = selectedRow();
    if (row >= 0) {
        const QRect r = rowRect(row);
        if (r.top() < 0) verticalScrollBar()->setValue(row * rowHeight);
        else if (r.bottom() > viewport()->height()) verticalScrollBar()->setValue((row + 1) * rowHeight - viewport()->height());
    }
    viewport()->update();
}

void FileRowsView::resizeEvent(QResizeEvent* e) {
    QAbstractScrollArea::resizeEvent(e);
    updateScrollRange();
}

void FileRowsView::paintEvent(QPaintEvent* e) {
    QPainter p(viewport());
    const auto& queue = model_.queue();
    const int selected = selectedRow();
    const int first = std::max(0, rowAt(e->rect().top()));
    const QFont name = nameFont(), info = infoFont(), caption = theme::captionFont();
    const QFontMetricsF nameMetrics(name), captionMetrics(caption), infoMetrics(info);
    for (int i = first; i < int(queue.size()); ++i) {
        const QRect row = rowRect(i);
        if (row.top() > e->rect().bottom()) break;
        const FileItem& item = queue[std::size_t(i)];
        const QRectF r = QRectF(row).adjusted(0, 1, 0, -1);
        if (i == selected) {
            p.fillRect(r, theme::withAlpha(theme::accent, hasFocus() ? 0.16 : 0.11));
            p.fillRect(QRectF(r.left(), r.top(), 3, r.height()), theme::accent);
        } else if (i == hovered_) {
            p.fillRect(r, theme::withAlpha(theme::textPrimary, 0.05));
        }
        p.setPen(theme::hairline(theme::grid));
        p.drawLine(QPointF(r.left() + 10, row.bottom() + 0.5), QPointF(r.right() - 10, row.bottom() + 0.5));

        const QString status = statusText(item.status);
        const double statusWidth = captionMetrics.horizontalAdvance(status);
        const double right = r.right() - 12 - statusWidth - 10;
        double x = r.left() + 14;
        if (item.isVideo) {
            const QString tag = QStringLiteral("VIDÉO");
            const QRectF pill(x, r.top() + 8, captionMetrics.horizontalAdvance(tag) + 10, 16);
            p.setRenderHint(QPainter::Antialiasing);
            p.setPen(Qt::NoPen);
            p.setBrush(theme::withAlpha(theme::spectrum, 0.25));
            p.drawRoundedRect(pill, 3, 3);
            p.setFont(caption);
            p.setPen(theme::spectrum);
            p.drawText(pill, Qt::AlignCenter, tag);
            x = pill.right() + 6;
        }
        p.setFont(name);
        p.setPen(theme::textPrimary);
        p.drawText(QRectF(x, r.top() + 6, std::max(0.0, right - x), 20), Qt::AlignLeft | Qt::AlignVCenter,
                   nameMetrics.elidedText(item.name, Qt::ElideMiddle, std::max(0.0, right - x)));
        p.setFont(info);
        p.setPen(theme::textSecondary);
        const QRectF infoRect(r.left() + 14, r.top() + 26, r.right() - 26 - r.left(), 18);
        // A report of the last master that could not be written is said where the file is.
        const QString infoText = item.reportProblem.isEmpty() ? item.info : item.info + QStringLiteral(" · ") + item.reportProblem;
        p.drawText(infoRect, Qt::AlignLeft | Qt::AlignVCenter, infoMetrics.elidedText(infoText, Qt::ElideRight, infoRect.width()));
        p.setFont(caption);
        p.setPen(toQColor(statusColor(item.status)));
        p.drawText(QRectF(r.right() - 12 - statusWidth, r.top() + 6, statusWidth, 20), Qt::AlignRight | Qt::AlignVCenter, status);
    }
}

void FileRowsView::mousePressEvent(QMouseEvent* e) {
    const int row = rowAt(int(e->position().y()));
    if (row >= 0) model_.select(model_.queue()[std::size_t(row)].id);
    setFocus(Qt::MouseFocusReason);
}

void FileRowsView::mouseMoveEvent(QMouseEvent* e) {
    const int row = rowAt(int(e->position().y()));
    if (row != hovered_) {
        hovered_ = row;
        viewport()->update();
    }
}

void FileRowsView::leaveEvent(QEvent* e) {
    QAbstractScrollArea::leaveEvent(e);
    hovered_ = -1;
    viewport()->update();
}

void FileRowsView::keyPressEvent(QKeyEvent* e) {
    const auto& queue = model_.queue();
    const int row = selectedRow();
    if ((e->key() == Qt::Key_Up || e->key() == Qt::Key_Down) && !queue.empty()) {
        const int next = std::clamp(row < 0 ? 0 : row + (e->key() == Qt::Key_Up ? -1 : 1), 0, int(queue.size()) - 1);
        model_.select(queue[std::size_t(next)].id);
        return;
    }
    if ((e->key() == Qt::Key_Delete || e->key() == Qt::Key_Backspace) && row >= 0 && !model_.busy()) {
        model_.removeItem(queue[std::size_t(row)].id);
        return;
    }
    QAbstractScrollArea::keyPressEvent(e);
}

// --- DropZone ----------------------------------------------------------------------------------

DropZone::DropZone(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Déposez vos fichiers audio ou vidéo"));
}

void DropZone::setHighlighted(bool on) {
    if (on == highlighted_) return;
    highlighted_ = on;
    update();
}

void DropZone::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(4.5, 4.5, -4.5, -4.5);
    const QColor ink = highlighted_ ? theme::accent : theme::textSecondary;
    p.setBrush(highlighted_ ? theme::withAlpha(theme::accent, 0.10) : theme::withAlpha(theme::well, 0.6));
    QPen dashed(theme::withAlpha(ink, highlighted_ ? 0.9 : 0.45), 1.5, Qt::DashLine);
    dashed.setDashPattern({5, 4});
    p.setPen(dashed);
    p.drawRoundedRect(r, theme::panelRadius, theme::panelRadius);

    QFont f = theme::bodyFont();
    f.setPixelSize(14);
    f.setBold(true);
    const QString call = QStringLiteral("Déposez vos fichiers audio ou vidéo");
    const QRectF textBox(r.left() + 12, 0, r.width() - 24, 1000);
    const double textHeight =
        QFontMetricsF(f).boundingRect(textBox, Qt::AlignHCenter | Qt::TextWordWrap, call).height();
    const double iconSize = std::min(56.0, r.height() * 0.3);
    const double blockHeight = iconSize + 14 + textHeight + 8 + 16;
    double y = r.center().y() - blockHeight / 2;
    paintIcon(p, Icon::waveform, QRectF(r.center().x() - iconSize / 2, y, iconSize, iconSize), ink);
    y += iconSize + 14;
    p.setFont(f);
    p.setPen(highlighted_ ? theme::accent : theme::textPrimary);
    p.drawText(QRectF(textBox.left(), y, textBox.width(), textHeight), Qt::AlignHCenter | Qt::TextWordWrap, call);
    y += textHeight + 8;
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(r.left() + 8, y, r.width() - 16, 16), Qt::AlignCenter, QStringLiteral("WAV · AIFF · MP3 · M4A · MOV · MP4"));
}

// --- FileListSection ----------------------------------------------------------------------------

FileListSection::FileListSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    panel_ = new StudioPanel(sessionTitle(0), this);
    outer->addWidget(panel_);

    auto* buttons = new QWidget;
    auto* buttonRow = new QHBoxLayout(buttons);
    buttonRow->setContentsMargins(0, 0, 0, 0);
    buttonRow->setSpacing(6);
    remove_ = makeButton(QStringLiteral("Retirer"), buttons);
    clear_ = makeButton(QStringLiteral("Vider"), buttons);
    for (auto* b : {remove_, clear_}) {
        b->setStyleSheet(QStringLiteral("padding: 2px 8px;"));
        buttonRow->addWidget(b);
    }
    panel_->setHeaderWidget(buttons);

    auto* layout = new QVBoxLayout(panel_);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->setSpacing(4);
    progressLabel_ = new TextLine(panel_);
    progressLabel_->setFont(theme::captionFont());
    progressLabel_->setColor(theme::accent);
    progressBar_ = new QProgressBar(panel_);
    progressBar_->setRange(0, 1000);
    progressBar_->setTextVisible(false);
    progressBar_->setFixedHeight(6);
    layout->addWidget(progressLabel_);
    layout->addWidget(progressBar_);
    stack_ = new QStackedWidget(panel_);
    dropZone_ = new DropZone(stack_);
    rows_ = new FileRowsView(model, stack_);
    stack_->addWidget(dropZone_);
    stack_->addWidget(rows_);
    layout->addWidget(stack_, 1);

    connect(remove_, &QPushButton::clicked, this, [this] {
        if (const auto id = model_.selectedID()) model_.removeItem(*id);
    });
    connect(clear_, &QPushButton::clicked, this, [this] {
        if (model_.queue().empty() || !confirmClear()) return;
        std::vector<QUuid> ids;
        for (const auto& item : model_.queue()) ids.push_back(item.id);
        for (const auto& id : ids) model_.removeItem(id);
    });
    connect(&model, &Model::queueChanged, this, &FileListSection::refreshQueue);
    // An item's new status repaints the rows; the panel's title and the buttons stay as they are.
    connect(&model, &Model::itemChanged, rows_, [this] { rows_->viewport()->update(); });
    connect(&model, &Model::selectedIDChanged, this, [this] {
        rows_->selectionChanged();
        refreshBusy();
    });
    for (auto signal : {&Model::analyzeTotalChanged, &Model::analyzeDoneChanged, &Model::batchTotalChanged,
                        &Model::batchDoneChanged, &Model::busyChanged, &Model::modeChanged, &Model::displayUnitChanged})
        connect(&model, signal, this, &FileListSection::refreshProgress);
    connect(&model, &Model::analyzeCurrentChanged, this, &FileListSection::refreshProgress);
    connect(&model, &Model::batchCurrentChanged, this, &FileListSection::refreshProgress);
    connect(&model, &Model::analyzingNameChanged, this, &FileListSection::refreshProgress);
    connect(&model, &Model::processingNameChanged, this, &FileListSection::refreshProgress);
    connect(&model, &Model::busyChanged, this, &FileListSection::refreshBusy);
    refreshQueue();
    refreshProgress();
    refreshBusy();
}

void FileListSection::setDragOver(bool on) {
    // The drop zone lights up; with files already queued, the list's panel does.
    dropZone_->setHighlighted(on);
    panel_->setGlow(on ? std::optional<QColor>(theme::accent) : std::nullopt);
}

bool FileListSection::confirmClear() {
    // A session can take an hour of analysis to build again: one click must not throw it away.
    const int n = int(model_.queue().size());
    QMessageBox box(QMessageBox::Question, QStringLiteral("Velmora"), QStringLiteral("Vider la session ?"),
                    QMessageBox::NoButton, window());
    box.setInformativeText(n == 1 ? QStringLiteral("Le fichier et ses mesures seront retirés de la session. "
                                                   "Le fichier lui-même reste sur le disque.")
                                  : QStringLiteral("Les %1 fichiers et leurs mesures seront retirés de la session. "
                                                   "Les fichiers eux-mêmes restent sur le disque.")
                                        .arg(n));
    QPushButton* empty = box.addButton(QStringLiteral("Vider"), QMessageBox::DestructiveRole);
    QPushButton* keep = box.addButton(QStringLiteral("Annuler"), QMessageBox::RejectRole);
    box.setDefaultButton(keep);
    box.setEscapeButton(keep);
    box.exec();
    return box.clickedButton() == empty;
}

void FileListSection::refreshQueue() {
    const int count = int(model_.queue().size());
    if (panel_->title() != sessionTitle(count)) panel_->setTitle(sessionTitle(count));
    stack_->setCurrentWidget(count == 0 ? static_cast<QWidget*>(dropZone_) : rows_);
    rows_->queueChanged();
    refreshBusy();
}

void FileListSection::refreshProgress() {
    QString text;
    double fraction = -1;
    if (model_.busy() && model_.batchTotal() > 0) {
        const QString what = model_.mode() == ProcessMode::master ? QStringLiteral("Mastering") : QStringLiteral("Correction LUFS");
        text = QStringLiteral("%1 %2/%3").arg(what).arg(model_.batchDone()).arg(model_.batchTotal());
        if (!model_.processingName().isEmpty()) text += QStringLiteral(" · ") + model_.processingName();
        fraction = (model_.batchDone() + model_.batchCurrent()) / model_.batchTotal();
    } else if (model_.analyzeTotal() > 0 && model_.analyzeDone() < model_.analyzeTotal()) {
        text = QStringLiteral("Analyse %1 %2/%3").arg(unitText(model_.displayUnit())).arg(model_.analyzeDone()).arg(model_.analyzeTotal());
        if (!model_.analyzingName().isEmpty()) text += QStringLiteral(" · ") + model_.analyzingName();
        fraction = (model_.analyzeDone() + model_.analyzeCurrent()) / model_.analyzeTotal();
    }
    const bool shown = fraction >= 0;
    progressLabel_->setVisible(shown);
    progressBar_->setVisible(shown);
    if (!shown) return;
    progressLabel_->setText(text);
    progressBar_->setValue(int(std::clamp(fraction, 0.0, 1.0) * 1000));
}

void FileListSection::refreshBusy() {
    const bool idle = !model_.busy();
    remove_->setEnabled(idle && model_.selectedID().has_value());
    clear_->setEnabled(idle && !model_.queue().empty());
}

}  // namespace velmora::window
