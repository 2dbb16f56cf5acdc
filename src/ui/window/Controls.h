#pragma once
// Small controls the window's sections share: icon buttons for the transport and the bins, the
// READY/LIVE switch, a labelled slider with its reading, a reading that seeks when clicked, and
// the helpers that make captions, notes and picker menus look alike everywhere.
#include <QAbstractButton>
#include <QLabel>
#include <QPointer>
#include <QVariant>
#include <functional>
#include <vector>

#include "ui/ValueBadge.h"
#include "ui/ValueEntry.h"
#include "ui/window/Icons.h"

class QPushButton;
class QSlider;

namespace velmora {

class StudioMenuPicker;

namespace window {

// A square flat button showing one symbol; `lit` draws it in the accent, as a running transport.
class IconButton : public QAbstractButton {
    Q_OBJECT
public:
    IconButton(Icon icon, const QString& name, QWidget* parent = nullptr);
    void setIcon(Icon icon);
    void setLit(bool lit);
    Icon icon() const { return icon_; }
    QSize sizeHint() const override { return QSize(side_, side_); }
    void setSide(int side);

protected:
    void paintEvent(QPaintEvent*) override;
    void enterEvent(QEnterEvent*) override { update(); }
    void leaveEvent(QEvent*) override { update(); }

private:
    Icon icon_;
    bool lit_ = false;
    int side_ = 30;
};

// The live switch of the transport: "READY" when idle, "LIVE" glowing red while live mastering
// runs. A click asks to switch (clicked()); the caller shows the outcome with setLive().
class LiveSwitch : public QAbstractButton {
    Q_OBJECT
public:
    explicit LiveSwitch(QWidget* parent = nullptr);
    void setLive(bool live);
    bool isLive() const { return live_; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    bool live_ = false;
};

// A caption and its reading on one line, a slider under them. Values are doubles on a grid of
// `step`; valueEdited() reports the user's moves, setValue() shows a value and says nothing.
// Enter on the slider, or a right-click, opens a field over the reading to type the value; its
// unit is what `format` writes after the number.
class LabeledSlider : public QWidget {
    Q_OBJECT
public:
    LabeledSlider(const QString& caption, double low, double high, double step,
                  std::function<QString(double)> format, QWidget* parent = nullptr);
    void setValue(double value);
    double value() const;
    QSlider* slider() const { return slider_; }
    QString readingText() const;
    StepScale scale() const;
    ValueEntry* entryField() const { return entry_; }
    void openEntry();

signals:
    void valueEdited(double value);

protected:
    bool eventFilter(QObject* watched, QEvent* e) override;
    void contextMenuEvent(QContextMenuEvent*) override;

private:
    void showValue(double value);

    QString caption_;
    QLabel* reading_;
    QSlider* slider_;
    double low_, high_, step_;
    std::function<QString(double)> format_;
    QPointer<ValueEntry> entry_;
};

// A reading that takes the listener to where it was measured: a click (or Enter with focus)
// reports activated() when a position is known.
class SeekBadge : public ValueBadge {
    Q_OBJECT
public:
    SeekBadge(const QString& label, QWidget* parent = nullptr);
    void setSeekable(bool seekable);
    bool seekable() const { return seekable_; }

signals:
    void activated();

protected:
    void mousePressEvent(QMouseEvent*) override;
    void keyPressEvent(QKeyEvent*) override;

private:
    bool seekable_ = false;
};

// One line of text that changes often (progress, the status line): drawn shortened with an
// ellipsis when it is too long, and a new text repaints the line alone, where a QLabel would
// have the window laid out again.
class TextLine : public QWidget {
    Q_OBJECT
public:
    explicit TextLine(QWidget* parent = nullptr);
    void setText(const QString& text);
    const QString& text() const { return text_; }
    void setColor(const QColor& color);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QString text_;
    QColor color_;
};

// A control under the pointer of a scrolling column turns with the wheel only once it has focus
// (a click or Tab): before that the wheel scrolls the column, so that no setting changes while
// the user only meant to scroll past it.
void wheelOnlyWithFocus(QWidget* control);

// A caption in small capitals (the panels' sub-headings), a note in the secondary colour that
// wraps, and a secondary push button.
// Sets the colour a label or line draws its text in (its palette's WindowText); nothing when it
// is already that colour.
void setTextColour(QWidget* widget, const QColor& colour);
QLabel* makeCaption(const QString& text, QWidget* parent = nullptr);
QLabel* makeNote(const QString& text, QWidget* parent = nullptr);
QPushButton* makeButton(const QString& text, QWidget* parent = nullptr);

struct PickerOption {
    QString label;
    QVariant value;
};
// Fills the picker's menu with the options; choosing one calls `chosen` with its value.
void fillPicker(StudioMenuPicker* picker, const std::vector<PickerOption>& options,
                const std::function<void(const QVariant&)>& chosen);

// The style sheet of the stock widgets placed between the studio components (buttons, text
// fields, sliders, progress bars, scroll bars, menus), in the studio palette.
QString stockWidgetStyle();

}  // namespace window
}  // namespace velmora
