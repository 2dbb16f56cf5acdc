#pragma once
// Sections 2 and 3 of the window: the session's files with their counters and progress, and the
// drop zone that stands in for the list while the queue is empty.
#include <QAbstractScrollArea>
#include <QUuid>
#include <QWidget>
#include <optional>

class QProgressBar;
class QPushButton;
class QStackedWidget;

namespace velmora {

class Model;
class StudioPanel;

namespace window {

// One row per queued file (`FileRowView`): name, video marker, info line, status in its colour.
// A click selects the file; Up and Down move the selection, Delete removes it when nothing runs.
class FileRowsView : public QAbstractScrollArea {
    Q_OBJECT
public:
    static constexpr int rowHeight = 50;

    explicit FileRowsView(Model& model, QWidget* parent = nullptr);
    // Where row `index` is drawn, in viewport coordinates.
    QRect rowRect(int index) const;
    void queueChanged();
    void selectionChanged();

protected:
    void paintEvent(QPaintEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void leaveEvent(QEvent*) override;
    void keyPressEvent(QKeyEvent*) override;
    void resizeEvent(QResizeEvent*) override;

private:
    int rowAt(int y) const;
    int selectedRow() const;
    void updateScrollRange();

    Model& model_;
    int hovered_ = -1;
};

// The large target shown while nothing is queued; it lights up while a drag hovers the window.
class TextLine;

class DropZone : public QWidget {
    Q_OBJECT
public:
    explicit DropZone(QWidget* parent = nullptr);
    void setHighlighted(bool on);
    bool highlighted() const { return highlighted_; }
    QSize minimumSizeHint() const override { return QSize(200, 160); }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    bool highlighted_ = false;
};

class FileListSection : public QWidget {
    Q_OBJECT
public:
    explicit FileListSection(Model& model, QWidget* parent = nullptr);

    StudioPanel* panel() const { return panel_; }
    FileRowsView* rows() const { return rows_; }
    DropZone* dropZone() const { return dropZone_; }
    QPushButton* removeButton() const { return remove_; }
    QPushButton* clearButton() const { return clear_; }
    TextLine* progressLabel() const { return progressLabel_; }
    QProgressBar* progressBar() const { return progressBar_; }
    void setDragOver(bool on);

private:
    void refreshQueue();
    // Asks before the whole session goes: true when the user chose "Vider".
    bool confirmClear();
    void refreshProgress();
    void refreshBusy();

    Model& model_;
    StudioPanel* panel_;
    QPushButton* remove_;
    QPushButton* clear_;
    TextLine* progressLabel_;
    QProgressBar* progressBar_;
    QStackedWidget* stack_;
    FileRowsView* rows_;
    DropZone* dropZone_;
};

}  // namespace window
}  // namespace velmora
