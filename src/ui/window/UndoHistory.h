#pragma once
// The window's undo history: every change of the chain, the norm and the output settings, one
// step per gesture (a knob dragged from press to release is one step, however many values it
// passed through). Steps are undone and redone through the model's own setters, so the live
// streamer, the controls and the stored settings follow an undo as they follow any change.
// [main thread]
//
// Chain changes are kept however they were made (knobs, switches, graphs): the history watches
// the model's chain. Norm and output changes, and whole-chain loads, are kept by their section
// through record(), which names them and groups the several fields one choice sets.
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUndoStack>
#include <QWidget>
#include <functional>
#include <map>
#include <string_view>

#include "audio/ChannelLayout.h"
#include "mastering/MasterParams.h"
#include "norms/Presets.h"
#include "output/OutputFormat.h"

namespace velmora {

class Model;

namespace window {

// Everything a step may change, as the model holds it.
struct UndoableSettings {
    MasterParams mp;
    int presetIndex = 0;
    double target = 0, ceiling = 0;
    ProcessMode mode = ProcessMode::master;
    GatingMode gating = GatingMode::autoMode;
    ChannelLayout layout = ChannelLayout::autoDetect;
    ChannelOrder order = ChannelOrder::smpte;
    double outputRate = 0;
    BitDepth depth = BitDepth::int24;
    FileFormat format = FileFormat::wav;
    bool exportLog = false, exportPDF = false, album = false;

    bool operator==(const UndoableSettings&) const = default;
};

class UndoHistory : public QObject {
    Q_OBJECT
public:
    // The model's history, made on first use: the window's sections and the menus share it
    // through the model they share.
    static UndoHistory& of(Model& model);

    QUndoStack& stack() { return stack_; }

    // Runs `change` (one user action) and keeps what it changed as one step titled `name`.
    // Steps of one `continuous` control (a slider) within one gesture become a single step.
    void record(const QString& key, const QString& name, bool continuous, const std::function<void()>& change);

    // How a chain step names the field stored under `key` (masterParamsFields): the text of the
    // control that shows it, read when the step is made.
    void nameChainField(std::string_view key, QPointer<QWidget> control, std::function<QString()> name);

    // Puts the fields that differ between `from` and `to` back to their values in `to`.
    void restore(const UndoableSettings& from, const UndoableSettings& to);
    // "Seuil", "Graves · gain", or the chain as a whole when several controls moved.
    QString chainStepName(const MasterParams& before, const MasterParams& after) const;

protected:
    // Counts gestures: a press, a release or a key starts a new one; moves and the wheel do not.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    explicit UndoHistory(Model& model);
    UndoableSettings snapshot() const;
    void chainChanged();
    void push(const QString& key, const QString& name, bool continuous, const UndoableSettings& before,
              const UndoableSettings& after);

    struct FieldName {
        QPointer<QWidget> control;
        std::function<QString()> name;
    };

    Model& model_;
    QUndoStack stack_;
    MasterParams lastMp_;  // the chain as of the last change seen
    quint64 gesture_ = 0;
    bool restoring_ = false, recording_ = false;
    std::map<std::string_view, FieldName> fieldNames_;
};

// A control's caption as a step's name: "SEUIL" reads "Seuil", "GRAVES · GAIN" "Graves · gain";
// acronyms keep their capitals and a caption already in sentence case stays as it is.
QString stepName(const QString& caption);

}  // namespace window
}  // namespace velmora
