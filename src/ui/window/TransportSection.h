#pragma once
// Section 6 of the window: the selected file's waveform with the play position (a click or a
// drag seeks), and under it the transport, the clock, "LECTURE" (or "Aucune sortie audio" when
// there is nowhere to play), the loudness at the playhead while the file plays, the A/B switch
// and the READY/LIVE switch.
#include <QWidget>

class QLabel;

namespace velmora {

class Model;
class StudioPanel;
class WaveformView;

namespace window {

class ABSwitch;
class IconButton;
class LiveSwitch;

class TransportSection : public QWidget {
    Q_OBJECT
public:
    explicit TransportSection(Model& model, QWidget* parent = nullptr);

    // The play position, the clock and the playing state; called by the window's 50 ms timer
    // and after a seek or a stop.
    void showPosition();

    WaveformView* waveform() const { return waveform_; }
    IconButton* toStartButton() const { return toStart_; }
    IconButton* stopButton() const { return stop_; }
    IconButton* playButton() const { return play_; }
    IconButton* toEndButton() const { return toEnd_; }
    LiveSwitch* liveSwitch() const { return live_; }
    ABSwitch* abSwitch() const { return ab_; }
    QLabel* clock() const { return clock_; }
    QLabel* playingLabel() const { return lecture_; }
    QLabel* playheadLoudness() const { return loudness_; }

private:
    void refreshFile();
    void refreshState();

    Model& model_;
    StudioPanel* panel_;
    WaveformView* waveform_;
    IconButton *toStart_, *stop_, *play_, *toEnd_;
    QLabel* clock_;
    QLabel* lecture_;
    QLabel* loudness_;
    ABSwitch* ab_;
    LiveSwitch* live_;
};

}  // namespace window
}  // namespace velmora
