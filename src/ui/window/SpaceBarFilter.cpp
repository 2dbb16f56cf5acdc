#include "ui/window/SpaceBarFilter.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>

#include "model/Model.h"

namespace velmora::window {

SpaceBarFilter::SpaceBarFilter(Model& model, QObject* parent) : QObject(parent), model_(model) {}

bool SpaceBarFilter::isTextField(const QWidget* w) {
    if (!w) return false;
    if (qobject_cast<const QLineEdit*>(w) || qobject_cast<const QAbstractSpinBox*>(w)) return true;
    if (auto* text = qobject_cast<const QTextEdit*>(w)) return !text->isReadOnly();
    if (auto* plain = qobject_cast<const QPlainTextEdit*>(w)) return !plain->isReadOnly();
    if (auto* combo = qobject_cast<const QComboBox*>(w)) return combo->isEditable();
    // The viewport of a text edit receives its keys too.
    if (w->parentWidget() && (qobject_cast<const QTextEdit*>(w->parentWidget()) ||
                              qobject_cast<const QPlainTextEdit*>(w->parentWidget())))
        return isTextField(w->parentWidget());
    return false;
}

bool SpaceBarFilter::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease) return false;
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() != Qt::Key_Space && key->key() != Qt::Key_A) return false;
    if (key->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return false;
    if (isTextField(QApplication::focusWidget()) || isTextField(qobject_cast<QWidget*>(watched))) return false;
    if (QApplication::activePopupWidget() || QApplication::activeModalWidget()) return false;
    if (key->key() == Qt::Key_A) {
        if (event->type() == QEvent::KeyPress && !key->isAutoRepeat()) model_.toggleAB();
        return true;
    }
    if (model_.busy()) return false;
    // The press toggles once however long the key is held; its release and repeats are eaten so
    // a focused button does not also take the space for itself.
    if (event->type() == QEvent::KeyPress && !key->isAutoRepeat()) model_.toggleListening();
    return true;
}

}  // namespace velmora::window
