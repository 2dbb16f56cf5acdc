#pragma once
// Section 11 of the window: the five chain panels in the order the signal meets them in the
// offline render's controls (five-band EQ, bus compressor, dynamics and target, tonal EQ,
// Mid/Side), each with its switch, knobs and graphs bound to `mp`.
#include <QWidget>

namespace velmora {

class CompCurveGraphView;
class EQCurveGraphView;
class GainReductionMeter;
class LedToggle;
class Model;
class SSLKnob;
class StudioPanel;

namespace window {

class ChainBinding;
class LabeledSlider;

class ChainSection : public QWidget {
    Q_OBJECT
public:
    explicit ChainSection(Model& model, QWidget* parent = nullptr);

    EQCurveGraphView* equaliserGraph() const { return eqGraph_; }
    CompCurveGraphView* compressorGraph() const { return compGraph_; }
    GainReductionMeter* reductionMeter() const { return reduction_; }
    StudioPanel* equaliserPanel() const { return eqPanel_; }
    StudioPanel* compressorPanel() const { return compPanel_; }
    StudioPanel* dynamicsPanel() const { return dynamicsPanel_; }
    StudioPanel* tonalPanel() const { return tonalPanel_; }
    StudioPanel* stereoPanel() const { return stereoPanel_; }
    // A knob of the chain by its accessible name ("GRAVES · GAIN", "SEUIL" …); null if none.
    SSLKnob* knobNamed(const QString& name) const;
    LedToggle* toggleNamed(const QString& name) const;

private:
    StudioPanel* makeEqualiser();
    StudioPanel* makeCompressor();
    StudioPanel* makeDynamics();
    StudioPanel* makeTonal();
    StudioPanel* makeStereo();
    void refreshItem();

    Model& model_;
    ChainBinding* binding_;
    EQCurveGraphView* eqGraph_ = nullptr;
    CompCurveGraphView* compGraph_ = nullptr;
    GainReductionMeter* reduction_ = nullptr;
    StudioPanel *eqPanel_, *compPanel_, *dynamicsPanel_, *tonalPanel_, *stereoPanel_;
};

}  // namespace window
}  // namespace velmora
