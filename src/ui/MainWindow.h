#pragma once
// Velmora's main window: the session and the side tabs on the left, what the
// selected file is in the centre, what Velmora will do to it on the right (one scroll area),
// the actions and the status line across the bottom. It fits a small laptop screen: each column
// scrolls inside itself below what never scrolls (the header, the measures, the action bar); on
// a large screen the meters and the history take the room. Below `compactBelowWidth` the left
// column's parts join the other two. It reads the model and calls its actions;
// it holds no audio logic and no state beyond its own view state.
//
// The live parts (meters, play position, waveform cursor, live spectrum) redraw from one 50 ms
// timer that runs only while something plays; everything else follows the model's signals.
// The menu bar is left to the application shell.
#include <QMainWindow>
#include <QTimer>

class QSettings;
class QSplitter;
class QScrollArea;
class QVBoxLayout;

namespace velmora {

class Model;

namespace window {
class ActionBar;
class ChainSection;
class DiagnosisSection;
class FileListSection;
class HeaderSection;
class HistorySection;
class MeasuresSection;
class MultiMasterSection;
class NormSection;
class OutputSection;
class PresetsSection;
class SpaceBarFilter;
class TransportSection;
}  // namespace window

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    static constexpr int liveIntervalMS = 50;
    static constexpr QSize preferredSize{1600, 1000};
    static constexpr QSize smallestSize{1024, 640};
    static constexpr int compactBelowWidth = 1240;

    explicit MainWindow(Model& model, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The three columns; their positions are remembered by the shell under "Velmora_window/…".
    QSplitter* columns() const { return columns_; }
    void saveLayout(QSettings& settings) const;
    // Two columns rather than three: a narrow window.
    bool isCompact() const { return compact_; }
    void restoreLayout(QSettings& settings);

    // One frame of the live parts, as the timer draws it.
    void refreshLive();
    const QTimer& liveTimer() const { return liveTimer_; }

    window::HeaderSection* header() const { return header_; }
    window::FileListSection* fileList() const { return fileList_; }
    window::PresetsSection* sideTabs() const { return presets_; }
    window::MeasuresSection* measures() const { return measures_; }
    window::TransportSection* transport() const { return transport_; }
    window::DiagnosisSection* diagnosis() const { return diagnosis_; }
    window::HistorySection* history() const { return history_; }
    window::NormSection* norm() const { return norm_; }
    window::ChainSection* chain() const { return chain_; }
    window::OutputSection* output() const { return output_; }
    window::MultiMasterSection* multiMaster() const { return multiMaster_; }
    window::ActionBar* actions() const { return actions_; }
    QScrollArea* settingsColumn() const { return settingsScroll_; }
    // What scrolls under the header on the left and under the measures in the centre.
    QScrollArea* sessionColumn() const { return sessionScroll_; }
    QScrollArea* fileColumn() const { return fileScroll_; }

protected:
    void dragEnterEvent(QDragEnterEvent*) override;
    void dragMoveEvent(QDragMoveEvent*) override;
    void dragLeaveEvent(QDragLeaveEvent*) override;
    void dropEvent(QDropEvent*) override;
    void keyPressEvent(QKeyEvent*) override;
    void resizeEvent(QResizeEvent*) override;

private:
    QWidget* makeLeftColumn();
    QWidget* makeCentreColumn();
    QWidget* makeRightColumn();
    void arrangeColumns();
    void listeningChanged();
    void modeChanged();

    Model& model_;
    QSplitter* columns_;
    QScrollArea* settingsScroll_ = nullptr;
    QScrollArea* sessionScroll_ = nullptr;
    QScrollArea* fileScroll_ = nullptr;
    QWidget* leftColumn_ = nullptr;
    QWidget* rightColumn_ = nullptr;
    QVBoxLayout* leftLayout_ = nullptr;     // the header, then the session's scrolling part
    QVBoxLayout* sessionLayout_ = nullptr;  // the file list and the side tabs
    QVBoxLayout* fileLayout_ = nullptr;     // the centre's scrolling part
    QVBoxLayout* rightLayout_ = nullptr;    // the settings' scrolling part, under the header when compact
    bool compact_ = false;
    QByteArray wideState_;  // the three columns' positions while they are two
    window::HeaderSection* header_ = nullptr;
    window::FileListSection* fileList_ = nullptr;
    window::PresetsSection* presets_ = nullptr;
    window::MeasuresSection* measures_ = nullptr;
    window::TransportSection* transport_ = nullptr;
    window::DiagnosisSection* diagnosis_ = nullptr;
    window::HistorySection* history_ = nullptr;
    window::NormSection* norm_ = nullptr;
    window::ChainSection* chain_ = nullptr;
    window::OutputSection* output_ = nullptr;
    window::MultiMasterSection* multiMaster_ = nullptr;
    window::ActionBar* actions_ = nullptr;
    window::SpaceBarFilter* spaceBar_ = nullptr;
    QTimer liveTimer_;
};

}  // namespace velmora
