#include "ui/window/UndoHistory.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QRegularExpression>
#include <QScopedValueRollback>
#include <QUndoCommand>
#include <utility>
#include <variant>

#include "model/Model.h"

namespace velmora::window {

namespace {

const QString chainKey = QStringLiteral("chain");

// A value that moves in steps (a gain, a frequency): a drag through it is one step. A switch is
// never merged, even with itself: two clicks are two steps.
bool onlyContinuousFields(const MasterParams& a, const MasterParams& b) {
    for (const MasterParamsField& f : masterParamsFields)
        if (const auto* flag = std::get_if<bool MasterParams::*>(&f.member); flag && a.**flag != b.**flag) return false;
    return true;
}

class SettingsStep : public QUndoCommand {
public:
    SettingsStep(UndoHistory& history, QString key, const QString& name, bool continuous, quint64 gesture,
                 UndoableSettings before, UndoableSettings after)
        : QUndoCommand(name), history_(history), key_(std::move(key)), continuous_(continuous), gesture_(gesture),
          before_(std::move(before)), after_(std::move(after)) {}

    int id() const override { return 1; }

    bool mergeWith(const QUndoCommand* other) override {
        const auto* next = static_cast<const SettingsStep*>(other);
        if (!continuous_ || !next->continuous_ || next->key_ != key_ || next->gesture_ != gesture_) return false;
        after_ = next->after_;
        if (key_ == chainKey) setText(history_.chainStepName(before_.mp, after_.mp));
        // A drag that ends where it began changed nothing.
        setObsolete(before_ == after_);
        return true;
    }

    void undo() override { history_.restore(after_, before_); }
    void redo() override {
        // The change was made before the step was pushed.
        if (done_) history_.restore(before_, after_);
        done_ = true;
    }

private:
    UndoHistory& history_;
    QString key_;
    bool continuous_;
    quint64 gesture_;
    UndoableSettings before_, after_;
    bool done_ = false;
};

}  // namespace

UndoHistory& UndoHistory::of(Model& model) {
    if (auto* h = model.findChild<UndoHistory*>(QString(), Qt::FindDirectChildrenOnly)) return *h;
    return *new UndoHistory(model);
}

UndoHistory::UndoHistory(Model& model) : QObject(&model), model_(model), lastMp_(model.mp()) {
    connect(&model, &Model::mpChanged, this, &UndoHistory::chainChanged);
    if (auto* app = QCoreApplication::instance()) app->installEventFilter(this);
}

bool UndoHistory::eventFilter(QObject*, QEvent* event) {
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick: ++gesture_; break;
    case QEvent::KeyPress:
        // A held arrow key repeats: one gesture until it is let go.
        if (!static_cast<QKeyEvent*>(event)->isAutoRepeat()) ++gesture_;
        break;
    default: break;
    }
    return false;
}

UndoableSettings UndoHistory::snapshot() const {
    const Model& m = model_;
    return {m.mp(),         m.presetIndex(), m.target(),    m.ceiling(),    m.mode(),      m.gatingMode(),
            m.layout(),     m.channelOrder(), m.outputRate(), m.bitDepth(), m.fileFormat(), m.exportLog(),
            m.exportPDF(), m.album()};
}

void UndoHistory::record(const QString& key, const QString& name, bool continuous, const std::function<void()>& change) {
    if (restoring_) return change();
    const UndoableSettings before = snapshot();
    {
        const QScopedValueRollback guard(recording_, true);
        change();
    }
    const UndoableSettings after = snapshot();
    if (!(before == after)) push(key, name, continuous, before, after);
}

void UndoHistory::chainChanged() {
    const MasterParams before = std::exchange(lastMp_, model_.mp());
    if (restoring_ || recording_ || before == lastMp_) return;
    UndoableSettings was = snapshot();
    const UndoableSettings now = was;
    was.mp = before;
    push(chainKey, chainStepName(before, lastMp_), onlyContinuousFields(before, lastMp_), was, now);
}

void UndoHistory::push(const QString& key, const QString& name, bool continuous, const UndoableSettings& before,
                       const UndoableSettings& after) {
    stack_.push(new SettingsStep(*this, key, name, continuous, gesture_, before, after));
}

void UndoHistory::nameChainField(std::string_view key, QPointer<QWidget> control, std::function<QString()> name) {
    fieldNames_[key] = {std::move(control), std::move(name)};
}

QString UndoHistory::chainStepName(const MasterParams& before, const MasterParams& after) const {
    QStringList names;
    for (const MasterParamsField& f : masterParamsFields) {
        const bool changed = std::visit([&](auto member) { return before.*member != after.*member; }, f.member);
        if (!changed) continue;
        const auto named = fieldNames_.find(f.key);
        if (named == fieldNames_.end() || !named->second.control) return QStringLiteral("Chaîne de mastering");
        names << stepName(named->second.name());
    }
    if (names.size() == 1) return names.front();
    // Two values one gesture moves together: a point of the equaliser's graph.
    if (names.size() == 2) return names.join(QStringLiteral(", "));
    return QStringLiteral("Chaîne de mastering");
}

void UndoHistory::restore(const UndoableSettings& from, const UndoableSettings& to) {
    const QScopedValueRollback guard(restoring_, true);
    Model& m = model_;
    if (!(from.mp == to.mp)) {
        // Field by field onto the current chain: a step puts back only what it changed.
        MasterParams p = m.mp();
        for (const MasterParamsField& f : masterParamsFields)
            std::visit(
                [&](auto member) {
                    if (from.mp.*member != to.mp.*member) p.*member = to.mp.*member;
                },
                f.member);
        m.setMp(p);
        lastMp_ = m.mp();
    }
    UndoableSettings fromRest = from, toRest = to;
    fromRest.mp = toRest.mp = {};
    if (fromRest == toRest) return;
    if (from.presetIndex != to.presetIndex) {
        // A norm sets the target, the ceiling and the gating: theirs come back after it.
        m.applyPreset(to.presetIndex);
        m.setTarget(to.target);
        m.setCeiling(to.ceiling);
        m.setGatingMode(to.gating);
    }
    if (from.target != to.target) m.setTarget(to.target);
    if (from.ceiling != to.ceiling) m.setCeiling(to.ceiling);
    if (from.gating != to.gating) m.setGatingMode(to.gating);
    if (from.mode != to.mode) m.setMode(to.mode);
    if (from.layout != to.layout) m.setLayout(to.layout);
    if (from.order != to.order) m.setChannelOrder(to.order);
    if (from.outputRate != to.outputRate) m.setOutputRate(to.outputRate);
    if (from.depth != to.depth) m.setBitDepth(to.depth);
    if (from.format != to.format) m.setFileFormat(to.format);
    if (from.exportLog != to.exportLog) m.setExportLog(to.exportLog);
    if (from.exportPDF != to.exportPDF) m.setExportPDF(to.exportPDF);
    if (from.album != to.album) m.setAlbum(to.album);
    m.saveSettings();
}

QString stepName(const QString& caption) {
    if (caption != caption.toUpper()) return caption;
    static const QStringList acronyms{QStringLiteral("RBJ"), QStringLiteral("HPF"), QStringLiteral("LRA"),
                                      QStringLiteral("LU"),  QStringLiteral("EQ"),  QStringLiteral("Q"),
                                      QStringLiteral("TP")};
    static const QRegularExpression word(QStringLiteral("\\w+"), QRegularExpression::UseUnicodePropertiesOption);
    QString out = caption;
    for (auto it = word.globalMatch(caption); it.hasNext();) {
        const auto match = it.next();
        if (!acronyms.contains(match.captured())) out.replace(match.capturedStart(), match.capturedLength(), match.captured().toLower());
    }
    // A sentence starts with a capital; "5 bandes" starts with its figure.
    if (!out.isEmpty() && out[0].isLetter()) out[0] = out[0].toUpper();
    return out;
}

}  // namespace velmora::window
