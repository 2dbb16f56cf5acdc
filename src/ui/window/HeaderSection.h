#pragma once
// Section 1 of the window: the name set as a logo, the two lines of what Velmora measures and
// does, and the help button that opens the guide (`showGuide`).
#include <QDialog>
#include <QPointer>
#include <QWidget>

class QAbstractButton;

namespace velmora::window {

class HeaderSection : public QWidget {
    Q_OBJECT
public:
    explicit HeaderSection(QWidget* parent = nullptr);
    QAbstractButton* helpButton() const { return help_; }
    // The guide, once it has been opened; null before.
    QDialog* guide() const { return guide_; }
    void showGuide();

private:
    QAbstractButton* help_;
    QPointer<QDialog> guide_;
};

// The help sheet: how a session goes, in a few paragraphs.
QDialog* makeGuideSheet(QWidget* parent);

}  // namespace velmora::window
