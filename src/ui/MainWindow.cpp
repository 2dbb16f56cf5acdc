#include "ui/MainWindow.h"

#include <QApplication>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QSplitter>
#include <QVBoxLayout>

#include "model/Model.h"
#include "ui/EQCurveGraphView.h"
#include "ui/StudioTheme.h"
#include "ui/window/ActionBar.h"
#include "ui/window/ChainSection.h"
#include "ui/window/Controls.h"
#include "ui/window/DiagnosisSection.h"
#include "ui/window/FileListSection.h"
#include "ui/window/HeaderSection.h"
#include "ui/window/HistorySection.h"
#include "ui/window/MeasuresSection.h"
#include "ui/window/MultiMasterSection.h"
#include "ui/window/NormSection.h"
#include "ui/window/OutputSection.h"
#include "ui/window/PresetsSection.h"
#include "ui/window/SpaceBarFilter.h"
#include "ui/window/TransportSection.h"

namespace velmora {

namespace {

const char* const columnsKey = "Velmora_window/columns";

QStringList localPaths(const QMimeData* mime) {
    QStringList paths;
    if (!mime) return paths;
    for (const QUrl& url : mime->urls())
        if (url.isLocalFile()) paths << url.toLocalFile();
    return paths;
}

QVBoxLayout* column(QWidget* w, int spacing = 10) {
    auto* layout = new QVBoxLayout(w);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    return layout;
}

// A part of a column that scrolls inside it when the window is too short for it, and fills it
// when the window is tall; the panels show through. It asks for the width its content needs
// and room for its scroll bar, so the columns beside it give way before its content is cut.
class ColumnScroll : public QScrollArea {
public:
    explicit ColumnScroll(QWidget* content) {
        setWidgetResizable(true);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setFrameShape(QFrame::NoFrame);
        setWidget(content);  // which turns its background on: off again
        viewport()->setAutoFillBackground(false);
        content->setAutoFillBackground(false);
        content->installEventFilter(this);
    }
    QSize minimumSizeHint() const override { return QSize(needed(widget()->minimumSizeHint().width()), 120); }
    QSize sizeHint() const override {
        const QSize content = widget()->sizeHint();
        return QSize(needed(content.width()), content.height());
    }

protected:
    bool eventFilter(QObject* watched, QEvent* e) override {
        // The content's needs changed (a panel shown, a longer text): the splitter asks again.
        if (watched == widget() && e->type() == QEvent::LayoutRequest) updateGeometry();
        return QScrollArea::eventFilter(watched, e);
    }

private:
    int needed(int content) const { return content + verticalScrollBar()->sizeHint().width(); }
};

}  // namespace

MainWindow::MainWindow(Model& model, QWidget* parent) : QMainWindow(parent), model_(model) {
    setWindowTitle(QStringLiteral("Velmora"));
    setObjectName(QStringLiteral("VelmoraMainWindow"));
    setMinimumSize(smallestSize);
    resize(preferredSize);
    // A screen smaller than that (a laptop's 1280 × 720) gets a window its size.
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QSize room = screen->availableGeometry().size();
        if (room.width() >= smallestSize.width() && room.height() >= smallestSize.height())
            resize(preferredSize.boundedTo(room));
    }
    setPalette(theme::studioPalette());
    setStyleSheet(window::stockWidgetStyle());
    setAcceptDrops(true);

    auto* central = new QWidget(this);
    auto* layout = column(central, 0);
    columns_ = new QSplitter(Qt::Horizontal, central);
    columns_->setChildrenCollapsible(false);
    columns_->setHandleWidth(6);
    columns_->addWidget(makeLeftColumn());
    columns_->addWidget(makeCentreColumn());
    columns_->addWidget(makeRightColumn());
    columns_->setStretchFactor(0, 0);
    columns_->setStretchFactor(1, 1);
    columns_->setStretchFactor(2, 0);
    columns_->setSizes({310, 770, 520});
    arrangeColumns();
    auto* frame = new QWidget(central);
    auto* framed = column(frame, 0);
    framed->setContentsMargins(10, 10, 10, 10);
    framed->addWidget(columns_);
    layout->addWidget(frame, 1);
    actions_ = new window::ActionBar(model, central);
    layout->addWidget(actions_);
    setCentralWidget(central);

    spaceBar_ = new window::SpaceBarFilter(model, this);
    qApp->installEventFilter(spaceBar_);

    liveTimer_.setInterval(liveIntervalMS);
    connect(&liveTimer_, &QTimer::timeout, this, &MainWindow::refreshLive);
    connect(&model, &Model::isPlaybackPlayingChanged, this, &MainWindow::listeningChanged);
    connect(&model, &Model::isLiveMasteringChanged, this, &MainWindow::listeningChanged);
    // Seeks and stops while nothing plays move the cursor once; the timer does it while playing.
    connect(&model, &Model::playbackTick, this, [this] {
        if (liveTimer_.isActive()) return;
        transport_->showPosition();
        history_->showPosition();
    });
    connect(&model, &Model::modeChanged, this, &MainWindow::modeChanged);
    modeChanged();
    listeningChanged();
    // Focus starts on the list, or on the window while the list is empty: never on a field,
    // where the space bar would type instead of playing.
    central->setFocusPolicy(Qt::ClickFocus);
    if (model.queue().empty()) central->setFocus();
    else fileList_->rows()->setFocus();
}

MainWindow::~MainWindow() {
    liveTimer_.stop();
    if (qApp) qApp->removeEventFilter(spaceBar_);
}

// The header stays; the session and the side tabs scroll below it on a short screen.
QWidget* MainWindow::makeLeftColumn() {
    leftColumn_ = new QWidget;
    leftLayout_ = column(leftColumn_);
    header_ = new window::HeaderSection(leftColumn_);
    auto* content = new QWidget;
    sessionLayout_ = column(content);
    fileList_ = new window::FileListSection(model_, content);
    presets_ = new window::PresetsSection(model_, content);
    presets_->setMinimumHeight(280);
    sessionLayout_->addWidget(fileList_, 1);
    sessionLayout_->addWidget(presets_, 1);
    sessionScroll_ = new ColumnScroll(content);
    leftLayout_->addWidget(header_);
    leftLayout_->addWidget(sessionScroll_, 1);
    return leftColumn_;
}

// The measures stay, and grow with the window; the waveform, the history and the diagnosis
// scroll below them on a short screen.
QWidget* MainWindow::makeCentreColumn() {
    auto* centre = new QWidget;
    auto* layout = column(centre);
    measures_ = new window::MeasuresSection(model_, centre);
    auto* content = new QWidget;
    fileLayout_ = column(content);
    transport_ = new window::TransportSection(model_, content);
    history_ = new window::HistorySection(model_, content);
    history_->setMinimumHeight(190);
    diagnosis_ = new window::DiagnosisSection(model_, content);
    fileLayout_->addWidget(transport_);
    fileLayout_->addWidget(history_, 3);
    fileLayout_->addWidget(diagnosis_, 2);
    fileScroll_ = new ColumnScroll(content);
    // A third of a tall column: the meters grow on a large screen, and on a usual one the
    // waveform and the history keep the room they had.
    layout->addWidget(measures_, 1);
    layout->addWidget(fileScroll_, 2);
    return centre;
}

QWidget* MainWindow::makeRightColumn() {
    auto* content = new QWidget;
    auto* layout = column(content);
    layout->setContentsMargins(0, 0, 10, 0);  // room for the scroll bar
    norm_ = new window::NormSection(model_, content);
    chain_ = new window::ChainSection(model_, content);
    output_ = new window::OutputSection(model_, content);
    multiMaster_ = new window::MultiMasterSection(model_, content);
    layout->addWidget(norm_);
    layout->addWidget(chain_);
    layout->addWidget(output_);
    layout->addWidget(multiMaster_);
    layout->addStretch(1);
    settingsScroll_ = new ColumnScroll(content);
    rightColumn_ = new QWidget;
    rightLayout_ = column(rightColumn_);
    rightLayout_->addWidget(settingsScroll_, 1);
    return rightColumn_;
}

void MainWindow::saveLayout(QSettings& settings) const {
    // Two columns are a small screen's arrangement: the three as they were are kept.
    settings.setValue(columnsKey, compact_ ? wideState_ : columns_->saveState());
}

void MainWindow::restoreLayout(QSettings& settings) {
    const QByteArray state = settings.value(columnsKey).toByteArray();
    if (state.isEmpty()) return;
    if (compact_) wideState_ = state;
    else columns_->restoreState(state);
}

void MainWindow::resizeEvent(QResizeEvent* e) {
    QMainWindow::resizeEvent(e);
    arrangeColumns();
}

void MainWindow::arrangeColumns() {
    // Below this width three columns leave the centre too little room: the header goes above
    // the settings, the session and the side tabs into the centre's scrolling part.
    const bool compact = width() < compactBelowWidth;
    if (compact == compact_) return;
    if (compact) wideState_ = columns_->saveState();
    compact_ = compact;
    if (compact) {
        rightLayout_->insertWidget(0, header_);
        fileLayout_->insertWidget(0, fileList_);
        fileLayout_->addWidget(presets_);
        leftColumn_->hide();
    } else {
        leftLayout_->insertWidget(0, header_);
        sessionLayout_->addWidget(fileList_, 1);
        sessionLayout_->addWidget(presets_, 1);
        leftColumn_->show();
        if (!wideState_.isEmpty()) columns_->restoreState(wideState_);
    }
}

void MainWindow::modeChanged() {
    // The chain keeps its settings while hidden; switching back shows them as they were.
    chain_->setVisible(model_.mode() == ProcessMode::master);
}

void MainWindow::listeningChanged() {
    const bool playing = model_.isPlaybackPlaying() || model_.isLiveMastering();
    if (playing) {
        if (!liveTimer_.isActive()) liveTimer_.start();
        refreshLive();
        return;
    }
    liveTimer_.stop();
    measures_->showLive(std::nullopt);
    transport_->showPosition();
    history_->showPosition();
    if (const FileItem* item = model_.selectedItem()) chain_->equaliserGraph()->setSpectrum(item->spectrumBins);
}

void MainWindow::refreshLive() {
    measures_->showLive(model_.liveLevels());
    transport_->showPosition();
    history_->showPosition();
    // The spectrum costs an FFT: only for a graph someone can see.
    EQCurveGraphView* eq = chain_->equaliserGraph();
    if (eq->isVisible() && !eq->visibleRegion().isEmpty()) eq->setSpectrum(model_.displaySpectrum());
}

void MainWindow::dragEnterEvent(QDragEnterEvent* e) {
    if (localPaths(e->mimeData()).isEmpty()) return e->ignore();
    e->acceptProposedAction();
    fileList_->setDragOver(true);
}

void MainWindow::dragMoveEvent(QDragMoveEvent* e) {
    if (localPaths(e->mimeData()).isEmpty()) return e->ignore();
    e->acceptProposedAction();
}

void MainWindow::dragLeaveEvent(QDragLeaveEvent*) { fileList_->setDragOver(false); }

void MainWindow::dropEvent(QDropEvent* e) {
    fileList_->setDragOver(false);
    const QStringList paths = localPaths(e->mimeData());
    if (paths.isEmpty()) return e->ignore();
    e->acceptProposedAction();
    model_.addDropped(paths);
}

void MainWindow::keyPressEvent(QKeyEvent* e) {
    // Reaches the window when the focused control has no use for the key (a knob takes Home
    // and End for its own range, a text field for its cursor).
    if (e->modifiers() == Qt::NoModifier && (e->key() == Qt::Key_Home || e->key() == Qt::Key_End)) {
        if (!model_.busy() && model_.selectedItem()) model_.seekPlayback(e->key() == Qt::Key_Home ? 0.0 : 1.0);
        return;
    }
    QMainWindow::keyPressEvent(e);
}

}  // namespace velmora
