#include "ui/window/DiagnosisSection.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QScrollArea>
#include <QVBoxLayout>
#include <cmath>

#include "model/Model.h"
#include "ui/window/FigureOrigin.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"
#include "ui/window/WindowText.h"

namespace velmora::window {

namespace {

constexpr int twoColumnsFrom = 560;  // px of width
const QString okMark = QStringLiteral("✓");

const QString warnMark = QStringLiteral("⚠");


}  // namespace

// --- NormListView ---------------------------------------------------------------------------------

NormListView::NormListView(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Diagnostic multi-norme"));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

void NormListView::setChecks(std::vector<NormCheck> checks, int chosen) {
    const auto same = [](const NormCheck& a, const NormCheck& b) {
        return a.id == b.id && a.conform == b.conform && a.integratedOK == b.integratedOK &&
               a.truePeakOK == b.truePeakOK && a.integratedLUFS == b.integratedLUFS && a.truePeakDBTP == b.truePeakDBTP;
    };
    if (chosen == chosen_ && std::equal(checks.begin(), checks.end(), checks_.begin(), checks_.end(), same)) return;
    const bool sameShape = checks.size() == checks_.size();
    checks_ = std::move(checks);
    chosen_ = chosen;
    if (!sameShape) updateGeometry();
    update();
}

namespace {

constexpr double markWidth = 22;  // the mark and the room after it
constexpr double labelGap = 12;   // between the longest name and the loudness delta
constexpr double columnGap = 10;

QFont labelFont() {
    QFont small = theme::bodyFont();
    small.setPixelSize(11);
    return small;
}

QFont valueFont() { return theme::monoFont(11); }

double deltaWidth() { return QFontMetricsF(valueFont()).horizontalAdvance(QStringLiteral("+00.0 LU")); }
double peakWidth() { return QFontMetricsF(valueFont()).horizontalAdvance(QStringLiteral("TP +00.0")) + 16; }

}  // namespace

double NormListView::naturalLineWidth() const {
    const QFontMetricsF metrics(labelFont());
    double label = 0;
    for (const NormCheck& c : checks_)
        label = std::max(label, metrics.horizontalAdvance(QString::fromStdString(c.presetLabel)));
    return 4 + markWidth + std::ceil(label) + labelGap + deltaWidth() + 6 + peakWidth() + 4;
}

int NormListView::columnsFor(int width) const {
    // Two columns from a modest width, the names shortened if need be; a third only where three
    // whole lines fit side by side.
    if (width < twoColumnsFrom) return 1;
    return width >= 3 * naturalLineWidth() + 2 * columnGap ? 3 : 2;
}

int NormListView::heightForWidth(int width) const {
    const int cols = columnsFor(width);
    const int rows = (int(checks_.size()) + cols - 1) / cols;
    return rows * lineHeight + 2;
}

NormListView::LineGeometry NormListView::lineGeometry(int index) const {
    const int cols = columns();
    const int rows = (int(checks_.size()) + cols - 1) / cols;
    const double columnWidth = (width() - (cols - 1) * columnGap) / cols;
    const int col = index / std::max(rows, 1), row = index % std::max(rows, 1);
    const double left = col * (columnWidth + columnGap);
    LineGeometry g;
    g.line = QRectF(left, 1 + row * lineHeight, std::min(columnWidth, naturalLineWidth()), lineHeight);
    g.mark = QRectF(left + 4, g.line.top(), 14, lineHeight);
    const double right = g.line.right() - 4;
    g.peak = QRectF(right - peakWidth(), g.line.top(), peakWidth(), lineHeight);
    g.delta = QRectF(g.peak.left() - deltaWidth() - 6, g.line.top(), deltaWidth(), lineHeight);
    g.label = QRectF(left + markWidth, g.line.top(), std::max(0.0, g.delta.left() - left - markWidth - 6), lineHeight);
    return g;
}

QSize NormListView::sizeHint() const { return QSize(600, heightForWidth(600)); }

QString NormListView::lineText(int index) const {
    const NormCheck& c = checks_.at(std::size_t(index));
    return QStringLiteral("%1 %2  %3 LU  %4 TP %5")
        .arg(c.conform ? okMark : warnMark, QString::fromStdString(c.presetLabel),
             signedOneDecimal(c.integratedLUFS - c.targetLUFS), c.truePeakOK ? okMark : warnMark,
             signedOneDecimal(c.truePeakDBTP - c.ceilingDBTP));
}

void NormListView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    const QFont body = theme::bodyFont();
    const QFont small = labelFont();
    const QFont mono = valueFont();
    const QFontMetricsF smallMetrics(small);
    for (int i = 0; i < int(checks_.size()); ++i) {
        const NormCheck& c = checks_[std::size_t(i)];
        const LineGeometry g = lineGeometry(i);
        if (c.id == chosen_) {
            p.setRenderHint(QPainter::Antialiasing);
            p.setPen(Qt::NoPen);
            p.setBrush(theme::withAlpha(theme::accent, 0.14));
            p.drawRoundedRect(g.line, 3, 3);
        }
        const QColor markColour = c.conform ? theme::ledGreen : theme::zoneAmber;
        p.setFont(body);
        p.setPen(markColour);
        p.drawText(g.mark, Qt::AlignCenter, c.conform ? okMark : warnMark);
        p.setFont(small);
        p.setPen(c.id == chosen_ ? theme::textPrimary : theme::withAlpha(theme::textPrimary, 0.85));
        p.drawText(g.label, Qt::AlignLeft | Qt::AlignVCenter,
                   smallMetrics.elidedText(QString::fromStdString(c.presetLabel), Qt::ElideRight, g.label.width()));
        p.setFont(mono);
        p.setPen(c.integratedOK ? theme::ledGreen : theme::zoneAmber);
        p.drawText(g.delta, Qt::AlignRight | Qt::AlignVCenter,
                   std::isfinite(c.integratedLUFS) ? signedOneDecimal(c.integratedLUFS - c.targetLUFS) + QStringLiteral(" LU")
                                                   : QStringLiteral("—"));
        p.setPen(c.truePeakOK ? theme::ledGreen : theme::zoneRed);
        p.drawText(g.peak, Qt::AlignRight | Qt::AlignVCenter,
                   (c.truePeakOK ? okMark : warnMark) + QStringLiteral(" TP ") + signedOneDecimal(c.truePeakDBTP - c.ceilingDBTP));
    }
}

// --- DiagnosisSection -------------------------------------------------------------------------------

DiagnosisSection::DiagnosisSection(Model& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(8);

    conformityPanel_ = new StudioPanel(QStringLiteral("CONFORMITÉ INSTANTANÉE"), this);
    auto* conformity = new QHBoxLayout(conformityPanel_);
    conformity->setContentsMargins(0, 0, 0, 0);
    summary_ = new QLabel(conformityPanel_);
    summary_->setFont(theme::bodyFont());
    summary_->setWordWrap(true);
    count_ = new QLabel(conformityPanel_);
    count_->setFont(theme::monoFont(18, true));
    conformityOrigin_ = new OriginBadge(model, false, conformityPanel_);
    conformityPanel_->setHeaderWidget(conformityOrigin_);
    conformity->addWidget(summary_, 1);
    conformity->addWidget(count_);
    outer->addWidget(conformityPanel_);

    diagnosisPanel_ = new StudioPanel(QStringLiteral("DIAGNOSTIC MULTI-NORME"), this);
    diagnosisOrigin_ = new OriginBadge(model, false, diagnosisPanel_);
    diagnosisPanel_->setHeaderWidget(diagnosisOrigin_);
    auto* diagnosis = new QVBoxLayout(diagnosisPanel_);
    diagnosis->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(diagnosisPanel_);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* content = new QWidget;
    auto* contentLayout = new QVBoxLayout(content);
    contentLayout->setContentsMargins(0, 0, 0, 0);
    list_ = new NormListView(content);
    empty_ = makeNote(QStringLiteral("Le diagnostic apparaît une fois le fichier mesuré."), content);
    contentLayout->addWidget(empty_);
    contentLayout->addWidget(list_);
    contentLayout->addStretch();
    scroll->setWidget(content);  // which turns its background on: off again, the panel shows through
    content->setAutoFillBackground(false);
    scroll->viewport()->setAutoFillBackground(false);
    diagnosis->addWidget(scroll);
    outer->addWidget(diagnosisPanel_, 1);

    for (auto signal : {&Model::selectedIDChanged, &Model::presetIndexChanged, &Model::showsMasterChanged})
        connect(&model, signal, this, &DiagnosisSection::refresh);
    connect(&model, &Model::itemChanged, this, [this](const QUuid& id) {
        if (model_.selectedID() == id) refresh();
    });
    refresh();
}

void DiagnosisSection::refresh() {
    const FileItem* item = model_.selectedItem();
    // The source's diagnosis, or the last master's when the measures show it.
    const auto checks = shownDiagnosis(model_);
    const bool measured = item && item->measured && !checks.empty();
    if (measured) {
        const bool master = storedOrigin(model_) == FigureOrigin::master;
        summary_->setText((master ? QStringLiteral("Le dernier master : %1 normes mondiales respectées sur %2")
                                  : QStringLiteral("Le fichier sans aucune retouche : %1 normes mondiales déjà respectées sur %2"))
                              .arg(conformCount(checks))
                              .arg(checks.size()));
        count_->setText(QStringLiteral("%1 / %2").arg(conformCount(checks)).arg(checks.size()));
        setTextColour(count_, conformCount(checks) > 0 ? theme::ledGreen : theme::zoneAmber);
        list_->setChecks(checks, model_.presetIndex());
    } else {
        summary_->setText(item ? QStringLiteral("En attente de la mesure du fichier.")
                               : QStringLiteral("Sélectionnez un fichier pour voir les mesures"));
        count_->clear();
        list_->setChecks({}, model_.presetIndex());
    }
    list_->setVisible(measured);
    empty_->setVisible(!measured);
    setTextColour(summary_, measured ? theme::textPrimary : theme::textSecondary);
}

}  // namespace velmora::window
