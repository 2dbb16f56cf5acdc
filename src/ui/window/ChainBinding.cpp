#include "ui/window/ChainBinding.h"

#include "mastering/ParamRanges.h"
#include "model/Model.h"
#include "ui/LedToggle.h"
#include "ui/SSLKnob.h"
#include "ui/window/Controls.h"
#include "ui/window/UndoHistory.h"

namespace velmora::window {

namespace {

// The name the field is stored under, which the undo history knows it by.
template <typename T>
std::string_view keyOf(T MasterParams::*field) {
    for (const MasterParamsField& f : masterParamsFields)
        if (const auto* member = std::get_if<T MasterParams::*>(&f.member); member && *member == field) return f.key;
    return {};
}

QString spokenName(const QWidget* control, const QString& caption) {
    return control->accessibleName().isEmpty() ? caption : control->accessibleName();
}

}  // namespace

ChainBinding::ChainBinding(Model& model, QObject* parent) : QObject(parent), model_(model) {
    // Made before the first change can reach it, so that every change is kept.
    UndoHistory::of(model);
    connect(&model, &Model::mpChanged, this, &ChainBinding::refresh);
}

void ChainBinding::edit(const std::function<void(MasterParams&)>& change) {
    MasterParams p = model_.mp();
    change(p);
    model_.setMp(p);
}

SSLKnob* ChainBinding::knob(double MasterParams::*field, const QString& label, const char* format,
                            const QString& unit, const QColor& colour, int size, QWidget* parent,
                            const QString& accessibleName) {
    const ParamRange range = *rangeOf(field);
    auto* k = new SSLKnob(label, range.low, range.high, format, unit, colour, size, parent);
    k->setDefaultValue(MasterParams{}.*field);
    k->setValue(model_.mp().*field);
    if (!accessibleName.isEmpty()) k->setAccessibleName(accessibleName);
    connect(k, &SSLKnob::valueEdited, this, [this, field](double v) { edit([&](MasterParams& p) { p.*field = v; }); });
    shows_.push_back([k, field](const MasterParams& p) { k->setValue(p.*field); });
    UndoHistory::of(model_).nameChainField(keyOf(field), k, [k] { return spokenName(k, k->label()); });
    return k;
}

LedToggle* ChainBinding::toggle(bool MasterParams::*field, const QString& label, QWidget* parent) {
    auto* t = new LedToggle(label, parent);
    t->setChecked(model_.mp().*field);
    connect(t, &QAbstractButton::clicked, this, [this, field](bool on) { edit([&](MasterParams& p) { p.*field = on; }); });
    shows_.push_back([t, field](const MasterParams& p) { t->setChecked(p.*field); });
    UndoHistory::of(model_).nameChainField(keyOf(field), t, [t] { return spokenName(t, t->text()); });
    return t;
}

LabeledSlider* ChainBinding::slider(double MasterParams::*field, const QString& caption, double step,
                                    std::function<QString(double)> format, QWidget* parent) {
    const ParamRange range = *rangeOf(field);
    auto* s = new LabeledSlider(caption, range.low, range.high, step, std::move(format), parent);
    s->setValue(model_.mp().*field);
    connect(s, &LabeledSlider::valueEdited, this, [this, field](double v) { edit([&](MasterParams& p) { p.*field = v; }); });
    shows_.push_back([s, field](const MasterParams& p) { s->setValue(p.*field); });
    UndoHistory::of(model_).nameChainField(keyOf(field), s, [s, caption] { return spokenName(s, caption); });
    return s;
}

void ChainBinding::onChange(std::function<void(const MasterParams&)> show) {
    show(model_.mp());
    shows_.push_back(std::move(show));
}

void ChainBinding::refresh() {
    const MasterParams& p = model_.mp();
    for (const auto& show : shows_) show(p);
}

}  // namespace velmora::window
