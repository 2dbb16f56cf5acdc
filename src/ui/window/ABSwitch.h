#pragma once
// The transport's A/B switch: two letters side by side, the lit one being what is heard, A the
// source at the processed side's loudness, B the chain's output. A click (or the A key, see
// SpaceBarFilter) flips it; the model does the switching.
#include <QAbstractButton>

namespace velmora::window {

class ABSwitch : public QAbstractButton {
    Q_OBJECT
public:
    explicit ABSwitch(QWidget* parent = nullptr);
    // true: A, the source, is heard.
    void setSourceHeard(bool source);
    bool sourceHeard() const { return source_; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    bool source_ = true;
};

}  // namespace velmora::window
