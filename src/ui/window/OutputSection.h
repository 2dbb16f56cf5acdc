#pragma once
// Section 12 of the window: how files are measured (gating, channel format and 5.1 order) and
// how masters are written (rate, bit depth, container, reports, album mode).
#include <QWidget>

class QLabel;

namespace velmora {

class LedToggle;
class Model;
class StudioMenuPicker;

namespace window {

class OutputSection : public QWidget {
    Q_OBJECT
public:
    explicit OutputSection(Model& model, QWidget* parent = nullptr);

    StudioMenuPicker* gatingPicker() const { return gating_; }
    StudioMenuPicker* layoutPicker() const { return layout_; }
    StudioMenuPicker* orderPicker() const { return order_; }
    StudioMenuPicker* ratePicker() const { return rate_; }
    StudioMenuPicker* depthPicker() const { return depth_; }
    StudioMenuPicker* formatPicker() const { return format_; }
    LedToggle* textReportToggle() const { return textReport_; }
    LedToggle* pdfReportToggle() const { return pdfReport_; }
    LedToggle* albumToggle() const { return album_; }
    QLabel* dialogueNote() const { return dialogueNote_; }

private:
    void refresh();
    void refillGating();

    Model& model_;
    StudioMenuPicker *gating_, *layout_, *order_, *rate_, *depth_, *format_;
    LedToggle *textReport_, *pdfReport_, *album_;
    QLabel* dialogueNote_;
};

}  // namespace window
}  // namespace velmora
